// What becomes of a file that cannot be read to its end. How the file is found and what its lines
// mean is tested with start-up and with the scopes.
#include "base/own_module.h"
#include "selection/excluded_scopes.h"
#include "tests/support/debug_output.h"
#include "tests/support/patched_import.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace corvane {
namespace {

using testing::DebugOutput;
using testing::PatchedImport;

int reads_left = 0;
int (*read_from_file)(int, void*, unsigned) = nullptr;

int read_or_fail(int file, void* buffer, unsigned size) {
    if (reads_left == 0) {
        errno = EIO;
        return -1;
    }
    --reads_left;
    return read_from_file(file, buffer, size);
}

class LoadExcludedScopes : public ::testing::Test {
protected:
    LoadExcludedScopes() { excluded_scopes.clear(); }
    ~LoadExcludedScopes() override {
        excluded_scopes.clear();
        std::filesystem::remove(file);
    }

    const std::filesystem::path file =
        std::filesystem::path(own_module_path()).parent_path() / "do_not_instrument.txt";
    DebugOutput output;
};

TEST_F(LoadExcludedScopes, KeepsWhatWasReadBeforeAnError) {
    constexpr std::size_t kLines = 2'000;
    {
        std::ofstream lines(file, std::ios::binary);
        for (std::size_t i = 0; i < kLines; ++i) {
            lines << "[A]B.C\n";
        }
    }
    for (const int reads : {0, 1, 2}) {
        excluded_scopes.clear();
        {
            const PatchedImport<int(int, void*, unsigned)> reading("_read", read_or_fail);
            read_from_file = reading.original();
            reads_left = reads;
            load_excluded_scopes();
        }
        ASSERT_GE(excluded_scopes.size(), 1U);
        EXPECT_EQ(excluded_scopes[0].assembly, L"kite.managed");
        EXPECT_EQ(excluded_scopes.size() > 1, reads > 0);
        EXPECT_LT(excluded_scopes.size(), kLines);
        for (std::size_t i = 1; i < excluded_scopes.size(); ++i) {
            EXPECT_EQ(excluded_scopes[i].assembly, L"A");
            EXPECT_EQ(excluded_scopes[i].path, (std::vector<std::wstring>{L"B", L"C"}));
        }
    }
    EXPECT_EQ(output.text(), L""); // the file could be opened
    excluded_scopes.clear();
    load_excluded_scopes();
    EXPECT_EQ(excluded_scopes.size(), 1 + kLines);
}

} // namespace
} // namespace corvane
