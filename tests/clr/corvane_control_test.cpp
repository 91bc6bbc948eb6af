// corvane sample, flush and summary: a program is asked while it runs, and goes on whoever asks.
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <thread>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class CorvaneControl : public ToolTest {
protected:
    CorvaneControl() { program = L"launched"; }

    void TearDown() override {
        if (program_) {
            EXPECT_EQ(WaitForSingleObject(program_.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT))
                << "the program has ended";
            TerminateProcess(program_.get(), 1);
        }
        if (launcher_.process) {
            WaitForSingleObject(launcher_.process.get(), 300'000);
        }
    }

    // The program calls Program.Work over and over, and writes its id first.
    void start(std::vector<std::wstring> options, const wchar_t* work = L"work") {
        const fs::path file = folder() / "started.txt";
        options.insert(options.begin(), L"run");
        options.insert(options.end(),
                       {L"--", program_as(L"launched.exe").wstring(), work, file.wstring()});
        DebuggeeOptions launch = tool_options(options, {{L"CORVANE_END_SECONDS", L"120"}});
        launch.output_file = (folder() / "launched.txt").wstring();
        launcher_ = start_program(launch);
        for (int i = 0; i < 6000 && id_ == 0; ++i) {
            std::ifstream(file) >> id_;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ASSERT_NE(id_, 0U) << "the program did not start";
        program_ = OwnedHandle(OpenProcess(PROCESS_ALL_ACCESS, FALSE, id_));
    }

    ToolRun ask(std::vector<std::wstring> words) const {
        words.insert(words.begin() + 1, {L"--pid", std::to_wstring(id_)});
        return run_tool(words);
    }

    OwnedHandle connect() const {
        const std::wstring name = L"\\\\.\\pipe\\corvane-" + std::to_wstring(id_);
        DWORD error = 0;
        for (int i = 0; i < 6000; ++i) {
            const HANDLE pipe = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                            OPEN_EXISTING, 0, nullptr);
            if (pipe != INVALID_HANDLE_VALUE) {
                return OwnedHandle(pipe);
            }
            error = GetLastError();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        ADD_FAILURE() << "nobody listens: " << error;
        return {};
    }

    static void write(const OwnedHandle& pipe, const std::string& bytes) {
        DWORD count = 0;
        WriteFile(pipe.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
    }

    DWORD id_ = 0;
    OwnedHandle program_;
    RunningProgram launcher_;
};
INSTANTIATE_TEST_SUITE_P(Runtimes, CorvaneControl, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(CorvaneControl, AsksARunningProgram) {
    start({L"--method", L"Program.Work", L"--summary", L"--tree", L"out\\tree.txt", L"--otlp",
           L"out\\spans.jsonl"});

    const ToolRun summary = ask({L"summary"});
    EXPECT_EQ(summary.exit_code, 0U);
    EXPECT_THAT(summary.output, AllOf(HasSubstr("  method\r\n"), HasSubstr("  Program.Work\r\n")));

    const ToolRun flush = ask({L"flush"});
    EXPECT_EQ(flush.exit_code, 0U) << flush.output;
    const fs::path out = folder() / "out";
    EXPECT_THAT(flush.output, AllOf(HasSubstr((out / "tree.txt").string()),
                                    HasSubstr((out / "spans.jsonl").string())));
    EXPECT_THAT(text_of(out / "tree.txt"), HasSubstr("Program.Work("));
    EXPECT_THAT(text_of(out / "spans.jsonl"), HasSubstr("\"Program.Work\""));

    const ToolRun sample = ask({L"sample", L"--seconds", L"2", L"--sample", L"5", L"--flame",
                                L"out\\flame.svg", L"--speedscope", L"out\\speed.json", L"--pprof",
                                L"out\\profile.pb.gz", L"--folded", L"out\\stacks.folded"});
    EXPECT_EQ(sample.exit_code, 0U) << sample.output;
    EXPECT_THAT(sample.output,
                AllOf(HasSubstr((out / "flame.svg").string()), HasSubstr(" every 5 ms: ")));
    EXPECT_THAT(text_of(out / "flame.svg"), HasSubstr("Program.Work"));
    EXPECT_THAT(text_of(out / "speed.json"), HasSubstr("Program.Work"));
    EXPECT_THAT(text_of(out / "stacks.folded"), HasSubstr("Program.Main;Program.Work"));
    EXPECT_THAT(text_of(out / "profile.pb.gz"), StartsWith("\x1F\x8B"));

    const ToolRun printed = ask({L"sample", L"--seconds", L"3"});
    EXPECT_THAT(printed.output, HasSubstr("Program.Main;Program.Work"));
}

TEST_P(CorvaneControl, SaysWhyAProcessDoesNotAnswer) {
    EXPECT_THAT(run_tool({L"summary", L"--pid", L"999999"}).output,
                HasSubstr("corvane: there is no process 999999"));
    id_ = GetCurrentProcessId();
    const ToolRun other = ask({L"flush"});
    EXPECT_EQ(other.exit_code, 3U);
    EXPECT_THAT(other.output, HasSubstr(" cannot be asked: it does not run under the profiler, or "
                                        "was started without CORVANE_CONTROL=1"));
    id_ = 0;
    start({L"--tree", L"out\\tree.txt"});
    const ToolRun summary = ask({L"summary"});
    EXPECT_EQ(summary.exit_code, 4U);
    EXPECT_THAT(summary.output, HasSubstr("the process was started without CORVANE_SUMMARY"));
    const ToolRun misused = run_tool({L"sample"});
    EXPECT_EQ(misused.exit_code, 2U);
    EXPECT_THAT(misused.output, HasSubstr("--pid"));
}

TEST_P(CorvaneControl, NamesAFileOnce) {
    const ToolRun result =
        run_tool({L"sample", L"--pid", L"1", L"--flame", L"a", L"--pprof", L".\\A"});
    EXPECT_EQ(result.exit_code, 2U);
    EXPECT_THAT(result.output, StartsWith("corvane: two options name the file "));
}

// This process stands for one that has no time to answer.
TEST_P(CorvaneControl, WaitsForAnAnswerNoLongerThanItIsTold) {
    const std::wstring name = L"\\\\.\\pipe\\corvane-" + std::to_wstring(GetCurrentProcessId());
    const OwnedHandle pipe(
        CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr));
    ASSERT_NE(pipe.get(), INVALID_HANDLE_VALUE);
    id_ = GetCurrentProcessId();
    const ToolRun result = ask({L"summary", L"--patience", L"1"});
    EXPECT_EQ(result.exit_code, 5U);
    EXPECT_THAT(result.output, StartsWith("corvane: process " + std::to_string(id_) +
                                          " gave no answer for 1 s: "));
}

TEST_P(CorvaneControl, IsAnsweredByAProgramWhosePoolIsBusy) {
    start({L"--summary"}, L"busy");
    const ToolRun summary = ask({L"summary"});
    EXPECT_EQ(summary.exit_code, 0U) << summary.output;
    EXPECT_THAT(summary.output, HasSubstr("  method\r\n"));
}

TEST_P(CorvaneControl, FlushesSamplesAndSaysWhatIsNotThereYet) {
    start({L"--flame", L"f.svg", L"--otlp", L"out\\spans.jsonl"});
    const ToolRun flush = ask({L"flush"});
    EXPECT_EQ(flush.exit_code, 0U) << flush.output;
    EXPECT_THAT(flush.output,
                AllOf(HasSubstr(std::to_string(id_) + ".svg\r\n"),
                      HasSubstr("corvane: no span has ended yet\r\n"), Not(HasSubstr("jsonl"))));
}

TEST_P(CorvaneControl, GoesOnWhateverClientsDo) {
    start({});
    for (int i = 0; i < 30; ++i) {
        const OwnedHandle gone = connect();
        ASSERT_TRUE(gone) << i;
        if (i % 3 == 1) {
            write(gone, std::string(100'000, '\xFF'));
        } else if (i % 3 == 2) {
            write(gone, "summary\n"); // and goes before the answer
        }
    }
    const OwnedHandle silent = connect(); // until it is let go
    const ToolRun summary = ask({L"summary"});
    EXPECT_EQ(summary.exit_code, 0U) << summary.output;

    std::vector<std::thread> clients;
    constexpr DWORD kRounds = 10;
    std::vector<DWORD> codes(8);
    for (DWORD& code : codes) {
        clients.emplace_back([this, &code] {
            for (DWORD i = 0; i < kRounds; ++i) {
                const OwnedHandle client = connect();
                write(client, "summary\n");
                char byte = 0;
                DWORD count = 0;
                code += ReadFile(client.get(), &byte, 1, &count, nullptr) != FALSE && byte == 'o';
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_THAT(codes, ::testing::Each(kRounds));
    EXPECT_EQ(ask({L"summary"}).exit_code, 0U);
}

} // namespace
} // namespace corvane::testing
