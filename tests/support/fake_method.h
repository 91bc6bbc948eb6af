// FakeMethod: a runtime that knows one method, with its module, its assembly and their metadata.
// It writes down what it is asked, with the arguments, answers any one call as a test wants, and
// counts the references that are held on it and on the metadata.
#pragma once

#include "clr/runtime_name.h"
#include "tests/support/failing_metadata.h"
#include "tests/support/fake_runtime.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// How a failing test shows a name.
inline void PrintTo(const RuntimeName& name, std::ostream* out) {
    *out << ::testing::PrintToString(std::wstring(name));
}

} // namespace corvane

namespace corvane::testing {

class FakeMethod final : public RunningRuntime {
public:
    static constexpr FunctionID kFunction = 0xF1;
    static constexpr AssemblyID kAssembly = 0xA1;
    static constexpr ModuleID kModule = 0xB1;
    static constexpr ClassID kClass = 0xC1;
    static constexpr ThreadID kThread = 0xD1;
    static constexpr mdMethodDef kMethodToken = 0x06000007;
    static constexpr mdTypeDef kTypeToken = 0x02000003;
    static constexpr mdAssembly kAssemblyToken = 0x20000001;

    std::wstring assembly_name = L"Shop";
    std::wstring module_name = L"C:\\shop\\Shop.dll";
    std::wstring type_name = L"Shop.Orders";
    std::wstring method_name = L"Place";
    std::vector<std::uint8_t> signature = {0x20, 0x00, 0x01}; // an instance method: void M()

    // What GetFunctionInfo gives; the metadata is asked for with kMethodToken.
    mdMethodDef function_token = kMethodToken;

    struct Attribute {
        mdToken owner;
        std::wstring_view name;
    };
    std::vector<Attribute> attributes;

    // Names of the types of its module, in the order of the metadata: the rows that are valid. With
    // `type_defs`, the method's own type has to be among them.
    std::vector<std::wstring> type_defs;
    std::vector<std::wstring> type_refs;

    bool has_info3 = false; // and with it what GetModuleInfo2 gives
    bool has_info4 = false;
    DWORD module_flags = COR_PRF_MODULE_DISK;

    // Answers other than S_OK, by the number of the call. A failing one gives nothing besides.
    std::map<std::size_t, HRESULT> results;
    // The call that always fails, by the beginning of its line.
    std::string failing = "-";

    // Comes with every call, before its answer.
    std::function<void()> on_call = [] {};

    // Without, a function's metadata is asked for successfully and not given.
    bool has_metadata = true;

    ULONG references = 1; // the test's own, here and below
    ULONG metadata_references = 1;

    // So that the next method can be asked for.
    void forget_calls() {
        calls.clear();
        next_ = 0;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool answered = iid == __uuidof(IUnknown) || iid == __uuidof(ICorProfilerInfo) ||
                              iid == __uuidof(ICorProfilerInfo2) ||
                              (has_info3 && iid == __uuidof(ICorProfilerInfo3)) ||
                              (has_info4 && iid == __uuidof(ICorProfilerInfo4));
        *object = answered ? static_cast<ICorProfilerInfo4*>(this) : nullptr;
        references += answered ? 1 : 0;
        return answered ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE SetEventMask(DWORD) override { return S_OK; }

    HRESULT STDMETHODCALLTYPE GetTokenAndMetaDataFromFunction(FunctionID function, REFIID iid,
                                                              IUnknown** metadata,
                                                              mdToken* token) override {
        const HRESULT hr =
            answer("GetTokenAndMetaDataFromFunction(%s, %s)", hex(function), interface_name(iid));
        if (SUCCEEDED(hr) && has_metadata) {
            ++metadata_references;
            *metadata = static_cast<IMetaDataImport*>(&metadata_);
            *token = kMethodToken;
        }
        return hr;
    }

    HRESULT STDMETHODCALLTYPE GetFunctionInfo(FunctionID function, ClassID* class_id,
                                              ModuleID* module, mdToken* token) override {
        const HRESULT hr = answer("GetFunctionInfo(%s)", hex(function));
        if (SUCCEEDED(hr)) {
            *class_id = kClass;
            *module = kModule;
            *token = function_token;
        }
        return hr;
    }

    HRESULT STDMETHODCALLTYPE GetModuleInfo(ModuleID module, LPCBYTE* base, ULONG capacity,
                                            ULONG* length, WCHAR* name,
                                            AssemblyID* assembly) override {
        const HRESULT hr = answer("GetModuleInfo(%s, %s)%s%s", hex(module), buffer(name, capacity),
                                  asked(base, " base"), asked(assembly, " assembly"));
        if (SUCCEEDED(hr)) {
            give_name(module_name, capacity, length, name);
            if (assembly != nullptr) {
                *assembly = kAssembly;
            }
        }
        return hr;
    }

    HRESULT STDMETHODCALLTYPE GetModuleInfo2(ModuleID module, LPCBYTE*, ULONG, ULONG*, WCHAR*,
                                             AssemblyID*, DWORD* flags) override {
        const HRESULT hr = answer("GetModuleInfo2(%s)", hex(module));
        if (SUCCEEDED(hr)) {
            *flags = module_flags;
        }
        return hr;
    }

    HRESULT STDMETHODCALLTYPE GetAssemblyInfo(AssemblyID assembly, ULONG capacity, ULONG* length,
                                              WCHAR* name, AppDomainID* app_domain,
                                              ModuleID* module) override {
        const HRESULT hr =
            answer("GetAssemblyInfo(%s, %s)%s%s", hex(assembly), buffer(name, capacity),
                   asked(app_domain, " app domain"), asked(module, " module"));
        if (SUCCEEDED(hr)) {
            give_name(assembly_name, capacity, length, name);
        }
        return hr;
    }

    HRESULT STDMETHODCALLTYPE GetModuleMetaData(ModuleID module, DWORD flags, REFIID iid,
                                                IUnknown** metadata) override {
        const HRESULT hr = answer("GetModuleMetaData(%s, flags %s, %s)", hex(module), hex(flags),
                                  interface_name(iid));
        if (iid != __uuidof(IMetaDataImport)) {
            return E_NOINTERFACE; // nothing is written here
        }
        if (SUCCEEDED(hr)) {
            ++metadata_references;
            *metadata = static_cast<IMetaDataImport*>(&metadata_);
        }
        return hr;
    }

    HRESULT STDMETHODCALLTYPE GetCurrentThreadID(ThreadID* thread) override {
        const HRESULT hr = answer("GetCurrentThreadID()");
        if (SUCCEEDED(hr)) {
            *thread = kThread;
        }
        return hr;
    }

private:
    // A piece of a line, in its own memory.
    struct Text {
        char text[24] = {};
    };
    static Text hex(unsigned long long value) {
        Text text;
        std::snprintf(text.text, sizeof(text.text), "%llX", value);
        return text;
    }
    static Text buffer(const void* memory, ULONG capacity) {
        Text text;
        std::snprintf(text.text, sizeof(text.text), "%s of %lu",
                      memory != nullptr ? "buffer" : "none", capacity);
        return text;
    }
    static Text asked(const void* place, const char* what) {
        Text text;
        std::snprintf(text.text, sizeof(text.text), "%s", place != nullptr ? what : "");
        return text;
    }
    static Text interface_name(REFIID iid) {
        return asked(&iid, iid == __uuidof(IMetaDataImport)           ? "IMetaDataImport"
                           : iid == __uuidof(IMetaDataAssemblyImport) ? "IMetaDataAssemblyImport"
                                                                      : "another");
    }

    template <class... Texts>
    HRESULT answer(const char* format, const Texts&... texts) {
        on_call();
        if (writes_down) {
            char line[200] = {};
            std::snprintf(line, sizeof(line), format, texts.text...);
            calls.emplace_back(line);
            if (calls.back().starts_with(failing)) {
                return E_ACCESSDENIED;
            }
        }
        const auto found = results.find(next_++);
        return found != results.end() ? found->second : S_OK;
    }

    class Metadata final : public FailingMetadata {
    public:
        explicit Metadata(FakeMethod& method) : method_(method) {}

        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
            const HRESULT hr = method_.answer("QueryInterface(%s)", interface_name(iid));
            if (SUCCEEDED(hr)) {
                *object = static_cast<IMetaDataAssemblyImport*>(this);
                AddRef();
            }
            return hr;
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return ++method_.metadata_references; }
        ULONG STDMETHODCALLTYPE Release() override {
            const ULONG left = --method_.metadata_references;
            if (left == 1 && method_.writes_down) {
                method_.calls.emplace_back("(metadata released)");
            }
            return left;
        }

        HRESULT STDMETHODCALLTYPE GetMethodProps(mdMethodDef token, mdTypeDef* type, LPWSTR name,
                                                 ULONG capacity, ULONG* length, DWORD* flags,
                                                 PCCOR_SIGNATURE* signature, ULONG* signature_size,
                                                 ULONG* address, DWORD* implementation) override {
            const HRESULT hr = method_.answer(
                "GetMethodProps(%s, %s)%s%s%s%s%s%s", hex(token), buffer(name, capacity),
                asked(type, " class"), asked(flags, " flags"), asked(signature, " signature"),
                asked(signature_size, " size"), asked(address, " address"),
                asked(implementation, " implementation"));
            if (SUCCEEDED(hr)) {
                *type = kTypeToken;
                *flags = mdPublic;
                give_name(method_.method_name, capacity, length, name);
                if (signature != nullptr) {
                    *signature = method_.signature.data();
                    *signature_size = static_cast<ULONG>(method_.signature.size());
                }
            }
            return hr;
        }

        HRESULT STDMETHODCALLTYPE GetTypeDefProps(mdTypeDef token, LPWSTR name, ULONG capacity,
                                                  ULONG* length, DWORD* flags,
                                                  mdToken* base) override {
            const HRESULT hr =
                method_.answer("GetTypeDefProps(%s, %s)%s%s", hex(token), buffer(name, capacity),
                               asked(flags, " flags"), asked(base, " base"));
            if (SUCCEEDED(hr)) {
                const std::wstring* const row = row_of(token, mdtTypeDef, method_.type_defs);
                give_name(row != nullptr ? *row : method_.type_name, capacity, length, name);
            }
            return hr;
        }

        HRESULT STDMETHODCALLTYPE GetTypeRefProps(mdTypeRef token, mdToken*, LPWSTR name,
                                                  ULONG capacity, ULONG* length) override {
            const HRESULT hr =
                method_.answer("GetTypeRefProps(%s, %s)", hex(token), buffer(name, capacity));
            if (SUCCEEDED(hr)) {
                give_name(*row_of(token, mdtTypeRef, method_.type_refs), capacity, length, name);
            }
            return hr;
        }

        BOOL STDMETHODCALLTYPE IsValidToken(mdToken token) override {
            return row_of(token, mdtTypeDef, method_.type_defs) != nullptr ||
                   row_of(token, mdtTypeRef, method_.type_refs) != nullptr;
        }

        HRESULT STDMETHODCALLTYPE GetCustomAttributeByName(mdToken owner, LPCWSTR name,
                                                           const void** data,
                                                           ULONG* size) override {
            struct {
                char text[80] = {};
            } narrow;
            std::snprintf(narrow.text, sizeof(narrow.text), "%ls", name);
            const HRESULT hr = method_.answer("GetCustomAttributeByName(%s, %s)%s%s", hex(owner),
                                              narrow, asked(data, " data"), asked(size, " size"));
            if (hr != S_OK) {
                return hr;
            }
            for (const Attribute& attribute : method_.attributes) {
                if (attribute.owner == owner && attribute.name == name) {
                    return S_OK;
                }
            }
            return S_FALSE;
        }

        HRESULT STDMETHODCALLTYPE GetAssemblyFromScope(mdAssembly* assembly) override {
            const HRESULT hr = method_.answer("GetAssemblyFromScope()");
            if (SUCCEEDED(hr)) {
                *assembly = kAssemblyToken;
            }
            return hr;
        }

    private:
        static const std::wstring* row_of(mdToken token, mdToken table,
                                          const std::vector<std::wstring>& names) {
            return token > table && token - table <= names.size() ? &names[token - table - 1]
                                                                  : nullptr;
        }

        FakeMethod& method_;
    };

    std::size_t next_ = 0;
    Metadata metadata_{*this};
};

} // namespace corvane::testing
