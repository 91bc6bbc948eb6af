#include "profiler/clr_profiler.h"

#include "base/debug_log.h"
#include "base/hresult_text.h"
#include "base/runtime_state.h"
#include "clr/runtime_name.h"
#include "profiler/agent_config.h"
#include "profiler/class_ids.h"
#include "profiler/log_variables.h"
#include "profiler/process_facts.h"
#include "profiler/type_library.h"
#include "rewrite/method_instrumenter.h"
#include "rewrite/references/known_references.h"
#include "rewrite/references/managed_library.h"
#include "rewrite/rewrite_settings.h"
#include "rewrite/shape/loaded_modules.h"
#include "sampling/known_functions.h"
#include "sampling/thread_map.h"
#include "selection/excluded_scopes.h"
#include "selection/jit_flow.h"
#include "selection/method_outcomes.h"
#include "selection/method_patterns.h"
#include "selection/module_facts.h"
#include "selection/precompiled_code.h"
#include "selection/target_methods.h"

#include <exception>
#include <string>

namespace corvane {

namespace {

void log_line(int level, const wchar_t* message) {
    default_log.log(level, L"%s", message);
}

// A step of start-up that throws, for want of memory, is reported and left out; start-up goes on.
template <class Step>
void attempt(const Step& step) noexcept {
    try {
        step();
    } catch (const std::exception& error) {
        default_log.log(1, L"CClrProfiler::Initialize(): a step was left out: %hs", error.what());
    }
}

constexpr const wchar_t* kMethodFailed = L"Failed to create method info (%s)";
constexpr const wchar_t* kModuleFailed = L"Failed to note a module (%s)";
constexpr const wchar_t* kThreadFailed = L"Failed to note a thread (%s)";
constexpr const wchar_t* kShutdownFailed = L"Failed to name the patterns that never matched (%s)";

// Runs what a callback does. Without memory it stays undone: a method is left as it stands, a
// thread is not sampled. The runtime hears of nothing.
template <class Work>
HRESULT guarded(const wchar_t* failure, const Work& work) noexcept {
    try {
        work();
    } catch (const std::exception&) {
        log_result(default_log, failure, E_OUTOFMEMORY);
    }
    return S_OK;
}

// Shows what an enumeration of the runtime holds.
template <class Enumeration, class Visit>
void for_each_id(Enumeration& ids, const Visit& visit) {
    UINT_PTR id = 0;
    for (ULONG fetched = 0; ids.Next(1, &id, &fetched) == S_OK && fetched == 1;) {
        visit(id);
    }
}

// A name that the runtime gives in two calls of `ask(capacity, length, buffer)`: the length first,
// terminator included, then the text. Returns the result of the last call made.
template <class Ask>
HRESULT ask_name(std::wstring& name, bool& known, const Ask& ask) {
    ULONG length = 0;
    HRESULT hr = ask(0, &length, nullptr);
    known = SUCCEEDED(hr);
    if (known) {
        resize_for_name(name, length);
        hr = ask(length, &length, name.data());
    }
    return hr;
}

} // namespace

void* CClrProfiler::find_interface(REFIID iid) noexcept {
    if (iid == __uuidof(IUnknown) || iid == __uuidof(ICorProfilerCallback) ||
        iid == __uuidof(ICorProfilerCallback2) || iid == __uuidof(ICorProfilerCallback3)) {
        return static_cast<ICorProfilerCallback3*>(this);
    }
    if (iid == __uuidof(IProvideClassInfo)) {
        return static_cast<IProvideClassInfo*>(this);
    }
    return nullptr;
}

HRESULT CClrProfiler::GetClassInfo(ITypeInfo** info) noexcept {
    return get_class_info(kProfilerClassId, info);
}

HRESULT CClrProfiler::Initialize(IUnknown* info) noexcept {
    const StartUpLines all_are_sent;
    LogSettings log_settings;
    attempt([&] {
        log_settings = read_log_settings(read_log_variables(), GetCurrentProcessId());
        begin_log(log_settings);
    });
    default_log.log(1, L"CClrProfiler::Initialize(): Invoked");
    for (const std::wstring& complaint : log_settings.complaints) {
        default_log.log(1, L"%s", complaint.c_str());
    }
    if (!ShouldTrace()) {
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }
    if (info != nullptr) {
        if (FAILED(info->QueryInterface(__uuidof(ICorProfilerInfo2), profilerInfo2.put_void()))) {
            default_log.log(1,
                            L"CClrProfiler::Initialize(): profiler info 2 interface load error.");
            return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
        }
        // Older runtimes have none.
        info->QueryInterface(__uuidof(ICorProfilerInfo3), profilerInfo3.put_void());
    }
    default_log.log(3, L"CClrProfiler::Initialize(): after should trace");
    attempt([this] {
        read_switches([this](const char* key, const char* value) { return CheckKey(key, value); },
                      switches_);
        strict_il = environment_asks_for_strict_il();
    });
    subscribe(info);
    attempt([] { load_excluded_scopes(); });
    attempt([] { load_method_patterns(); });
    attempt([this] {
        build_target_methods({switches_.logTraceIdEnabled, switches_.insertLogTraceId,
                              switches_.addAttributeLogTraceId});
    });
    return S_OK;
}

void CClrProfiler::subscribe(IUnknown* info) noexcept {
    if (info == nullptr ||
        FAILED(info->QueryInterface(__uuidof(ICorProfilerInfo), profilerInfo.put_void()))) {
        return;
    }
    if (FAILED(profilerInfo->SetEventMask(event_mask()))) {
        default_log.log(1, L"Failed to set event mask: COR_PRF_MONITOR_JIT_COMPILATION");
        only_samples_ =
            is_attaching_ &&
            SUCCEEDED(profilerInfo->SetEventMask(event_mask() & COR_PRF_ALLOWABLE_AFTER_ATTACH));
    }
}

bool CClrProfiler::ShouldTrace() noexcept {
    default_log.log(3, L"CClrProfiler::ShouldTrace(): called.");
    bool trace = false;
    attempt([&] { trace = ask_gate(); });
    return trace;
}

bool CClrProfiler::ask_gate() {
    AgentConfig config;
    const bool loaded = LoadAgentConfig(config, log_line);
    const GateDecision decision =
        decide_trace(read_process_facts(), loaded ? &config : nullptr, log_line);
    switches_.inliningDisabled = switches_.inliningDisabled || decision.disable_inlining;
    if (decision.verdict == GateVerdict::kAskPoolDefault) {
        return !CheckKey("Corvane", "Disabled");
    }
    return decision.verdict == GateVerdict::kTrace;
}

bool CClrProfiler::CheckKey(const char* key, const char* value) const {
    AgentConfig config;
    if (!LoadAgentConfig(config, log_line)) {
        default_log.log(1, L"CClrProfiler::CheckKey(): could not load agent config.");
        return false;
    }
    return check_key(config, key, value, log_line);
}

DWORD CClrProfiler::event_mask() const noexcept {
    DWORD mask = COR_PRF_MONITOR_MODULE_LOADS | COR_PRF_MONITOR_JIT_COMPILATION |
                 COR_PRF_MONITOR_CACHE_SEARCHES | COR_PRF_MONITOR_THREADS |
                 COR_PRF_ENABLE_STACK_SNAPSHOT;
    if (switches_.inliningDisabled) {
        mask |= COR_PRF_DISABLE_INLINING;
    }
    if (switches_.transparencyFullTrust) {
        mask |= COR_PRF_DISABLE_TRANSPARENCY_CHECKS_UNDER_FULL_TRUST;
    }
    return mask;
}

SelectionSettings CClrProfiler::selection_settings() const noexcept {
    return {switches_.transparencyInstrumentation, strict_il};
}

HRESULT CClrProfiler::InitializeForAttach(IUnknown* info, void*, UINT) noexcept {
    is_attaching_ = true;
    begin_adoption(); // the callbacks about threads come from now on
    // Through the callback table, so that whatever wraps this object sees the call. The runtime
    // would detach on a failure; a process that is not to be traced stays attached and untouched.
    static_cast<ICorProfilerCallback*>(this)->Initialize(info);
    return S_OK;
}

// The callbacks have been coming for a moment, so that nothing is missed in between.
HRESULT CClrProfiler::ProfilerAttachComplete() noexcept {
    guarded(kModuleFailed, [this] { take_present_modules(); });
    guarded(kThreadFailed, [] { take_present_threads(); });
    end_adoption();
    return S_OK;
}

void CClrProfiler::take_present_modules() {
    ComPtr<ICorProfilerModuleEnum> modules;
    if (profilerInfo3 && SUCCEEDED(profilerInfo3->EnumModules(modules.put()))) {
        for_each_id(*modules.get(), [this](ModuleID module) { ModuleLoadFinished(module, S_OK); });
    }
}

void CClrProfiler::take_present_threads() {
    ComPtr<ICorProfilerInfo4> info;
    ComPtr<ICorProfilerThreadEnum> threads;
    if (profilerInfo2 && SUCCEEDED(profilerInfo2.query(info)) &&
        SUCCEEDED(info->EnumThreads(threads.put()))) {
        for_each_id(*threads.get(), [&info](ThreadID thread) {
            DWORD os_thread = 0;
            if (SUCCEEDED(info->GetThreadInfo(thread, &os_thread))) {
                adopt_thread(thread, os_thread);
            }
        });
    }
}

HRESULT CClrProfiler::ModuleLoadFinished(ModuleID module, HRESULT status) noexcept {
    default_log.log(4, L"CClrProfiler::ModuleLoadFinished(): Invoked;");
    HRESULT hr = S_OK;
    if (!profilerInfo) {
        return hr;
    }
    bool stays = false;
    guarded(kModuleFailed, [&] {
        hr = E_OUTOFMEMORY;
        hr = note_module(module);
        stays =
            SUCCEEDED(status) && SUCCEEDED(hr) && add_loaded_module(profilerInfo3.get(), module);
    });
    if (!stays) { // as far as is known
        guarded(kModuleFailed, [module] { note_collectible_module(module); });
    }
    return hr;
}

// Another module may get the same id.
HRESULT CClrProfiler::ModuleUnloadStarted(ModuleID module) noexcept {
    guarded(kModuleFailed, [module] { forget_functions_of(module); });
    guarded(kModuleFailed, [module] { remove_loaded_module(module); });
    guarded(kModuleFailed, [module] { forget_left_methods(module); });
    forget_module_facts(module);
    guarded(kModuleFailed, [module] { forget_precompiled_code(module); });
    guarded(kModuleFailed, [module] { forget_references(module); });
    return S_OK;
}

HRESULT CClrProfiler::note_module(ModuleID module) {
    AssemblyID assembly = 0;
    std::wstring module_name;
    bool known = false;
    HRESULT hr = ask_name(module_name, known, [&](ULONG capacity, ULONG* length, wchar_t* buffer) {
        return profilerInfo->GetModuleInfo(module, nullptr, capacity, length, buffer,
                                           buffer != nullptr ? &assembly : nullptr);
    });
    if (known) {
        default_log.log(4, L"CClrProfiler::ModuleLoadFinished(): ModuleName=%s",
                        module_name.c_str());
    } else {
        log_result(default_log, L"Failed to get module metadata interface (%s)", hr);
    }

    std::wstring assembly_name;
    hr = ask_name(assembly_name, known, [&](ULONG capacity, ULONG* length, wchar_t* buffer) {
        return profilerInfo->GetAssemblyInfo(assembly, capacity, length, buffer, nullptr, nullptr);
    });
    if (!known) {
        log_result(default_log, L"Failed to get assembly metadata interface (%s)", hr);
        return hr;
    }
    default_log.log(4, L"CClrProfiler::ModuleLoadFinished(): AssemblyName=%s",
                    assembly_name.c_str());
    if (assembly_name == L"mscorlib") {
        mscorlibModuleId = module;
    } else if (assembly_name == L"System.Private.CoreLib") {
        coreLibraryModuleId = module;
    } else if (assembly_name == kManagedLibrary.name) {
        note_managed_library(module);
    }
    return hr;
}

void CClrProfiler::note_managed_library(ModuleID module) {
    const std::wstring reason = reason_against_library(profilerInfo.get(), module, strict_il);
    if (reason.empty()) {
        managedLibraryLoaded = true;
        return;
    }
    default_log.log(1,
                    L"A kite.managed was loaded that cannot be called: it %s; the one that came "
                    L"with this file has to be",
                    reason.c_str());
}

HRESULT CClrProfiler::JITCompilationStarted(FunctionID function, BOOL) noexcept {
    return guarded(kMethodFailed, [&] {
        if (!profilerInfo) {
            return;
        }
        note_function(profilerInfo2.get(), function);
        // What was compiled before may be running: all calls of a method need the same body.
        if (!only_samples_ && needs_description(profilerInfo.get(), function)) {
            on_jit_compilation_started(profilerInfo.get(), function, selection_settings(),
                                       RewriteMethod);
        }
    });
}

HRESULT CClrProfiler::JITCachedFunctionSearchStarted(FunctionID function,
                                                     BOOL* use_cached_function) noexcept {
    return guarded(kMethodFailed, [&] {
        if (!profilerInfo) {
            return;
        }
        note_function(profilerInfo2.get(), function);
        const SelectionSettings settings = selection_settings();
        if (needs_description(profilerInfo.get(), function)) {
            on_cached_function_search_started(profilerInfo.get(), function, settings,
                                              use_cached_function);
        }
        if (settings.strict && may_hold_chosen_code(profilerInfo.get(), function)) {
            *use_cached_function = FALSE;
        }
    });
}

HRESULT CClrProfiler::JITInlining(FunctionID, FunctionID callee, BOOL* should_inline) noexcept {
    return guarded(kMethodFailed, [&] {
        const SelectionSettings settings = selection_settings();
        if (profilerInfo && !only_samples_ && settings.strict &&
            needs_description(profilerInfo.get(), callee)) {
            on_jit_inlining(profilerInfo.get(), callee, settings, should_inline);
        }
    });
}

HRESULT CClrProfiler::Shutdown() noexcept {
    return guarded(kShutdownFailed, [] { report_patterns_never_matched(); });
}

HRESULT CClrProfiler::ThreadDestroyed(ThreadID thread) noexcept {
    return guarded(kThreadFailed, [&] { on_thread_destroyed(thread); });
}

HRESULT CClrProfiler::ThreadAssignedToOSThread(ThreadID thread, DWORD os_thread) noexcept {
    return guarded(kThreadFailed, [&] { on_thread_assigned(thread, os_thread); });
}

} // namespace corvane
