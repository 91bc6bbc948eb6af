// FakeRuntime: the runtime's side of the profiling interface, for failures that a real runtime does
// not give on demand. It records the calls that it gets and counts the references that are held.
#pragma once

#include "clr/cor_profiler.h"

#include <cwchar>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace corvane::testing {

// Answers every method with E_FAIL; FakeRuntime overrides what a test needs.
class FailingRuntime : public ICorProfilerInfo4 {
public:
#define CORVANE_FAIL(slot, name, parameters)                                                       \
    HRESULT STDMETHODCALLTYPE name parameters override {                                           \
        write_down(#name);                                                                         \
        return E_FAIL;                                                                             \
    }
    CLR_PROFILER_INFO_METHODS(CORVANE_FAIL)
    CLR_PROFILER_INFO2_METHODS(CORVANE_FAIL)
    CLR_PROFILER_INFO3_METHODS(CORVANE_FAIL)
    CORVANE_FAIL(71, EnumThreads, (ICorProfilerThreadEnum**))
#undef CORVANE_FAIL

    // Whether `calls` is kept. Without it the fakes allocate nothing.
    bool writes_down = true;
    std::vector<std::string> calls;

protected:
    void write_down(const char* call) {
        if (writes_down) {
            calls.emplace_back(call);
        }
    }
};

// Ids that the runtime shows from the first one on. It belongs to the fake, and counts the
// references that are held.
template <class Interface>
class FakeEnumeration final : public Interface {
public:
    std::vector<UINT_PTR> ids;
    ULONG references = 0;

    HRESULT give_to(Interface** out) {
        next_ = 0;
        ++references;
        *out = this;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reset() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Clone(Interface**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCount(ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Next(ULONG count, UINT_PTR* out, ULONG* fetched) override {
        for (*fetched = 0; *fetched < count && next_ < ids.size(); ++*fetched) {
            out[*fetched] = ids[next_++];
        }
        return *fetched == count ? S_OK : S_FALSE;
    }

private:
    std::size_t next_ = 0;
};

// Has modules and threads by the time that a profiler attaches. The system's id of a thread is the
// lower half of the runtime's.
class RunningRuntime : public FailingRuntime {
public:
    FakeEnumeration<ICorProfilerModuleEnum> present_modules;
    FakeEnumeration<ICorProfilerThreadEnum> present_threads;

    HRESULT STDMETHODCALLTYPE EnumModules(ICorProfilerModuleEnum** modules) override {
        write_down("EnumModules");
        return present_modules.give_to(modules);
    }
    HRESULT STDMETHODCALLTYPE EnumThreads(ICorProfilerThreadEnum** threads) override {
        write_down("EnumThreads");
        return present_threads.give_to(threads);
    }
    HRESULT STDMETHODCALLTYPE GetThreadInfo(ThreadID thread, DWORD* os_thread) override {
        write_down("GetThreadInfo");
        *os_thread = static_cast<DWORD>(thread);
        return S_OK;
    }
};

// As the runtime does: the length counts the terminator, the text is cut to the capacity.
inline void give_name(const std::wstring& text, ULONG capacity, ULONG* length, WCHAR* name) {
    *length = static_cast<ULONG>(text.size() + 1);
    if (name != nullptr && capacity > 0) {
        std::wcsncpy(name, text.c_str(), capacity - 1);
        name[capacity - 1] = L'\0';
    }
}

class FakeRuntime final : public RunningRuntime {
public:
    // Which interfaces it answers, by version.
    bool has_info = true;
    bool has_info2 = true;
    bool has_info3 = true;
    bool has_info4 = false;
    // Called when it is asked for ICorProfilerInfo2: between the process gate and the switches.
    std::function<void()> on_info2_query = [] {};
    // Called when it is given the mask: between the switches and the tables.
    std::function<void()> on_event_mask = [] {};

    HRESULT set_event_mask_result = S_OK;
    DWORD refused_events = 0; // a mask with one of them is refused
    DWORD event_mask = 0;

    struct Module {
        std::wstring name;
        AssemblyID assembly;
    };
    std::map<ModuleID, Module> modules;
    std::map<ModuleID, DWORD> module_flags;
    std::map<AssemblyID, std::wstring> assemblies;
    // What GetAssemblyInfo answers when it is asked for the text and not for the length.
    HRESULT assembly_text_result = S_OK;

    ULONG references = 1; // the test's own

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid == __uuidof(ICorProfilerInfo2)) {
            on_info2_query();
        }
        const bool answered = iid == __uuidof(IUnknown) ||
                              (has_info && iid == __uuidof(ICorProfilerInfo)) ||
                              (has_info2 && iid == __uuidof(ICorProfilerInfo2)) ||
                              (has_info3 && iid == __uuidof(ICorProfilerInfo3)) ||
                              (has_info4 && iid == __uuidof(ICorProfilerInfo4));
        *object = answered ? static_cast<ICorProfilerInfo4*>(this) : nullptr;
        if (!answered) {
            return E_NOINTERFACE;
        }
        ++references;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }

    HRESULT STDMETHODCALLTYPE SetEventMask(DWORD events) override {
        calls.emplace_back("SetEventMask");
        if ((events & refused_events) != 0) {
            return CORPROF_E_UNSUPPORTED_FOR_ATTACHING_PROFILER;
        }
        event_mask = events;
        on_event_mask();
        return set_event_mask_result;
    }

    HRESULT STDMETHODCALLTYPE GetModuleInfo(ModuleID module, LPCBYTE*, ULONG capacity,
                                            ULONG* length, WCHAR* name,
                                            AssemblyID* assembly) override {
        calls.emplace_back("GetModuleInfo");
        const auto found = modules.find(module);
        if (found == modules.end()) {
            return CORPROF_E_DATAINCOMPLETE;
        }
        give_name(found->second.name, capacity, length, name);
        if (assembly != nullptr) {
            *assembly = found->second.assembly;
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetModuleInfo2(ModuleID module, LPCBYTE*, ULONG, ULONG*, WCHAR*,
                                             AssemblyID*, DWORD* flags) override {
        calls.emplace_back("GetModuleInfo2");
        const auto found = module_flags.find(module);
        if (found == module_flags.end()) {
            return E_INVALIDARG;
        }
        *flags = found->second;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetAssemblyInfo(AssemblyID assembly, ULONG capacity, ULONG* length,
                                              WCHAR* name, AppDomainID*, ModuleID*) override {
        calls.emplace_back("GetAssemblyInfo");
        const auto found = assemblies.find(assembly);
        if (found == assemblies.end()) {
            return E_INVALIDARG;
        }
        if (name != nullptr && FAILED(assembly_text_result)) {
            return assembly_text_result;
        }
        give_name(found->second, capacity, length, name);
        return S_OK;
    }
};

} // namespace corvane::testing
