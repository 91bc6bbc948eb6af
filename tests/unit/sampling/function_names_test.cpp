#include "sampling/function_names.h"

#include "base/hresult_text.h"
#include "base/runtime_state.h"
#include "sampling/known_functions.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_method.h"
#include "tests/support/patched_import.h"
#include "tests/support/raised.h"

#include <gmock/gmock.h>

#include <process.h>

#include <atomic>
#include <cstddef>
#include <limits>
#include <memory>
#include <thread>

namespace corvane {
namespace {

using testing::FakeMethod;
using testing::kNoThread;
using testing::PatchedImport;
using testing::raised_by;

static_assert(offsetof(FunctionNameRecord, functionId) == 0);
static_assert(offsetof(FunctionNameRecord, typeName) == 8);
static_assert(offsetof(FunctionNameRecord, methodName) == 16);

// Asks for names and owns the result.
class Names {
public:
    explicit Names(std::vector<double> ids) : ids_(std::move(ids)) {
        for (const double& id : ids_) {
            pointers_.push_back(&id);
        }
    }
    Names(const Names&) = delete;
    Names& operator=(const Names&) = delete;
    ~Names() {
        if (records != nullptr) {
            std::destroy_n(records, ids_.size());
            ::operator delete(records);
        }
    }

    std::int32_t get() {
        return GetFunctionNames(pointers_.data(), static_cast<std::int32_t>(ids_.size()), &records);
    }

    FunctionNameRecord* records = nullptr;

private:
    std::vector<double> ids_;
    std::vector<const double*> pointers_;
};

void expect_names(const FunctionNameRecord& record, const wchar_t* type, const wchar_t* method) {
    EXPECT_STREQ(record.typeName.get(), type);
    EXPECT_STREQ(record.methodName.get(), method);
}

constexpr ModuleID kModule = 0xB1;

class FunctionNamesTest : public ::testing::Test {
protected:
    FunctionNamesTest() {
        profilerInfo2 = ComPtr<ICorProfilerInfo2>(&runtime);
        know({1, 2, 0xF1});
    }
    ~FunctionNamesTest() override {
        EXPECT_EQ(runtime.metadata_references, 1U);
        profilerInfo2.reset();
        EXPECT_EQ(runtime.references, 1U);
        forget_functions_of(kModule); // and, with one that was to stay, everything
    }

    // Functions that a walk has met.
    static void know(const std::vector<FunctionID>& functions) {
        note_walked_functions(begin_walk(), functions);
    }

    FakeMethod runtime;
};

// --- Arguments

TEST_F(FunctionNamesTest, RefusesNullInEveryPosition) {
    const double id = 1;
    const double* const ids[] = {&id};
    FunctionNameRecord untouched;
    FunctionNameRecord* records = &untouched;
    EXPECT_EQ(GetFunctionNames(nullptr, 1, &records), 1);
    EXPECT_EQ(records, &untouched);
    EXPECT_EQ(GetFunctionNames(ids, 1, nullptr), 1);
    EXPECT_EQ(GetFunctionNames(nullptr, 1, nullptr), 1);
    EXPECT_TRUE(runtime.calls.empty());
}

TEST_F(FunctionNamesTest, GivesAnEmptyArrayForNoIds) {
    Names names({});
    const double* const none = nullptr;
    EXPECT_EQ(GetFunctionNames(&none, 0, &names.records), 0);
    EXPECT_NE(names.records, nullptr);
    EXPECT_TRUE(runtime.calls.empty());
}

TEST_F(FunctionNamesTest, RaisesThatThereIsNoMemoryForANegativeCount) {
    const double* const none = nullptr;
    for (const std::int32_t count : {-1, std::numeric_limits<std::int32_t>::min()}) {
        FunctionNameRecord untouched;
        FunctionNameRecord* records = &untouched;
        EXPECT_EQ(raised_by([&] { GetFunctionNames(&none, count, &records); }), E_OUTOFMEMORY);
        EXPECT_EQ(records, nullptr);
    }
    EXPECT_TRUE(runtime.calls.empty());
}

// --- What is given

TEST_F(FunctionNamesTest, NamesAFunction) {
    Names names({0xF1});
    EXPECT_EQ(names.get(), 0);
    EXPECT_EQ(names.records[0].functionId, 0xF1);
    expect_names(names.records[0], L"Shop.Orders", L"Place");
    EXPECT_EQ(SysStringLen(names.records[0].typeName.get()), 11U);
    EXPECT_EQ(SysStringLen(names.records[0].methodName.get()), 5U);
    EXPECT_EQ(runtime.calls, (std::vector<std::string>{
                                 "GetTokenAndMetaDataFromFunction(F1, IMetaDataImport)",
                                 "GetMethodProps(6000007, none of 0) class flags",
                                 "GetMethodProps(6000007, buffer of 6) class flags signature size",
                                 "GetTypeDefProps(2000003, none of 0)",
                                 "GetTypeDefProps(2000003, buffer of 12)", "(metadata released)"}));
}

TEST_F(FunctionNamesTest, KeepsTheOrderAndAsksAgainEachTime) {
    Names names({2, 1, 2});
    EXPECT_EQ(names.get(), 0);
    EXPECT_EQ(runtime.calls.size(), 18U);
    for (const auto& [i, id] : {std::pair(0, 2), std::pair(1, 1), std::pair(2, 2)}) {
        EXPECT_EQ(names.records[i].functionId, id);
        expect_names(names.records[i], L"Shop.Orders", L"Place");
        EXPECT_EQ(runtime.calls[static_cast<std::size_t>(6 * i)],
                  "GetTokenAndMetaDataFromFunction(" + std::to_string(id) + ", IMetaDataImport)");
    }
    EXPECT_NE(names.records[0].typeName.get(), names.records[2].typeName.get());
}

TEST_F(FunctionNamesTest, GivesLongAndEmptyNames) {
    runtime.type_name.assign(5000, L't');
    runtime.method_name = L"";
    Names names({1});
    EXPECT_EQ(names.get(), 0);
    expect_names(names.records[0], runtime.type_name.c_str(), L"");
}

// An id travels as a double.
TEST_F(FunctionNamesTest, TurnsIdsBackIntoUnsignedNumbers) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    know({FunctionID(1) << 53, FunctionID(1) << 63, 0xFFFFFFFFFFFFF800});
    Names names({1.9, 0x1p53 + 1, 0x1p63, 0x1.fffffffffffffp63, 0x1p64, -1, nan, -0.0});
    EXPECT_EQ(names.get(), 0);
    const char* const asked[] = {"1", "20000000000000", "8000000000000000", "FFFFFFFFFFFFF800"};
    EXPECT_EQ(runtime.calls.size(), 6 * std::size(asked)); // what is no id is not asked for
    for (std::size_t i = 0; i < std::size(asked); ++i) {
        EXPECT_EQ(runtime.calls[6 * i], std::string("GetTokenAndMetaDataFromFunction(") + asked[i] +
                                            ", IMetaDataImport)");
    }
    EXPECT_EQ(names.records[5].functionId, -1);
}

// The runtime ends the process when it is asked about one.
TEST_F(FunctionNamesTest, AsksNothingAboutANumberThatTheRuntimeHasNotReported) {
    const std::wstring line =
        std::wstring(L"CClrProfiler::Thread_Function_Names_App().GetTokenAndMetaDataFromFunction() "
                     L"did not return S_OK ") +
        hresult_text(E_INVALIDARG).c_str();
    for (const double id : {0.0, 3.0, 4096.0, 1e6, -1.0}) {
        const testing::DebugOutput output;
        default_log = DebugLog(L"", 4);
        Names names({id});
        EXPECT_EQ(names.get(), 0);
        default_log = DebugLog();
        EXPECT_EQ(names.records[0].functionId, id);
        expect_names(names.records[0], nullptr, nullptr);
        // Written by the worker, whose id comes first.
        const std::wstring written = output.raw();
        EXPECT_EQ(written.substr(written.find(L' ') + 1), line);
    }
    EXPECT_TRUE(runtime.calls.empty());
}

TEST_F(FunctionNamesTest, AsksNothingAboutFunctionsOfAModuleThatIsGone) {
    note_collectible_module(0xB2);
    note_walked_functions(begin_walk(), std::vector<FunctionID>{0x40});
    Names before({0x40});
    EXPECT_EQ(before.get(), 0);
    expect_names(before.records[0], L"Shop.Orders", L"Place");
    forget_functions_of(0xB2);
    runtime.forget_calls();
    Names after({0x40, 1});
    EXPECT_EQ(after.get(), 0);
    expect_names(after.records[0], nullptr, nullptr);
    expect_names(after.records[1], L"Shop.Orders", L"Place");
    EXPECT_EQ(runtime.calls.size(), 6U);
}

// --- Failures

struct FailureRow {
    std::size_t call; // of one function
    const wchar_t* name;
    std::size_t calls; // that are made, the release included
};

const FailureRow kFailureRows[] = {
    {0, L"GetTokenAndMetaDataFromFunction", 1},
    {1, L"GetMethodProps", 3},
    {2, L"GetMethodProps", 4},
    {3, L"GetTypeDefProps", 5},
    {4, L"GetTypeDefProps", 6},
};

class FunctionNamesFailure : public FunctionNamesTest,
                             public ::testing::WithParamInterface<FailureRow> {};
INSTANTIATE_TEST_SUITE_P(Calls, FunctionNamesFailure, ::testing::ValuesIn(kFailureRows),
                         [](const auto& row) {
                             std::string name = "Call";
                             return name + std::to_string(row.param.call);
                         });

TEST_P(FunctionNamesFailure, LeavesTheNamesNullAndGoesOn) {
    runtime.results = {{GetParam().call, E_FAIL}};
    const testing::DebugOutput output;
    default_log = DebugLog(L"", 4);
    Names names({1, 2});
    EXPECT_EQ(names.get(), 0);
    default_log = DebugLog();
    EXPECT_EQ(names.records[0].functionId, 1);
    expect_names(names.records[0], nullptr, nullptr);
    expect_names(names.records[1], L"Shop.Orders", L"Place");
    EXPECT_EQ(runtime.calls.size(), GetParam().calls + 6);

    // Written by the worker, whose id comes first.
    const std::wstring line = output.raw();
    const std::size_t blank = line.find(L' ');
    EXPECT_NE(line.substr(0, blank), std::to_wstring(GetCurrentThreadId()));
    EXPECT_EQ(line.substr(blank + 1), std::wstring(L"CClrProfiler::Thread_Function_Names_App().") +
                                          GetParam().name + L"() did not return S_OK " +
                                          hresult_text(E_FAIL).c_str());
}

int messages_looked_up = 0;
DWORD WINAPI count_messages(DWORD, LPCVOID, DWORD, DWORD, LPWSTR, DWORD, va_list*) {
    ++messages_looked_up;
    return 0;
}

TEST_P(FunctionNamesFailure, MakesNoLineThatIsNotWritten) {
    runtime.results = {{GetParam().call, E_FAIL}};
    messages_looked_up = 0;
    const PatchedImport patch("FormatMessageW", &count_messages);
    const testing::DebugOutput output;
    Names names({1});
    EXPECT_EQ(names.get(), 0);
    expect_names(names.records[0], nullptr, nullptr);
    EXPECT_EQ(output.raw(), L"");
    EXPECT_EQ(messages_looked_up, 0);
}

TEST_P(FunctionNamesFailure, IsNoneWhenTheCallSucceedsInAnotherWay) {
    runtime.results = {{GetParam().call, S_FALSE}};
    Names names({1});
    EXPECT_EQ(names.get(), 0);
    expect_names(names.records[0], L"Shop.Orders", L"Place");
}

TEST_F(FunctionNamesTest, LeavesTheNamesNullWithoutARuntime) {
    profilerInfo2.reset();
    Names names({1});
    EXPECT_EQ(names.get(), 0);
    expect_names(names.records[0], nullptr, nullptr);
}

// --- Errors that are raised

std::uintptr_t no_thread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) {
    return 0;
}

TEST_F(FunctionNamesTest, RaisesWhatKeepsTheWorkerFromStarting) {
    const PatchedImport patch("_beginthreadex", &no_thread);
    Names names({1});
    EXPECT_EQ(raised_by([&] { names.get(); }), kNoThread);
    EXPECT_EQ(names.records, nullptr);
}

// Strings made and not freed, and how many more may be made.
struct Strings {
    std::atomic<int> alive = 0;
    std::atomic<int> granted = std::numeric_limits<int>::max();
    decltype(SysAllocString)* make = nullptr;
    decltype(SysAllocStringByteLen)* duplicate = nullptr;
    decltype(SysFreeString)* free = nullptr;
};
Strings* strings = nullptr;

bool may_make_string() {
    const bool may = strings->granted-- > 0;
    strings->alive += may ? 1 : 0;
    return may;
}
BSTR WINAPI make_string(const OLECHAR* text) {
    return may_make_string() ? strings->make(text) : nullptr;
}
BSTR WINAPI duplicate_string(LPCSTR bytes, UINT length) {
    return may_make_string() ? strings->duplicate(bytes, length) : nullptr;
}
void WINAPI free_string(BSTR text) {
    strings->alive -= text != nullptr ? 1 : 0;
    strings->free(text);
}

// Two strings a record on the worker, then a copy of each in the result.
TEST_F(FunctionNamesTest, RaisesThatThereIsNoStringAndFreesTheOthers) {
    Strings watched;
    strings = &watched;
    const PatchedImport make("SysAllocString", &make_string);
    const PatchedImport duplicate("SysAllocStringByteLen", &duplicate_string);
    const PatchedImport free("SysFreeString", &free_string);
    watched.make = make.original();
    watched.duplicate = duplicate.original();
    watched.free = free.original();
    for (int granted = 0; granted <= 8; ++granted) {
        watched.granted = granted;
        {
            Names names({1, 2});
            EXPECT_EQ(raised_by([&] { names.get(); }), granted < 8 ? E_OUTOFMEMORY : S_OK)
                << granted;
            EXPECT_EQ(names.records == nullptr, granted < 8);
            EXPECT_EQ(watched.alive, granted < 8 ? 0 : 4);
        }
        EXPECT_EQ(watched.alive, 0);
        EXPECT_EQ(runtime.metadata_references, 1U);
    }
    strings = nullptr;
}

TEST_F(FunctionNamesTest, RaisesThatThereIsNoMemory) {
    runtime.writes_down = false;
    std::size_t granted = 0;
    for (bool has_failed = true; has_failed; ++granted) {
        Names names({1, 2});
        HRESULT result = S_OK;
        {
            const testing::FailingAllocation failing(granted);
            result = raised_by([&] { EXPECT_EQ(names.get(), 0); });
            has_failed = testing::FailingAllocation::has_come();
        }
        EXPECT_EQ(result, has_failed ? E_OUTOFMEMORY : S_OK);
        EXPECT_EQ(names.records == nullptr, has_failed);
        EXPECT_EQ(runtime.metadata_references, 1U);
    }
    EXPECT_GT(granted, 3U);
}

} // namespace
} // namespace corvane
