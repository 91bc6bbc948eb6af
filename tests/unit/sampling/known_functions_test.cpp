#include "sampling/known_functions.h"

#include "tests/support/allocations.h"
#include "tests/support/fake_runtime.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

namespace corvane {
namespace {

// --- The set

TEST(FunctionSet, HoldsWhatWasInserted) {
    FunctionSet set;
    std::set<FunctionID> expected;
    EXPECT_FALSE(set.contains(0));
    EXPECT_FALSE(set.contains(1));
    set.insert(0);
    EXPECT_FALSE(set.contains(0));
    for (FunctionID i = 1; i <= 3000; ++i) {
        const FunctionID function = (i % 3 == 0 ? 0x7FF800000000 : 0x18000) + 8 * (i % 1000);
        set.insert(function);
        expected.insert(function);
        EXPECT_TRUE(set.contains(function));
        EXPECT_FALSE(set.contains(function + 1));
    }
    for (const FunctionID function : expected) {
        EXPECT_TRUE(set.contains(function));
    }
    set.clear();
    EXPECT_FALSE(set.contains(*expected.begin()));
    EXPECT_EQ(set.bytes(), 0U);
    set.insert(~FunctionID(0));
    EXPECT_TRUE(set.contains(~FunctionID(0)));
}

// What the documentation says it takes.
TEST(FunctionSet, TakesTwoMebibytesForAHundredThousand) {
    FunctionSet set;
    for (FunctionID i = 1; i <= 100'000; ++i) {
        set.insert(0x7FF800000000 + 40 * i);
    }
    EXPECT_EQ(set.bytes(), std::size_t(2) << 20);
}

TEST(FunctionSet, HoldsWhatItHeldWithoutMemoryForMore) {
    FunctionSet set;
    for (FunctionID i = 1; i <= 6; ++i) {
        set.insert(i);
    }
    {
        const testing::FailingAllocation failing(0);
        EXPECT_THROW(set.insert(7), std::bad_alloc);
    }
    EXPECT_FALSE(set.contains(7));
    EXPECT_TRUE(set.contains(6));
    set.insert(7);
    EXPECT_TRUE(set.contains(7));
}

// --- What is known

// A runtime that tells of what a function is.
class Describing final : public testing::FailingRuntime {
public:
    struct Function {
        ModuleID module = 0;
        ClassID type = 1;
        ULONG32 arguments = 0;
        HRESULT result = S_OK;
    };
    Function function;
    ULONG32 class_arguments = 0;
    HRESULT class_result = S_OK;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE GetFunctionInfo2(FunctionID, COR_PRF_FRAME_INFO, ClassID* type,
                                               ModuleID* module, mdToken*, ULONG32,
                                               ULONG32* arguments, ClassID*) override {
        calls.emplace_back("GetFunctionInfo2");
        *type = function.type;
        *module = function.module;
        *arguments = function.arguments;
        return function.result;
    }
    HRESULT STDMETHODCALLTYPE GetClassIDInfo2(ClassID, ModuleID*, mdTypeDef*, ClassID*, ULONG32,
                                              ULONG32* arguments, ClassID*) override {
        calls.emplace_back("GetClassIDInfo2");
        *arguments = class_arguments;
        return class_result;
    }
};

bool is_known(FunctionID function) {
    return static_cast<bool>(KnownFunction(function));
}

constexpr ModuleID kOrdinary = 0xB1;
constexpr ModuleID kOne = 0xB2;
constexpr ModuleID kOther = 0xB3;

class KnownFunctions : public ::testing::Test {
protected:
    ~KnownFunctions() override {
        // An ordinary module that goes takes everything with it.
        for (const ModuleID module : {kOne, kOther, kOrdinary}) {
            forget_functions_of(module);
        }
    }

    void note_in(ModuleID module, FunctionID function) {
        runtime.function.module = module;
        note_function(&runtime, function);
    }

    Describing runtime;
};

TEST_F(KnownFunctions, AreThoseThatWereReported) {
    EXPECT_FALSE(is_known(0));
    EXPECT_FALSE(is_known(0x10));
    note_function(&runtime, 0x10);
    note_walked_functions(begin_walk(), std::vector<FunctionID>{0x20, 0x30, 0x20});
    for (const FunctionID function : {0x10, 0x20, 0x30}) {
        EXPECT_TRUE(is_known(function));
    }
    EXPECT_FALSE(is_known(0));
    EXPECT_FALSE(is_known(0x11));
    EXPECT_TRUE(runtime.calls.empty()); // nothing can be collected, so nothing has to be asked
}

TEST_F(KnownFunctions, GoWithTheirModule) {
    note_in(kOrdinary, 0x08);
    note_collectible_module(kOne);
    note_collectible_module(kOther);
    note_in(kOrdinary, 0x10);
    note_in(kOne, 0x20);
    note_in(kOther, 0x30);
    forget_functions_of(kOne);
    EXPECT_FALSE(is_known(0x20));
    for (const FunctionID function : {0x08, 0x10, 0x30}) {
        EXPECT_TRUE(is_known(function));
    }
    forget_functions_of(kOther);
    EXPECT_FALSE(is_known(0x30));
    for (const FunctionID function : {0x08, 0x10}) {
        EXPECT_TRUE(is_known(function));
    }
}

TEST_F(KnownFunctions, AreAskedAboutOnce) {
    note_collectible_module(kOne);
    note_in(kOne, 0x20);
    EXPECT_EQ(runtime.calls, (std::vector<std::string>{"GetFunctionInfo2", "GetClassIDInfo2"}));
    note_in(kOne, 0x20);
    EXPECT_EQ(runtime.calls.size(), 2U);
}

// Whose memory they stand in, and whether it stays, nobody says.
TEST_F(KnownFunctions, GoWithAnyModuleIfTheyMayBelongToIt) {
    note_collectible_module(kOne);
    const auto is_kept = [this](const Describing::Function& function, ULONG32 class_arguments,
                                HRESULT class_result) {
        note_collectible_module(kOther);
        runtime.function = function;
        runtime.class_arguments = class_arguments;
        runtime.class_result = class_result;
        note_function(&runtime, 0x20);
        EXPECT_TRUE(is_known(0x20));
        forget_functions_of(kOther);
        return is_known(0x20);
    };
    EXPECT_FALSE(is_kept({.module = kOrdinary, .arguments = 1}, 0, S_OK));
    EXPECT_FALSE(is_kept({.module = kOrdinary}, 1, S_OK));
    EXPECT_FALSE(is_kept({.module = kOrdinary}, 0, E_FAIL));
    EXPECT_FALSE(is_kept({.module = kOrdinary, .type = 0}, 0, S_OK));
    EXPECT_FALSE(is_kept({.module = kOrdinary, .result = E_FAIL}, 0, S_OK));
    EXPECT_TRUE(is_kept({.module = kOrdinary}, 0, S_OK));
}

TEST_F(KnownFunctions, OfAWalkGoWithAnyModuleWhileOneCanBeCollected) {
    note_collectible_module(kOne);
    note_in(kOrdinary, 0x10);
    note_walked_functions(begin_walk(), std::vector<FunctionID>{0x10, 0x20});
    EXPECT_TRUE(is_known(0x20));
    EXPECT_TRUE(runtime.calls.size() == 2U); // of the one that was compiled
    forget_functions_of(kOne);
    EXPECT_TRUE(is_known(0x10));
    EXPECT_FALSE(is_known(0x20));
}

TEST_F(KnownFunctions, OfAWalkMayBeOfAModuleThatCameDuringIt) {
    const WalkStart start = begin_walk();
    note_collectible_module(kOne);
    note_walked_functions(start, std::vector<FunctionID>{0x20});
    EXPECT_TRUE(is_known(0x20));
    forget_functions_of(kOne);
    EXPECT_FALSE(is_known(0x20));
}

TEST_F(KnownFunctions, OfAWalkAreGoneWithAModuleThatWentDuringIt) {
    note_collectible_module(kOne);
    note_in(kOrdinary, 0x10);
    const WalkStart start = begin_walk();
    forget_functions_of(kOne);
    note_walked_functions(start, std::vector<FunctionID>{0x10, 0x20});
    EXPECT_TRUE(is_known(0x10));
    EXPECT_FALSE(is_known(0x20));
}

// Modules go in this way with an application domain.
TEST_F(KnownFunctions, AllGoWithAModuleThatWasToStay) {
    note_collectible_module(kOne);
    note_in(kOrdinary, 0x10);
    note_in(kOne, 0x20);
    forget_functions_of(kOrdinary);
    EXPECT_FALSE(is_known(0x10));
    EXPECT_TRUE(is_known(0x20));
}

TEST_F(KnownFunctions, GoWithAnyModuleWhenOneCouldNotBeNoted) {
    {
        const testing::FailingAllocation failing(0);
        EXPECT_THROW(note_collectible_module(kOne), std::bad_alloc);
    }
    note_in(kOne, 0x20);
    note_walked_functions(begin_walk(), std::vector<FunctionID>{0x30});
    EXPECT_TRUE(is_known(0x20));
    EXPECT_TRUE(is_known(0x30));
    forget_functions_of(kOne);
    EXPECT_FALSE(is_known(0x20));
    EXPECT_FALSE(is_known(0x30));
}

TEST_F(KnownFunctions, StayWhatTheyAreWhileSomebodyAsks) {
    note_collectible_module(kOne);
    note_in(kOne, 0x20);
    std::atomic<bool> has_gone = false;
    std::jthread unloading;
    {
        const KnownFunction known(0x20);
        EXPECT_TRUE(known);
        unloading = std::jthread([&] {
            forget_functions_of(kOne);
            has_gone = true;
        });
        Sleep(50);
        EXPECT_FALSE(has_gone);
    }
    unloading.join();
    EXPECT_TRUE(has_gone);
}

TEST_F(KnownFunctions, AreNotedByManyThreadsAtOnce) {
    {
        std::vector<std::jthread> threads;
        for (FunctionID thread = 0; thread < 4; ++thread) {
            threads.emplace_back([this, thread] {
                for (FunctionID i = 1; i <= 5000; ++i) {
                    note_function(&runtime, 8 * (i + 2500 * thread));
                }
            });
        }
    }
    for (FunctionID i = 1; i <= 12'500; ++i) {
        EXPECT_TRUE(is_known(8 * i));
    }
    EXPECT_FALSE(is_known(8 * 12'501));
}

} // namespace
} // namespace corvane
