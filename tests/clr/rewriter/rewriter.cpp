// A profiler that rewrites every method that the runtime compiles, to show that a body which went
// through the model means what it meant. CORVANE_REWRITER_EDIT says what is done to it in between:
// nothing, or "grow" for nops wherever the format allows one and one more local. What happened is
// counted and written at shutdown to the file that CORVANE_REWRITER_REPORT names, a line each:
// the count, a blank, and "rewritten" or the step that failed with its result and the first method
// that it failed for. One object a process; callbacks arrive on any thread.
#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "rewrite/body/method_rewriter.h"
#include "rewrite/body/module_signatures.h"
#include "tests/support/test_profiler.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace {

using namespace corvane;

class Report {
public:
    void count(const std::string& outcome, const std::string& method = {}) {
        const std::lock_guard lock(mutex_);
        Entry& entry = entries_[outcome];
        if (entry.count++ == 0) {
            entry.first = method;
        }
    }
    void write() {
        const char* const file = std::getenv("CORVANE_REWRITER_REPORT");
        const std::lock_guard lock(mutex_);
        std::ofstream stream(file == nullptr ? "" : file, std::ios::binary);
        for (const auto& [outcome, entry] : entries_) {
            stream << entry.count << ' ' << outcome << entry.first << '\n';
        }
    }

private:
    struct Entry {
        int count = 0;
        std::string first;
    };
    std::mutex mutex_;
    std::map<std::string, Entry> entries_;
};

// Nothing may come between a prefix and its instruction or between a tail call and its return, and
// code that nothing leads to may not stand at the end of a protected region.
bool may_insert_behind(Opcode opcode, bool behind_tail) {
    switch (OpcodeTable[static_cast<std::size_t>(opcode)].flow) {
    case OpcodeFlow::Meta:
    case OpcodeFlow::Return:
    case OpcodeFlow::Branch:
    case OpcodeFlow::Throw:
        return false;
    default:
        return opcode != Opcode::kJmp && !behind_tail;
    }
}

bool grow(MethodBody& body) {
    bool may_insert = true;
    bool behind_tail = false;
    for (Instruction& instruction : body) {
        if (may_insert && instruction.opcode != Opcode::kSwitchTarget) {
            body.insert_before(&instruction, Opcode::kNop);
        }
        may_insert = instruction.opcode == Opcode::kSwitchTarget ||
                     may_insert_behind(instruction.opcode, behind_tail);
        behind_tail = instruction.opcode == Opcode::kTail;
    }
    const std::uint32_t before = body.local_signature;
    body.AddLocal(ELEMENT_TYPE_I4);
    return body.local_signature != before;
}

class Rewriter final : public corvane::testing::ImmortalProfiler {
public:
    HRESULT STDMETHODCALLTYPE Initialize(IUnknown* info) override {
        const char* const edit = std::getenv("CORVANE_REWRITER_EDIT");
        grows_ = edit != nullptr && std::string_view(edit) == "grow";
        const HRESULT hr = info->QueryInterface(__uuidof(ICorProfilerInfo), info_.put_void());
        return FAILED(hr) ? hr
                          : info_->SetEventMask(COR_PRF_MONITOR_JIT_COMPILATION |
                                                COR_PRF_MONITOR_CACHE_SEARCHES);
    }

    HRESULT STDMETHODCALLTYPE Shutdown() override {
        report_.write();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE JITCachedFunctionSearchStarted(FunctionID, BOOL* use) override {
        *use = FALSE;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE JITCompilationStarted(FunctionID function, BOOL) override {
        ClassID type = 0;
        ModuleID module = 0;
        mdToken method = 0;
        const HRESULT hr = info_->GetFunctionInfo(function, &type, &module, &method);
        if (FAILED(hr)) {
            return failed("GetFunctionInfo", hr, module, method);
        }
        MethodRewriter rewriter(info_.get(), module, method);
        MethodBody body;
        if (const HRESULT read = rewriter.Read(body); FAILED(read)) {
            return failed("Read", read, module, method);
        }
        ComPtr<IMetaDataImport> import;
        ComPtr<IMetaDataEmit> emit;
        std::optional<ModuleSignatures> signatures;
        if (grows_ && is_first(module, method)) {
            HRESULT opened = info_->GetModuleMetaData(
                module, ofRead | ofWrite, __uuidof(IMetaDataImport), import.put_unknown());
            opened = SUCCEEDED(opened) ? import.query(emit) : opened;
            if (FAILED(opened)) {
                return failed("GetModuleMetaData", opened, module, method);
            }
            body.local_signatures = &signatures.emplace(import.get(), emit.get());
            if (!grow(body)) {
                return failed("AddLocal", E_FAIL, module, method);
            }
        }
        if (const HRESULT written = rewriter.Write(body); FAILED(written)) {
            return failed("Write", written, module, method);
        }
        report_.count("rewritten");
        return S_OK;
    }

private:
    HRESULT failed(const char* step, HRESULT hr, ModuleID module, mdToken method) {
        char text[40] = {};
        static_cast<void>(
            std::snprintf(text, sizeof text, "%s 0x%08lX", step, static_cast<unsigned long>(hr)));
        report_.count(text, ' ' + name_of(module, method));
        return S_OK;
    }

    // Each instance of a generic method is compiled, and so is each tier; all share one body.
    bool is_first(ModuleID module, mdToken method) {
        const std::lock_guard lock(mutex_);
        return grown_.emplace(module, method).second;
    }

    std::string name_of(ModuleID module, mdToken method) {
        ComPtr<IMetaDataImport> metadata;
        WCHAR name[200] = {};
        ULONG length = 0;
        if (FAILED(info_->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataImport),
                                            metadata.put_unknown())) ||
            FAILED(metadata->GetMethodProps(method, nullptr, name, 200, &length, nullptr, nullptr,
                                            nullptr, nullptr, nullptr))) {
            return "?";
        }
        std::string narrow;
        for (const WCHAR* c = name; *c != 0; ++c) {
            narrow += static_cast<char>(*c);
        }
        return narrow;
    }

    ComPtr<ICorProfilerInfo> info_;
    bool grows_ = false;
    std::mutex mutex_;
    std::set<std::pair<ModuleID, mdToken>> grown_;
    Report report_;
};

} // namespace

IClassFactory& corvane::testing::test_profiler_factory() {
    static auto& factory =
        *new corvane::testing::ProfilerFactory<Rewriter>(); // outlives everything
    return factory;
}
