#include "clr/runtime_name.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

// Fills a name as the runtime does.
void give(RuntimeName& name, const std::wstring& text) {
    const auto length = static_cast<ULONG>(text.size() + 1);
    std::copy_n(text.c_str(), length, name.resize(length));
}

std::wstring text_of(const RuntimeName& name) {
    EXPECT_EQ(name.c_str()[std::wstring_view(name).size()], L'\0');
    return std::wstring(name);
}

TEST(RuntimeName, IsEmptyAtFirst) {
    const RuntimeName name;
    EXPECT_EQ(text_of(name), L"");
    EXPECT_TRUE(name == L"");
}

TEST(RuntimeName, TakesNamesOfEveryLengthInAnyOrder) {
    RuntimeName name;
    for (const std::size_t length : {0U, 1U, 190U, 191U, 192U, 193U, 1000U, 191U, 5U, 300U, 0U}) {
        const std::wstring text(length, L'n');
        give(name, text);
        EXPECT_EQ(text_of(name), text);
        EXPECT_TRUE(name == text);
        EXPECT_FALSE(name == text + L'n');
    }
}

TEST(RuntimeName, IsAllZerosUntilItIsFilled) {
    RuntimeName name;
    for (const std::size_t length : {10U, 400U}) {
        give(name, std::wstring(length, L'n'));
        name.resize(static_cast<ULONG>(length + 1));
        EXPECT_EQ(std::wstring(name), std::wstring(length, L'\0'));
    }
    name.resize(0);
    EXPECT_EQ(text_of(name), L"");
}

TEST(RuntimeName, IsCopiedWhateverItsLength) {
    for (const std::size_t length : {0U, 20U, 191U, 192U, 500U}) {
        const std::wstring text(length, L'n');
        RuntimeName original;
        give(original, text);
        const RuntimeName copy = original;
        for (const std::size_t other : {3U, 600U}) {
            RuntimeName assigned;
            give(assigned, std::wstring(other, L'o'));
            assigned = original;
            EXPECT_EQ(text_of(assigned), text);
        }
        const RuntimeName& itself = original;
        original = itself;
        EXPECT_EQ(text_of(original), text);
        give(original, L"another");
        EXPECT_EQ(text_of(copy), text);
    }
}

TEST(ResizeForName, LeavesTheTerminatorOut) {
    std::wstring name = L"before";
    resize_for_name(name, 4);
    EXPECT_EQ(name.size(), 3U);
    resize_for_name(name, 1);
    EXPECT_EQ(name, L"");
    resize_for_name(name, 0);
    EXPECT_EQ(name, L"");
}

} // namespace
} // namespace corvane
