#include "selection/method_info.h"

#include "base/hresult_text.h"
#include "base/log_output.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_method.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {
namespace {

using testing::DebugOutput;
using testing::FakeMethod;

constexpr wchar_t kTrace[] = L"Corvane.Instrumentation.TraceAttribute";
constexpr wchar_t kTransparent[] = L"System.Security.SecurityTransparentAttribute";
constexpr char kReleased[] = "(metadata released)";

// All that a whole description asks of the runtime, in order, for the names of FakeMethod.
const std::vector<std::string> kAllCalls = {
    "GetTokenAndMetaDataFromFunction(F1, IMetaDataImport)",
    "GetMethodProps(6000007, none of 0) class flags",
    "GetMethodProps(6000007, buffer of 6) class flags signature size",
    "GetCustomAttributeByName(6000007, Corvane.Instrumentation.TraceAttribute)",
    "GetCustomAttributeByName(6000007, System.Security.SecurityTransparentAttribute)",
    "GetTypeDefProps(2000003, none of 0)",
    "GetTypeDefProps(2000003, buffer of 12)",
    "GetFunctionInfo(F1)",
    kReleased,
    "GetModuleInfo(B1, none of 0)",
    "GetModuleInfo(B1, buffer of 17) assembly",
    "GetAssemblyInfo(A1, none of 0)",
    "GetAssemblyInfo(A1, buffer of 5)",
    "GetModuleMetaData(B1, flags 1, IMetaDataImport)",
    "QueryInterface(IMetaDataAssemblyImport)",
    "GetAssemblyFromScope()",
    "GetCustomAttributeByName(20000001, System.Security.SecurityTransparentAttribute)",
    kReleased,
    "GetCurrentThreadID()",
};

// The numbers that FakeMethod gives these calls.
enum Call : std::size_t {
    kMetadataOfFunction,
    kMethodNameLength,
    kMethodProps,
    kTraceAttribute,
    kTransparentAttribute,
    kTypeNameLength,
    kTypeProps,
    kFunctionInfo,
    kModuleNameLength,
    kModuleInfo,
    kAssemblyNameLength,
    kAssemblyName,
    kModuleMetadata,
    kAssemblyMetadata,
    kAssemblyToken,
    kAssemblyAttribute,
    kThreadId,
    kCalls,
};

class MethodInfo : public ::testing::Test {
protected:
    ~MethodInfo() override {
        EXPECT_EQ(runtime.references, 1U);
        EXPECT_EQ(runtime.metadata_references, 1U);
    }

    HRESULT get_info() { return method.get_info(&runtime, FakeMethod::kFunction); }

    // What the channel wrote for these messages, all with the text of one result.
    static std::wstring lines(std::initializer_list<const wchar_t*> messages, HRESULT hr) {
        std::wstring text;
        for (const wchar_t* const message : messages) {
            text += std::wstring(L"[]method_info:() : ") + message + L" (" +
                    hresult_text(hr).c_str() + L")\n";
        }
        return text;
    }

    DebugOutput output;
    FakeMethod runtime;
    method_info method;
};

TEST_F(MethodInfo, IsEmptyAtFirst) {
    EXPECT_EQ(method.assembly_id, 0U);
    EXPECT_EQ(method.assembly_name, L"");
    EXPECT_EQ(method.module_id, 0U);
    EXPECT_EQ(method.module_name, L"");
    EXPECT_EQ(method.class_id, 0U);
    EXPECT_EQ(method.type_name, L"");
    EXPECT_EQ(method.method_name, L"");
    EXPECT_EQ(method.method_token, 0U);
    EXPECT_EQ(method.signature, nullptr);
    EXPECT_EQ(method.signature_size, 0U);
    EXPECT_EQ(method.thread_id, 0U);
    EXPECT_FALSE(method.has_trace_attribute);
    EXPECT_FALSE(method.is_transparent);
}

TEST_F(MethodInfo, LogsUnderItsClassUpToLevelThree) {
    method.log.log(3, L"progress");
    method.log.log(4, L"detail");
    EXPECT_EQ(output.text(), L"[]method_info:() : progress\n");
}

TEST_F(MethodInfo, IsFilledByOneRoundOfQuestions) {
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_EQ(runtime.calls, kAllCalls);
    EXPECT_EQ(method.assembly_id, FakeMethod::kAssembly);
    EXPECT_EQ(method.assembly_name, L"Shop");
    EXPECT_EQ(method.module_id, FakeMethod::kModule);
    EXPECT_EQ(method.module_name, L"C:\\shop\\Shop.dll");
    EXPECT_EQ(method.class_id, FakeMethod::kClass);
    EXPECT_EQ(method.type_name, L"Shop.Orders");
    EXPECT_EQ(method.method_name, L"Place");
    EXPECT_EQ(method.method_token, FakeMethod::kMethodToken);
    EXPECT_EQ(method.signature, runtime.signature.data());
    EXPECT_EQ(method.signature_size, 3U);
    EXPECT_EQ(method.thread_id, FakeMethod::kThread);
    EXPECT_FALSE(method.has_trace_attribute); // S_FALSE is no error, and no attribute
    EXPECT_FALSE(method.is_transparent);
    EXPECT_EQ(output.text(), L"");
}

// Up to there the metadata's own token serves.
TEST_F(MethodInfo, TakesItsTokenFromTheLastCallThatGivesOne) {
    runtime.function_token = 0x06000009;
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_EQ(runtime.calls, kAllCalls);
    EXPECT_EQ(method.method_token, 0x06000009U);
}

TEST_F(MethodInfo, FindsTheTraceAttribute) {
    runtime.attributes = {{FakeMethod::kMethodToken, kTrace}};
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_EQ(runtime.calls, kAllCalls);
    EXPECT_TRUE(method.has_trace_attribute);
    EXPECT_FALSE(method.is_transparent);
}

TEST_F(MethodInfo, LooksForTheTraceAttributeOnTheMethodOnly) {
    runtime.attributes = {{FakeMethod::kTypeToken, kTrace}, {FakeMethod::kAssemblyToken, kTrace}};
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_FALSE(method.has_trace_attribute);
}

TEST_F(MethodInfo, DoesNotAskTheAssemblyOfATransparentMethod) {
    runtime.attributes = {{FakeMethod::kMethodToken, kTransparent}};
    EXPECT_EQ(get_info(), S_OK);
    std::vector<std::string> calls = kAllCalls;
    calls.erase(calls.end() - 3); // the attribute of the assembly
    EXPECT_EQ(runtime.calls, calls);
    EXPECT_TRUE(method.is_transparent);
    EXPECT_FALSE(method.has_trace_attribute);
}

TEST_F(MethodInfo, IsTransparentInATransparentAssembly) {
    runtime.attributes = {{FakeMethod::kAssemblyToken, kTransparent}};
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_EQ(runtime.calls, kAllCalls);
    EXPECT_TRUE(method.is_transparent);
    EXPECT_FALSE(method.has_trace_attribute);
}

TEST_F(MethodInfo, TakesEverySuccessButFalseForAnAttribute) {
    runtime.results = {
        {kTraceAttribute, 2}, {kTransparentAttribute, S_FALSE}, {kAssemblyAttribute, 2}};
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_TRUE(method.has_trace_attribute);
    EXPECT_TRUE(method.is_transparent);
}

TEST_F(MethodInfo, TakesTheFlagsOfTheMethodAskedForLast) {
    runtime.attributes = {{FakeMethod::kMethodToken, kTrace},
                          {FakeMethod::kMethodToken, kTransparent}};
    EXPECT_EQ(get_info(), S_OK);
    runtime.attributes = {};
    runtime.forget_calls();
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_FALSE(method.has_trace_attribute);
    EXPECT_FALSE(method.is_transparent);
}

TEST_F(MethodInfo, IsNoLongerDescribedWhenItsMetadataFails) {
    EXPECT_EQ(get_info(), S_OK);
    runtime.forget_calls();
    runtime.results = {{kMethodNameLength, E_FAIL}};
    EXPECT_EQ(get_info(), E_FAIL);
    EXPECT_EQ(method.signature, nullptr);
    EXPECT_EQ(method.signature_size, 0U);
    EXPECT_EQ(method.method_name, L"Place"); // what was filled before stays
}

// --- A failure of each single call

struct Failure {
    const char* name;
    Call call;
    std::vector<const wchar_t*> messages; // none: the description goes on
};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << failure.name;
}

constexpr const wchar_t* kNoClassMethodInfo = L"get_class_method_info() failed";
const Failure kFailures[] = {
    {"MetadataOfFunction",
     kMetadataOfFunction,
     {L"Failed to query IMetaDataImport interface", kNoClassMethodInfo}},
    {"MethodNameLength",
     kMethodNameLength,
     {L"Failed to query method properties size", kNoClassMethodInfo}},
    {"MethodProps", kMethodProps, {L"Failed to query method properties", kNoClassMethodInfo}},
    {"TraceAttribute", kTraceAttribute, {}},
    {"TransparentAttribute", kTransparentAttribute, {}},
    {"TypeNameLength",
     kTypeNameLength,
     {L"Failed to query class properties size", kNoClassMethodInfo}},
    {"TypeProps", kTypeProps, {L"Failed to query class properties", kNoClassMethodInfo}},
    {"FunctionInfo", kFunctionInfo, {L"Failed to class/module ids", kNoClassMethodInfo}},
    {"ModuleNameLength", kModuleNameLength, {L"get_module_info() failed"}},
    {"ModuleInfo", kModuleInfo, {L"get_module_info() failed"}},
    {"AssemblyNameLength", kAssemblyNameLength, {}},
    {"AssemblyName", kAssemblyName, {}},
    {"ModuleMetadata", kModuleMetadata, {L"get_assembly_info() failed"}},
    {"AssemblyMetadata", kAssemblyMetadata, {L"get_assembly_info() failed"}},
    {"AssemblyToken", kAssemblyToken, {}},
    {"AssemblyAttribute", kAssemblyAttribute, {L"get_assembly_info() failed"}},
    {"ThreadId", kThreadId, {L"get_thread_id() failed"}},
};
static_assert(std::size(kFailures) == kCalls);

class MethodInfoFailure : public MethodInfo,
                          public ::testing::WithParamInterface<std::tuple<Failure, HRESULT>> {
protected:
    static std::wstring expected_text() {
        const auto& [failure, hr] = GetParam();
        std::wstring text;
        for (const wchar_t* const message : failure.messages) {
            text += lines({message}, hr);
        }
        return text;
    }
};

INSTANTIATE_TEST_SUITE_P(
    Calls, MethodInfoFailure,
    ::testing::Combine(::testing::ValuesIn(kFailures),
                       ::testing::Values(E_FAIL, CORPROF_E_DATAINCOMPLETE, E_OUTOFMEMORY)),
    [](const auto& row) { return std::get<0>(row.param).name + std::to_string(row.index % 3); });

// The calls up to the failing one, which the metadata, if it was held, is released after.
std::vector<std::string> calls_until(Call failing) {
    std::vector<std::string> calls;
    std::size_t number = 0;
    for (const std::string& call : kAllCalls) {
        calls.push_back(call);
        if (call != kReleased && number++ == failing) {
            break;
        }
    }
    const bool holds_metadata = (failing > kMetadataOfFunction && failing <= kFunctionInfo) ||
                                (failing > kModuleMetadata && failing <= kAssemblyAttribute);
    if (holds_metadata) {
        calls.emplace_back(kReleased);
    }
    return calls;
}

TEST_P(MethodInfoFailure, IsReportedAndEndsTheDescription) {
    const auto& [failure, hr] = GetParam();
    runtime.results = {{failure.call, hr}};
    const HRESULT result = get_info();

    EXPECT_EQ(output.text(), expected_text());
    if (failure.messages.empty()) {
        EXPECT_EQ(result, S_OK);
        std::vector<std::string> calls = kAllCalls;
        if (failure.call == kAssemblyNameLength) {
            std::erase(calls, "GetAssemblyInfo(A1, buffer of 5)");
        }
        if (failure.call == kAssemblyToken) {
            *(calls.end() - 3) = "GetCustomAttributeByName(20000000, "
                                 "System.Security.SecurityTransparentAttribute)";
        }
        EXPECT_EQ(runtime.calls, calls);
    } else {
        EXPECT_EQ(result, hr);
        EXPECT_EQ(runtime.calls, calls_until(failure.call));
    }

    // Fields that were filled before the failure keep their values.
    const auto expect_from = [call = failure.call](Call filled_by, bool is_filled) {
        EXPECT_EQ(is_filled, call > filled_by) << filled_by;
    };
    const bool goes_on = failure.messages.empty();
    if (!goes_on) {
        expect_from(kMetadataOfFunction, method.method_token != 0);
        expect_from(kMethodProps, method.method_name == L"Place" && method.signature != nullptr);
        expect_from(kTypeProps, method.type_name == L"Shop.Orders");
        expect_from(kFunctionInfo, method.class_id != 0 && method.module_id != 0);
        expect_from(kModuleInfo, method.assembly_id != 0 &&
                                     std::wstring_view(method.module_name).ends_with(L"Shop.dll"));
        expect_from(kAssemblyName, method.assembly_name == L"Shop");
        expect_from(kThreadId, method.thread_id != 0);
    }
    EXPECT_FALSE(method.has_trace_attribute);
    EXPECT_FALSE(method.is_transparent);
}

TEST_P(MethodInfoFailure, IsReportedAtLevelOne) {
    const auto& [failure, hr] = GetParam();
    const std::int32_t before = log_level();
    for (const std::int32_t level : {0, 1}) {
        begin_log({.file = {}, .limit = 0, .level = level, .complaints = {}});
        runtime.forget_calls();
        runtime.results = {{failure.call, hr}};
        EXPECT_EQ(get_info(), failure.messages.empty() ? S_OK : hr);
        EXPECT_EQ(output.text(), level == 0 ? L"" : expected_text());
    }
    begin_log({.file = {}, .limit = 0, .level = before, .complaints = {}});
}

// Where only the text is missing, its length is known already.
TEST_F(MethodInfo, HasNoAssemblyNameWhenTheRuntimeTellsNone) {
    for (const Call failing : {kAssemblyNameLength, kAssemblyName}) {
        runtime.forget_calls();
        runtime.results = {{failing, E_FAIL}};
        method_info one;
        EXPECT_EQ(one.get_info(&runtime, FakeMethod::kFunction), S_OK);
        EXPECT_EQ(one.assembly_name, L"");
        EXPECT_EQ(one.thread_id, FakeMethod::kThread);
    }
    EXPECT_EQ(output.text(), L"");
}

TEST_F(MethodInfo, DoesNotNeedTheMethodsAttributes) {
    runtime.attributes = {{FakeMethod::kMethodToken, kTrace},
                          {FakeMethod::kAssemblyToken, kTransparent}};
    runtime.results = {{kTraceAttribute, E_FAIL}, {kTransparentAttribute, E_ACCESSDENIED}};
    EXPECT_EQ(get_info(), S_OK);
    EXPECT_FALSE(method.has_trace_attribute);
    EXPECT_TRUE(method.is_transparent); // the assembly's
    EXPECT_EQ(output.text(), L"");
}

// --- The steps on their own

TEST_F(MethodInfo, TellsItsModule) {
    method.module_id = FakeMethod::kModule;
    EXPECT_EQ(method.get_module_info(&runtime), S_OK);
    EXPECT_EQ(method.module_name, L"C:\\shop\\Shop.dll");
    EXPECT_EQ(method.assembly_id, FakeMethod::kAssembly);
}

TEST_F(MethodInfo, AsksForTheAttributeOfItsAssemblyLast) {
    method.assembly_id = FakeMethod::kAssembly;
    method.module_id = FakeMethod::kModule;
    EXPECT_EQ(method.get_assembly_info(&runtime), S_FALSE);
    EXPECT_EQ(method.assembly_name, L"Shop");
    method.is_transparent = true;
    EXPECT_EQ(method.get_assembly_info(&runtime), S_OK);
}

TEST_F(MethodInfo, LeavesTheReportOfAStepToTheWhole) {
    runtime.results = {{0, E_FAIL}, {1, E_FAIL}, {4, E_FAIL}};
    EXPECT_EQ(method.get_thread_id(&runtime), E_FAIL);
    EXPECT_EQ(method.get_module_info(&runtime), E_FAIL);
    EXPECT_EQ(method.get_assembly_info(&runtime), E_FAIL);
    EXPECT_EQ(output.text(), L"");
    runtime.forget_calls();
    EXPECT_EQ(method.get_class_method_info(&runtime, FakeMethod::kFunction), E_FAIL);
    EXPECT_EQ(output.text(), lines({L"Failed to query IMetaDataImport interface"}, E_FAIL));
}

// --- Names

TEST_F(MethodInfo, TakesNamesOfEveryLengthAndAllocatesForVeryLongOnesOnly) {
    runtime.writes_down = false;
    for (std::size_t length = 0; length < 1100;
         length += length < 40 || (length >= 190 && length < 194) ? 1 : 50) {
        runtime.assembly_name.assign(length, L'a');
        runtime.module_name.assign(length, L'm');
        runtime.type_name.assign(length, L't');
        runtime.method_name.assign(length, L'\u00E9');
        runtime.forget_calls();

        const std::size_t before = testing::allocations();
        method_info one;
        const HRESULT hr = one.get_info(&runtime, FakeMethod::kFunction);
        const std::size_t used = testing::allocations() - before;

        EXPECT_EQ(hr, S_OK);
        EXPECT_EQ(used, length < 192 ? 0U : 4U) << length;
        EXPECT_EQ(one.assembly_name, runtime.assembly_name);
        EXPECT_EQ(one.module_name, runtime.module_name);
        EXPECT_EQ(one.type_name, runtime.type_name);
        EXPECT_EQ(one.method_name, runtime.method_name);
        EXPECT_EQ(one.type_name.c_str()[length], L'\0');
    }
}

// Expects the names that FakeMethod gives.
void expect_named(const method_info& method) {
    EXPECT_EQ(method.assembly_name, L"Shop");
    EXPECT_EQ(method.module_name, L"C:\\shop\\Shop.dll");
    EXPECT_EQ(method.type_name, L"Shop.Orders");
    EXPECT_EQ(method.method_name, L"Place");
}

TEST_F(MethodInfo, IsCopiedWithItsNamesAndSharesTheSignature) {
    auto original = std::make_unique<method_info>();
    EXPECT_EQ(original->get_info(&runtime, FakeMethod::kFunction), S_OK);
    const method_info copy = *original;
    method_info assigned;
    assigned = *original;
    EXPECT_EQ(copy.signature, original->signature);
    EXPECT_EQ(copy.method_token, FakeMethod::kMethodToken);
    original->type_name.resize(3);
    original.reset();
    expect_named(copy);
    expect_named(assigned);
    copy.log.log(1, L"copy");
    EXPECT_EQ(output.text(), L"[]method_info:() : copy\n");
}

} // namespace
} // namespace corvane
