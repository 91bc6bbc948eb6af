// CClrProfiler: the object that the runtime creates and drives.
// Initialize decides whether to run at all, reads the switches and subscribes. It runs once, alone,
// on the runtime's initialising thread. The callbacks then arrive on any thread, several at once.
#pragma once

#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "profiler/callback_impl.h"
#include "profiler/com_object.h"
#include "profiler/profiler_switches.h"
#include "selection/choice.h"

#include <ocidl.h>

namespace corvane {

class CClrProfiler : public CorvaneCorProfilerCallbackImpl,
                     public IProvideClassInfo,
                     protected ComObjectRoot {
public:
    HRESULT STDMETHODCALLTYPE Initialize(IUnknown* info) noexcept override;
    HRESULT STDMETHODCALLTYPE Shutdown() noexcept override;
    HRESULT STDMETHODCALLTYPE ModuleLoadFinished(ModuleID module, HRESULT status) noexcept override;
    HRESULT STDMETHODCALLTYPE ModuleUnloadStarted(ModuleID module) noexcept override;
    HRESULT STDMETHODCALLTYPE JITCompilationStarted(FunctionID function,
                                                    BOOL is_safe_to_block) noexcept override;
    HRESULT STDMETHODCALLTYPE JITCachedFunctionSearchStarted(
        FunctionID function, BOOL* use_cached_function) noexcept override;
    HRESULT STDMETHODCALLTYPE JITInlining(FunctionID caller, FunctionID callee,
                                          BOOL* should_inline) noexcept override;
    HRESULT STDMETHODCALLTYPE ThreadDestroyed(ThreadID thread) noexcept override;
    HRESULT STDMETHODCALLTYPE ThreadAssignedToOSThread(ThreadID thread,
                                                       DWORD os_thread) noexcept override;
    HRESULT STDMETHODCALLTYPE InitializeForAttach(IUnknown* info, void* client_data,
                                                  UINT client_data_size) noexcept override;

    // Of the coclass kProfilerClassId, from this server's type library.
    HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** info) noexcept override;

    HRESULT STDMETHODCALLTYPE ProfilerAttachComplete() noexcept override;

    const ProfilerSwitches& switches() const noexcept { return switches_; }

    // The interface of this id, without a new reference; null for ids that are not answered.
    void* find_interface(REFIID iid) noexcept;

private:
    bool ShouldTrace() noexcept;
    bool ask_gate();
    void subscribe(IUnknown* info) noexcept;
    void take_present_modules();
    static void take_present_threads();
    bool CheckKey(const char* key, const char* value) const;
    DWORD event_mask() const noexcept;
    SelectionSettings selection_settings() const noexcept;
    HRESULT note_module(ModuleID module);
    void note_managed_library(ModuleID module);

    ComPtr<ICorProfilerInfo> profilerInfo;
    ProfilerSwitches switches_;
    bool is_attaching_ = false; // the process ran before
    bool only_samples_ = false; // the runtime lets an attaching profiler do no more
};

} // namespace corvane
