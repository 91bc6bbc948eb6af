// ScratchModuleTest: one method in a module of the runtime's own metadata engine, given to the
// entry of IL rewriting.
#pragma once

#include "base/hresult_text.h"
#include "rewrite/method_instrumenter.h"
#include "rewrite/rewrite_settings.h"
#include "selection/method_outcomes.h"
#include "tests/support/debug_output.h"
#include "tests/support/real_methods.h"
#include "tests/support/scratch_module.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace corvane::testing {

class ScratchModuleTest : public ::testing::Test {
protected:
    void SetUp() override {
        // One engine for all tests: it stays loaded.
        static const ComPtr<IMetaDataDispenserEx> engine = [] {
            const auto folder = newest_runtime_folder();
            return folder ? metadata_dispenser(*folder) : ComPtr<IMetaDataDispenserEx>();
        }();
        if (!engine) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
        }
        module = std::make_unique<ScratchModule>(*engine.get());
        corlib = module->assembly_ref(L"System.Runtime");
        type = module->type_def(L"Shop.Orders", module->type_ref(corlib, L"System.Object"));
        instrumentation_index = 0;
        strict_il = false;
    }
    void TearDown() override {
        strict_il = false;
        if (module) {
            EXPECT_EQ(module->held_references(), 0);
            EXPECT_EQ(module->open_enumerations, 0);
        }
    }

    // So many type references that the next one takes two bytes in a signature, as in all but the
    // smallest modules.
    void fill_type_refs(std::size_t count = 40) {
        for (std::size_t i = 0; i < count; ++i) {
            module->type_ref(corlib, L"Filler.Type" + std::to_wstring(i));
        }
    }

    mdMethodDef add(const std::wstring& name, const Bytes& signature, const Bytes& body) {
        return add(type, name, signature, body);
    }
    mdMethodDef add(mdTypeDef owner, const std::wstring& name, const Bytes& signature,
                    const Bytes& body) {
        const mdMethodDef method = module->method_def(owner, name, signature);
        module->bodies[method] = body;
        return method;
    }

    // A small body without locals and clauses.
    static Bytes tiny(Bytes code) {
        EXPECT_LT(code.size(), 64U);
        code.insert(code.begin(), static_cast<std::uint8_t>(code.size() << 2 | 2));
        return code;
    }

    // As if for the first time: one that was left before is not passed over.
    HRESULT instrument(mdMethodDef token,
                       InstrumentationMode mode = InstrumentationMode::kAttribute) {
        forget_method_outcomes();
        return compile(token, mode);
    }
    // `reading` is the context's own interface, where it is another object than the callback's.
    HRESULT compile(mdMethodDef token, InstrumentationMode mode = InstrumentationMode::kAttribute,
                    ICorProfilerInfo* reading = nullptr) {
        module->metadata_calls.clear();
        method_info method;
        describe(token, method);
        RewriteContext context{reading != nullptr ? reading : module.get(), method,
                               DebugLog(L"[tag] ")};
        return RewriteMethod(context, module.get(), method, mode);
    }

    // What was logged, without what each instrumented method has: the walk over the type
    // references, the dump of its body and its number.
    std::vector<std::wstring> log() const {
        std::vector<std::wstring> lines;
        std::wistringstream text(output.text());
        for (std::wstring line; std::getline(text, line);) {
            if (line.starts_with(L"[tag] ") && !line.starts_with(L"[tag] TRAVERSING TYPE") &&
                !line.starts_with(L"[tag] =====") && !line.starts_with(L"[tag] Instrumented, ")) {
                lines.push_back(line.substr(6));
            }
        }
        return lines;
    }

    std::unique_ptr<ScratchModule> module;
    mdAssemblyRef corlib = mdAssemblyRefNil;
    mdTypeDef type = mdTypeDefNil;
    std::wstring module_name = L"Z:\\nowhere\\Shop.dll";
    DebugOutput output;

private:
    void describe(mdMethodDef token, method_info& method) const {
        mdTypeDef owner = mdTypeDefNil;
        std::array<wchar_t, 100> name{};
        ULONG length = 0;
        ASSERT_EQ(module->import().GetMethodProps(token, &owner, name.data(), 100, &length, nullptr,
                                                  &method.signature, &method.signature_size,
                                                  nullptr, nullptr),
                  S_OK);
        std::copy_n(name.data(), length, method.method_name.resize(length));
        ASSERT_EQ(
            module->import().GetTypeDefProps(owner, name.data(), 100, &length, nullptr, nullptr),
            S_OK);
        std::copy_n(name.data(), length, method.type_name.resize(length));
        method.module_id = ScratchModule::kModule;
        method.method_token = token;
        std::copy_n(module_name.c_str(), module_name.size() + 1,
                    method.module_name.resize(static_cast<ULONG>(module_name.size() + 1)));
    }
};

} // namespace corvane::testing
