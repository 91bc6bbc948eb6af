// RealMethods: the runtime's side of the profiling interface over an assembly file, without a
// running program. The metadata is that of the runtime's own engine; a function's id is its
// method's token.
#pragma once

#include "clr/com_ptr.h"
#include "tests/support/fake_runtime.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace corvane::testing {

// The runtime's metadata engine, out of a folder with its assemblies. Null where it cannot be had.
ComPtr<IMetaDataDispenserEx> metadata_dispenser(const std::filesystem::path& runtime_folder);

// The folder of the newest runtime below CORVANE_DOTNET_ROOTS.
std::optional<std::filesystem::path> newest_runtime_folder();

class RealMethods final : public FailingRuntime {
public:
    static constexpr ModuleID kModule = 0xB1;
    static constexpr AssemblyID kAssembly = 0xA1;

    // Whether the image is found as well, and not only the metadata.
    bool gives_image = true;
    int opened = 0; // how often the metadata was asked for

    // Throws std::runtime_error when the assembly cannot be opened.
    RealMethods(IMetaDataDispenserEx& dispenser, const std::filesystem::path& assembly);
    ~RealMethods(); // as if the module were unloaded

    // All that have a body, in the order of the metadata.
    std::vector<FunctionID> with_body() const;

    // The method of a type, which is named with its namespace; of a nested type with the type that
    // encloses it and a "+" before it. Zero when there is none; the first of several.
    FunctionID find(const std::wstring& type, const std::wstring& method) const;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool answered = iid == __uuidof(ICorProfilerInfo3);
        *object = answered ? static_cast<ICorProfilerInfo3*>(this) : nullptr;
        return answered ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; } // the test's own object
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE GetTokenAndMetaDataFromFunction(FunctionID function, REFIID iid,
                                                              IUnknown** metadata,
                                                              mdToken* token) override;
    HRESULT STDMETHODCALLTYPE GetFunctionInfo(FunctionID function, ClassID* class_id,
                                              ModuleID* module, mdToken* token) override;
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
    HRESULT STDMETHODCALLTYPE GetCurrentThreadID(ThreadID* thread) override;

private:
    std::vector<char> image_; // as the file has it
    std::wstring file_;
    std::wstring name_;
    ComPtr<IMetaDataImport> metadata_;
};

} // namespace corvane::testing
