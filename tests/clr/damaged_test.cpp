// Assemblies that no compiler made: whoever looks at them offline may refuse them, and must neither
// crash nor hang. What the runtime's own engine cannot bear ends the process in an orderly way.
#include "tests/support/debuggee.h"
#include "tests/support/real_methods.h"
#include "tests/support/runtime_test.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <sstream>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

constexpr DWORD kEngineFault = 77;

struct Original : NamedRow {
    const char* file;
    unsigned files; // with damage
};
const Original kOriginals[] = {
    {{"Shapes"}, "prepared/shapes.dll", 15'000},
    {{"Few"}, "matrix/few.dll", 8'000},
    {{"Matrix"}, "matrix/matrix.dll", 100},
};

class Damaged : public ::testing::TestWithParam<Original> {};
INSTANTIATE_TEST_SUITE_P(Assemblies, Damaged, ::testing::ValuesIn(kOriginals),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(Damaged, IsShownOrRefused) {
    const auto runtime = newest_runtime_folder();
    if (!runtime) {
        GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
    }
    const OwnFolder folder;
    const fs::path file =
        built_file(fs::path(CORVANE_PROGRAMS_FOLDER).make_preferred()) / GetParam().file;
    unsigned next = 0;
    unsigned shown = 0;
    unsigned faults = 0;
    while (next < GetParam().files) {
        DebuggeeOptions options;
        options.program = built_file(L"damaged_reader.exe").wstring();
        options.arguments = {runtime->wstring(), file.wstring(), std::to_wstring(next),
                             std::to_wstring(GetParam().files)};
        options.output_file = (folder.path() / "output.txt").wstring();
        const DebuggeeResult result = run_debuggee(options);
        std::ifstream output(folder.path() / "output.txt");
        for (std::string line; std::getline(output, line);) {
            std::istringstream numbers(line);
            unsigned methods = 0;
            numbers >> next >> methods;
            shown += methods > 0 ? 1 : 0;
            ++next;
        }
        ASSERT_FALSE(result.timed_out) << "at " << next - 1;
        if (result.exit_code != 0) {
            ASSERT_EQ(result.exit_code, kEngineFault) << "at " << next - 1;
            std::cout << "the engine failed at " << next - 1 << '\n';
            ASSERT_LT(++faults, 20U); // else it is not the engine that fails
        }
    }
    std::cout << GetParam().files << " files, methods of " << shown << " shown\n";
    EXPECT_GT(shown, GetParam().files / 4);
    EXPECT_LT(shown, GetParam().files);
}

} // namespace
} // namespace corvane::testing
