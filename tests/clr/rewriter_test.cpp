// Every method that a real runtime compiles goes through the model of method bodies on its way, and
// the program must not notice. The program runs without a debugger: each of its methods writes its
// dump to the debugger output, which is slow with one.
#include "base/owned_handle.h"
#include "tests/support/agent_home.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <utility>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

constexpr DWORD kTimeout = 600'000;
constexpr DWORD kExitCode = 42;

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class Rewriter : public ::testing::TestWithParam<int> {
protected:
    struct Run {
        DWORD exit_code = 0;
        std::string output;
        std::map<std::string, int> counts; // of outcomes; the first method behind a failure
    };

    void SetUp() override {
        const char* const roots = std::getenv("CORVANE_DOTNET_ROOTS");
        if (roots != nullptr) {
            root_ = fs::absolute(fs::path(roots) / std::to_string(GetParam())).make_preferred();
        }
        if (!fs::exists(root_)) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime " << GetParam();
        }
    }

    Run run(const std::optional<std::string>& edit) const {
        const bool rewrites = edit.has_value();
        const fs::path report = folder_.path() / "report.txt";
        const auto if_rewriting = [rewrites](const std::string& value) {
            return rewrites ? std::optional(value) : std::nullopt;
        };
        const ScopedVariable variables[] = {
            {"DOTNET_ROOT", root_.string()},
            {"DOTNET_ROOT_X64", std::nullopt},
            {"DOTNET_MULTILEVEL_LOOKUP", "0"},
            {"CORECLR_ENABLE_PROFILING", if_rewriting("1")},
            {"CORECLR_PROFILER", if_rewriting("{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}")},
            {"CORECLR_PROFILER_PATH", if_rewriting(built_file(L"rewriter.dll").string())},
            {"CORVANE_REWRITER_REPORT", report.string()},
            {"CORVANE_REWRITER_EDIT", edit},
        };
        Run run;
        run.exit_code = run_program(folder_.path() / "output.txt");
        run.output = read_file(folder_.path() / "output.txt");
        std::istringstream lines(read_file(report));
        int count = 0;
        for (std::string outcome; lines >> count && std::getline(lines >> std::ws, outcome);) {
            run.counts[outcome] = count;
        }
        return run;
    }

    void expect_unnoticed(const std::string& edit) const {
        const Run plain = run(std::nullopt);
        EXPECT_EQ(plain.exit_code, kExitCode);
        EXPECT_TRUE(plain.output.starts_with("runtime " + std::to_string(GetParam()) + '.'))
            << plain.output;
        EXPECT_THAT(plain.counts, ::testing::IsEmpty());

        Run rewritten = run(edit);
        EXPECT_EQ(rewritten.exit_code, kExitCode);
        EXPECT_EQ(rewritten.output, plain.output);
        const int bodies = std::exchange(rewritten.counts["rewritten"], 0);
        EXPECT_GT(bodies, 5'000);
        rewritten.counts.erase("rewritten");
        std::cout << bodies << " bodies rewritten\n";
        // Methods whose body the runtime itself makes have none to be read.
        for (const auto& [outcome, count] : rewritten.counts) {
            EXPECT_THAT(outcome, ::testing::StartsWith("Read 0x80131354 "));
            EXPECT_LT(count, 10);
            std::cout << count << ' ' << outcome << '\n';
        }
    }

private:
    static DWORD run_program(const fs::path& output_file) {
        SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        const OwnedHandle output(CreateFileW(output_file.c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                             &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                             nullptr));
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = output.get();
        startup.hStdError = output.get();
        const fs::path program = built_file(fs::path(CORVANE_PROGRAMS_FOLDER).make_preferred()) /
                                 "workload" / "workload.exe";
        PROCESS_INFORMATION created = {};
        if (CreateProcessW(program.c_str(), nullptr, nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                           &startup, &created) == FALSE) {
            ADD_FAILURE() << "cannot start " << program << ": " << GetLastError();
            return 0;
        }
        const OwnedHandle process(created.hProcess);
        const OwnedHandle thread(created.hThread);
        if (WaitForSingleObject(process.get(), kTimeout) != WAIT_OBJECT_0) {
            ADD_FAILURE() << program << " did not end";
            TerminateProcess(process.get(), 1);
            WaitForSingleObject(process.get(), INFINITE);
        }
        DWORD exit_code = 0;
        GetExitCodeProcess(process.get(), &exit_code);
        return exit_code;
    }

    OwnFolder folder_;
    fs::path root_;
};

INSTANTIATE_TEST_SUITE_P(Runtimes, Rewriter, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Rewriter, RewritesEveryMethodAsItWas) {
    expect_unnoticed("none");
}

// Offsets of everything change, and short branches have to be widened.
TEST_P(Rewriter, RewritesEveryMethodWithMoreCodeAndOneMoreLocal) {
    expect_unnoticed("grow");
}

} // namespace
} // namespace corvane::testing
