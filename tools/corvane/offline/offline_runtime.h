// OfflineRuntime: the runtime's side of the profiling interface over an assembly's file, so that
// the profiler's own code decides about its methods and rewrites them, and no program runs. The
// metadata is opened for writing in memory, and new bodies stay here: the file is only read. The
// assembly's neighbours, and those of the runtime, count as loaded. One thread.
#pragma once

#include "clr/body_allocator.h"
#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "clr/metadata.h"
#include "tools/corvane/offline/assembly_file.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace corvane::tool {

// Answers nothing that is not overridden.
class SilentRuntime : public ICorProfilerInfo3 {
public:
#define CORVANE_NOT_ANSWERED(slot, name, parameters)                                               \
    HRESULT STDMETHODCALLTYPE name parameters override {                                           \
        return E_NOTIMPL;                                                                          \
    }
    CLR_PROFILER_INFO_METHODS(CORVANE_NOT_ANSWERED)
    CLR_PROFILER_INFO2_METHODS(CORVANE_NOT_ANSWERED)
    CLR_PROFILER_INFO3_METHODS(CORVANE_NOT_ANSWERED)
#undef CORVANE_NOT_ANSWERED
};

class OfflineRuntime final : public SilentRuntime {
public:
    using Bytes = std::span<const std::uint8_t>;

    // Of the assembly itself; those of its neighbours follow.
    static constexpr ModuleID kModule = 1;

    // The engine is borrowed.
    explicit OfflineRuntime(IMetaDataDispenserEx& engine) : engine_(engine) {}
    OfflineRuntime(const OfflineRuntime&) = delete;
    OfflineRuntime& operator=(const OfflineRuntime&) = delete;
    ~OfflineRuntime(); // as if the modules were unloaded

    // The assembly, once and first. False where its metadata cannot be opened.
    bool open(const std::filesystem::path& path, std::vector<std::uint8_t> bytes);

    // One that counts as loaded. It is read when something is looked for in it. Gives its module.
    ModuleID add_neighbour(const std::filesystem::path& path);

    [[nodiscard]] FileVerdict verdict() const;
    [[nodiscard]] IMetaDataImport& metadata() const { return *modules_.front()->metadata.get(); }

    // All methods with code that the runtime would compile, in the order of the metadata.
    [[nodiscard]] std::vector<FunctionID> functions() const;
    [[nodiscard]] static mdMethodDef token_of(FunctionID function) {
        return static_cast<mdMethodDef>(function);
    }

    // As the file has it, from its begin to whatever follows it. Empty for a method without code.
    [[nodiscard]] Bytes original_body(mdMethodDef method) const;
    // Empty for a method that keeps its own.
    [[nodiscard]] Bytes new_body(mdMethodDef method) const;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; } // belongs to whoever made it
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE GetTokenAndMetaDataFromFunction(FunctionID function, REFIID iid,
                                                              IUnknown** metadata,
                                                              mdToken* token) override;
    HRESULT STDMETHODCALLTYPE GetFunctionInfo(FunctionID function, ClassID* type, ModuleID* module,
                                              mdToken* token) override;
    HRESULT STDMETHODCALLTYPE GetModuleInfo(ModuleID module, LPCBYTE* base, ULONG capacity,
                                            ULONG* length, WCHAR* name,
                                            AssemblyID* assembly) override;
    HRESULT STDMETHODCALLTYPE GetModuleInfo2(ModuleID module, LPCBYTE* base, ULONG capacity,
                                             ULONG* length, WCHAR* name, AssemblyID* assembly,
                                             DWORD* flags) override;
    HRESULT STDMETHODCALLTYPE GetAssemblyInfo(AssemblyID assembly, ULONG capacity, ULONG* length,
                                              WCHAR* name, AppDomainID* app_domain,
                                              ModuleID* module) override;
    HRESULT STDMETHODCALLTYPE GetModuleMetaData(ModuleID module, DWORD flags, REFIID iid,
                                                IUnknown** metadata) override;
    HRESULT STDMETHODCALLTYPE GetRuntimeInformation(USHORT* instance, COR_PRF_RUNTIME_TYPE* type,
                                                    USHORT* major, USHORT* minor, USHORT* build,
                                                    USHORT* fix, ULONG capacity, ULONG* length,
                                                    WCHAR* version) override;
    HRESULT STDMETHODCALLTYPE GetCurrentThreadID(ThreadID* thread) override;
    HRESULT STDMETHODCALLTYPE GetILFunctionBody(ModuleID module, mdMethodDef method,
                                                LPCBYTE* header, ULONG* size) override;
    HRESULT STDMETHODCALLTYPE GetILFunctionBodyAllocator(ModuleID module,
                                                         IMethodMalloc** allocator) override;
    HRESULT STDMETHODCALLTYPE SetILFunctionBody(ModuleID module, mdMethodDef method,
                                                LPCBYTE header) override;

private:
    struct Module {
        std::wstring path;
        std::unique_ptr<AssemblyFile> file; // not yet, of a neighbour that nobody has asked for
        ComPtr<IMetaDataImport> metadata;   // null, too, for one that is no assembly
        std::wstring assembly_name;
    };

    Module* find(ModuleID module);
    bool read(Module& module, std::vector<std::uint8_t> bytes, DWORD flags);

    IMetaDataDispenserEx& engine_;
    std::vector<std::unique_ptr<Module>> modules_;
    std::map<mdMethodDef, std::vector<std::uint8_t>> new_bodies_;
    BodyAllocator allocator_;
};

// Nothing where the file cannot be read.
std::optional<std::vector<std::uint8_t>> read_file_bytes(const std::filesystem::path& path);

} // namespace corvane::tool
