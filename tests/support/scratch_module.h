// ScratchModule: a module that the runtime's own metadata engine makes in memory, and the runtime's
// side of the profiling interface over it. What is asked of the metadata goes through to the
// engine; the calls that rewriting makes are written down and can be made to fail one by one. It
// counts the references that are held on it and on the metadata.
#pragma once

#include "clr/body_allocator.h"
#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "tests/support/fake_runtime.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace corvane::testing {

using Bytes = std::vector<std::uint8_t>;

class ScratchModule : public FailingRuntime {
public:
    static constexpr ModuleID kModule = 0xB1;
    static constexpr ModuleID kOtherModule = 0xB2;

    explicit ScratchModule(IMetaDataDispenserEx& dispenser);
    virtual ~ScratchModule();

    // To make the module with, and to look at it.
    IMetaDataEmit& emit() { return *emit_.get(); }
    IMetaDataImport& import() { return *import_.get(); }
    // Of a second module, which is loaded as well once it is used.
    IMetaDataEmit& other();

    mdAssemblyRef assembly_ref(const std::wstring& name);
    mdTypeRef type_ref(mdToken scope, const std::wstring& name);
    mdTypeDef type_def(const std::wstring& name, mdToken base);
    mdMethodDef method_def(mdTypeDef type, const std::wstring& name, const Bytes& signature);
    std::vector<std::wstring> type_ref_names();
    std::vector<std::wstring> assembly_ref_names();
    Bytes member_signature(const std::wstring& name);

    // The bodies that the runtime has: given by a test, replaced by what is installed.
    std::map<mdMethodDef, Bytes> bodies;
    int installations = 0;
    int other_opened = 0; // how often the second module's metadata was asked for
    std::function<void()> on_other_opened = [] {};
    bool other_has_metadata = true; // without, asking succeeds and gives nothing

    // Answers of the calls of the metadata that are written down, by their number. A failing call
    // does not reach the engine.
    std::map<std::size_t, HRESULT> results;
    int open_enumerations = 0; // of type and assembly references
    std::vector<std::string> metadata_calls;
    // Whether `metadata_calls` is kept. Without it no call fails but those that the engine refuses.
    bool writes_down = true;
    COR_PRF_RUNTIME_TYPE runtime_type = COR_PRF_DESKTOP_CLR;

    // The test's own aside.
    [[nodiscard]] int held_references() const { return references_ - 1 + *metadata_references_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references_); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references_); }

    HRESULT STDMETHODCALLTYPE GetModuleMetaData(ModuleID module, DWORD flags, REFIID iid,
                                                IUnknown** metadata) override;
    HRESULT STDMETHODCALLTYPE GetRuntimeInformation(USHORT* instance, COR_PRF_RUNTIME_TYPE* type,
                                                    USHORT* major, USHORT* minor, USHORT* build,
                                                    USHORT* qfe, ULONG capacity, ULONG* length,
                                                    WCHAR* version) override;
    HRESULT STDMETHODCALLTYPE GetILFunctionBody(ModuleID module, mdMethodDef method,
                                                LPCBYTE* header, ULONG* size) override;
    HRESULT STDMETHODCALLTYPE GetILFunctionBodyAllocator(ModuleID module,
                                                         IMethodMalloc** allocator) override;
    HRESULT STDMETHODCALLTYPE SetILFunctionBody(ModuleID module, mdMethodDef method,
                                                LPCBYTE header) override;

private:
    class Metadata;

    // Writes the call down, as `describe` tells it, and gives its answer.
    template <class Describe>
    HRESULT answer(const Describe& describe) {
        if (!writes_down) {
            return S_OK;
        }
        const auto found = results.find(metadata_calls.size());
        metadata_calls.emplace_back(describe());
        return found != results.end() ? found->second : S_OK;
    }

    IMetaDataDispenserEx& dispenser_;
    ComPtr<IMetaDataEmit> emit_;
    ComPtr<IMetaDataImport> import_;
    ComPtr<IMetaDataEmit> other_;
    int references_ = 1;
    std::shared_ptr<int> metadata_references_ = std::make_shared<int>(0);
    std::unique_ptr<Metadata> metadata_;
    BodyAllocator allocator_;
};

} // namespace corvane::testing
