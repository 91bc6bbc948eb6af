// A profiler that stands between the runtime and the one under test and writes, when the process
// ends, what became of its methods into the file that CORVANE_OBSERVER_REPORT names. Fields of a
// line are divided by tabs:
//   rewritten  TOKEN METHOD COMPILATIONS REWRITINGS    of each method with a new body
//   left       TOKEN METHOD REASON                     of each that has none, though the log gives
//                                                      a reason, or it has the trace attribute and
//                                                      no generic types in its signature
//   kept       TOKEN METHOD                            of each other one
// With CORVANE_OBSERVER_READS_LOG set, the profiler takes the observer for a debugger, and of the
// log as well:
//   complaint  COUNT LINE                              of each line of the log that tells of a
//   failure
// and of the module whose file CORVANE_OBSERVER_MODULE names, if it is loaded:
//   references WHEN ASSEMBLIES TYPES MEMBERS           how many, "loaded" and at the "end"
//   assembly   TOKEN NAME
//   type       TOKEN SCOPE NAME
//   member     TOKEN PARENT NAME SIGNATURE
//   body       TOKEN BYTES                             of each method with a new body
#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "selection/method_info.h"
#include "selection/target_methods.h"
#include "tests/support/between.h"
#include "tests/support/patched_import.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace corvane;
using corvane::testing::call_original;
using Bytes = std::span<const std::uint8_t>;

struct Method {
    std::string name; // "[assembly]Type:Method()", as in the log
    bool is_marked = false;
    int compilations = 0;
    int rewritings = 0;
    std::string reason; // of the log, for one that was left
};

struct Counts {
    ULONG assemblies = 0;
    ULONG types = 0;
    ULONG members = 0;
};

// Written by the callbacks, on any thread; read when the process ends.
struct Observed {
    std::mutex mutex;
    std::map<std::pair<ModuleID, mdToken>, Method> methods;
    std::map<std::string, int> complaints;
    ModuleID module = 0; // the one that was asked for
    Counts when_loaded;
};
Observed& observed() {
    static Observed& all = *new Observed(); // outlives everything
    return all;
}

ComPtr<ICorProfilerInfo> runtime;

std::string narrow(std::wstring_view text) {
    std::string ascii;
    for (const wchar_t c : text) {
        ascii += c < 0x20 || c > 0x7E ? '?' : static_cast<char>(c);
    }
    return ascii;
}

std::string hexadecimal(Bytes bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[3] = {};
        static_cast<void>(std::snprintf(digits, sizeof digits, "%02x", byte));
        text += digits;
    }
    return text;
}

std::string hexadecimal(mdToken token) {
    char digits[9] = {};
    static_cast<void>(
        std::snprintf(digits, sizeof digits, "%08lx", static_cast<unsigned long>(token)));
    return digits;
}

// --- The log

thread_local std::string last_reason; // why a method is left, while it is decided about

LONG CALLBACK hear(EXCEPTION_POINTERS* pointers) {
    constexpr DWORD kWideLine = 0x4001000A; // DBG_PRINTEXCEPTION_WIDE_C
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != kWideLine) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const std::wstring_view line = reinterpret_cast<const wchar_t*>(record.ExceptionInformation[1]);
    if (line.find(L"Left as it is") != line.npos || line.find(L"Failed") != line.npos) {
        // "Left as it is: REASON", or "Left as it is (MESSAGE)"
        constexpr std::wstring_view kLeft = L" : Left as it is";
        if (const std::size_t at = line.find(kLeft); at != line.npos) {
            const std::wstring_view reason = line.substr(at + kLeft.size() + 2);
            last_reason =
                narrow(reason.substr(0, reason.size() - (reason.ends_with(L')') ? 1 : 0)));
        }
        const std::size_t behind_thread = line.find(L' ') + 1;
        const std::lock_guard lock(observed().mutex);
        ++observed().complaints[narrow(line.substr(behind_thread))];
    }
    return EXCEPTION_CONTINUE_EXECUTION; // nobody else is to hear it: that is what takes its time
}

// --- Metadata

// Every token that a method of the metadata's enumerates.
template <class Interface, class Enumerate>
std::vector<mdToken> enumerate(Interface* metadata, Enumerate next) {
    HCORENUM list = nullptr;
    mdToken token = mdTokenNil;
    ULONG count = 0;
    std::vector<mdToken> tokens;
    while (next(&list, &token, &count) == S_OK && count == 1) {
        tokens.push_back(token);
    }
    static_cast<void>(metadata->CloseEnum(list));
    return tokens;
}

class References {
public:
    explicit References(ModuleID module) {
        if (FAILED(runtime->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataImport),
                                              import_.put_unknown())) ||
            FAILED(import_->QueryInterface(__uuidof(IMetaDataAssemblyImport),
                                           assemblies_.put_void()))) {
            std::abort();
        }
    }

    [[nodiscard]] Counts counts() const {
        return {static_cast<ULONG>(assembly_references().size()),
                static_cast<ULONG>(type_references().size()),
                static_cast<ULONG>(member_references().size())};
    }

    void write(std::ostream& report) const {
        for (const mdToken token : assembly_references()) {
            wchar_t name[200] = {};
            assemblies_->GetAssemblyRefProps(token, nullptr, nullptr, name, 200, nullptr, nullptr,
                                             nullptr, nullptr, nullptr);
            report << "assembly\t" << hexadecimal(token) << '\t' << narrow(name) << '\n';
        }
        for (const mdToken token : type_references()) {
            wchar_t name[1024] = {};
            mdToken scope = mdTokenNil;
            import_->GetTypeRefProps(token, &scope, name, 1024, nullptr);
            report << "type\t" << hexadecimal(token) << '\t' << hexadecimal(scope) << '\t'
                   << narrow(name) << '\n';
        }
        for (const mdToken token : member_references()) {
            wchar_t name[1024] = {};
            mdToken parent = mdTokenNil;
            PCCOR_SIGNATURE signature = nullptr;
            ULONG size = 0;
            import_->GetMemberRefProps(token, &parent, name, 1024, nullptr, &signature, &size);
            report << "member\t" << hexadecimal(token) << '\t' << hexadecimal(parent) << '\t'
                   << narrow(name) << '\t' << hexadecimal(Bytes(signature, size)) << '\n';
        }
    }

private:
    [[nodiscard]] std::vector<mdToken> assembly_references() const {
        return enumerate(assemblies_.get(), [&](HCORENUM* list, mdToken* token, ULONG* count) {
            return assemblies_->EnumAssemblyRefs(list, token, 1, count);
        });
    }
    [[nodiscard]] std::vector<mdToken> type_references() const {
        return enumerate(import_.get(), [&](HCORENUM* list, mdToken* token, ULONG* count) {
            return import_->EnumTypeRefs(list, token, 1, count);
        });
    }
    // What references belong to is a type, an instantiation or a method with variable arguments.
    [[nodiscard]] std::vector<mdToken> member_references() const {
        std::vector<mdToken> parents = type_references();
        for (const mdToken specification :
             enumerate(import_.get(), [&](HCORENUM*list, mdToken*token, ULONG*count) {
                 return import_->EnumTypeSpecs(list, token, 1, count);
             })) {
            parents.push_back(specification);
        }
        std::vector<mdToken> members;
        for (const mdToken parent : parents) {
            for (const mdToken member :
                 enumerate(import_.get(), [&](HCORENUM*list, mdToken*token, ULONG*count) {
                     return import_->EnumMemberRefs(list, parent, token, 1, count);
                 })) {
                members.push_back(member);
            }
        }
        return members;
    }

    ComPtr<IMetaDataImport> import_;
    ComPtr<IMetaDataAssemblyImport> assemblies_;
};

// --- Methods

Bytes body_of(ModuleID module, mdToken method) {
    LPCBYTE bytes = nullptr;
    ULONG size = 0;
    return SUCCEEDED(runtime->GetILFunctionBody(module, method, &bytes, &size)) ? Bytes(bytes, size)
                                                                                : Bytes();
}

// Asked of the metadata anew, so that it does not matter what the profiler made of it.
void describe(FunctionID function, Method& described) {
    method_info method;
    if (FAILED(method.get_info(runtime.get(), function))) {
        return;
    }
    const MethodName name = {method.type_name, method.method_name, method.signature,
                             method.signature_size};
    described.is_marked = method.has_trace_attribute && !has_generic_types(name);
    described.name = narrow(std::wstring(L"[") + method.assembly_name.c_str() + L"]" +
                            method.type_name.c_str() + L":" + method.method_name.c_str() + L"()");
}

bool is_asked_for(ModuleID module) {
    static const char* const asked_for = std::getenv("CORVANE_OBSERVER_MODULE");
    wchar_t file[MAX_PATH] = {};
    return asked_for != nullptr &&
           SUCCEEDED(runtime->GetModuleInfo(module, nullptr, MAX_PATH, nullptr, file, nullptr)) &&
           std::filesystem::path(file).filename() == asked_for;
}

// --- Callbacks

BOOL WINAPI is_debugger_present() {
    return TRUE;
}

void read_log() {
    wchar_t target[MAX_PATH] = {};
    GetEnvironmentVariableW(L"CORVANE_WITNESS_TARGET", target, MAX_PATH);
    corvane::testing::write_import(
        corvane::testing::import_slot(GetModuleHandleW(target), "IsDebuggerPresent"),
        reinterpret_cast<void*>(&is_debugger_present));
    AddVectoredExceptionHandler(1, &hear);
}

HRESULT STDMETHODCALLTYPE initialize(ICorProfilerCallback3* self, IUnknown* info) {
    if (std::getenv("CORVANE_OBSERVER_READS_LOG") != nullptr) {
        read_log();
    }
    const HRESULT hr = info->QueryInterface(__uuidof(ICorProfilerInfo), runtime.put_void());
    return FAILED(hr) ? hr : call_original(clr_slots::kInitialize, self, info);
}

HRESULT STDMETHODCALLTYPE module_load_finished(ICorProfilerCallback3* self, ModuleID module,
                                               HRESULT status) {
    if (SUCCEEDED(status) && is_asked_for(module)) {
        observed().module = module;
        observed().when_loaded = References(module).counts();
    }
    return call_original(clr_slots::kModuleLoadFinished, self, module, status);
}

HRESULT STDMETHODCALLTYPE jit_compilation_started(ICorProfilerCallback3* self, FunctionID function,
                                                  BOOL is_safe_to_block) {
    ClassID type = 0;
    ModuleID module = 0;
    mdToken token = mdTokenNil;
    if (FAILED(runtime->GetFunctionInfo(function, &type, &module, &token))) {
        return call_original(clr_slots::kJITCompilationStarted, self, function, is_safe_to_block);
    }
    const void* const before = body_of(module, token).data();
    last_reason.clear();
    const HRESULT result =
        call_original(clr_slots::kJITCompilationStarted, self, function, is_safe_to_block);
    const bool is_rewritten = body_of(module, token).data() != before;
    const std::lock_guard lock(observed().mutex);
    Method& method = observed().methods[{module, token}];
    if (++method.compilations == 1) {
        describe(function, method);
    }
    method.rewritings += is_rewritten ? 1 : 0;
    if (method.reason.empty()) {
        method.reason = last_reason;
    }
    return result;
}

void write_counts(std::ostream& report, const char* when, const Counts& counts) {
    report << "references\t" << when << '\t' << counts.assemblies << '\t' << counts.types << '\t'
           << counts.members << '\n';
}

void write_report(std::ostream& report) {
    Observed& all = observed();
    for (const auto& [key, method] : all.methods) {
        if (method.rewritings == 0 && (method.is_marked || !method.reason.empty())) {
            report << "left\t" << hexadecimal(key.second) << '\t' << method.name << '\t'
                   << method.reason << '\n';
        } else if (method.rewritings == 0) {
            report << "kept\t" << hexadecimal(key.second) << '\t' << method.name << '\n';
        } else {
            report << "rewritten\t" << hexadecimal(key.second) << '\t' << method.name << '\t'
                   << method.compilations << '\t' << method.rewritings << '\n';
        }
    }
    for (const auto& [line, count] : all.complaints) {
        report << "complaint\t" << count << '\t' << line << '\n';
    }
    if (all.module == 0) {
        return;
    }
    const References references(all.module);
    write_counts(report, "loaded", all.when_loaded);
    write_counts(report, "end", references.counts());
    references.write(report);
    for (const auto& [key, method] : all.methods) {
        if (key.first == all.module && method.rewritings != 0) {
            report << "body\t" << hexadecimal(key.second) << '\t'
                   << hexadecimal(body_of(key.first, key.second)) << '\n';
        }
    }
}

HRESULT STDMETHODCALLTYPE shutdown(ICorProfilerCallback3* self) {
    const HRESULT result = call_original(clr_slots::kShutdown, self);
    const wchar_t* const file = _wgetenv(L"CORVANE_OBSERVER_REPORT");
    if (file != nullptr) {
        const std::lock_guard lock(observed().mutex);
        std::ofstream report(std::filesystem::path(file), std::ios::binary);
        write_report(report);
    }
    return result;
}

} // namespace

void corvane::testing::stand_between() {
    replace(clr_slots::kInitialize, &initialize);
    replace(clr_slots::kShutdown, &shutdown);
    replace(clr_slots::kModuleLoadFinished, &module_load_finished);
    replace(clr_slots::kJITCompilationStarted, &jit_compilation_started);
}
