// corvane sample, flush and summary: a program is asked while it runs, and goes on whoever asks.
#include "base/local_memory.h"
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <aclapi.h>
#include <sddl.h>
#include <winternl.h>

#include <atomic>
#include <cstdint>
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

    void TearDown() override { end(); }

    void end() {
        if (program_) {
            EXPECT_EQ(WaitForSingleObject(program_.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT))
                << "the program has ended";
            TerminateProcess(program_.get(), 1);
        }
        if (launcher_.process) {
            WaitForSingleObject(launcher_.process.get(), 300'000);
        }
        fs::remove(folder() / "started.txt");
        program_.reset();
        id_ = 0;
    }

    // The program calls Program.Work over and over, and writes its id first.
    void start(std::vector<std::wstring> options, const wchar_t* work = L"work") {
        const fs::path file = folder() / "started.txt";
        options.insert(options.begin(), L"run");
        options.insert(options.end(),
                       {L"--", program_as(L"launched.exe").wstring(), work, file.wstring()});
        launch(tool_options(options, {{L"CORVANE_END_SECONDS", L"120"}}));
        await_pipe();
    }

    // Not by the tool, but with the variables that it would set. Does nothing.
    void start_alone(const std::optional<std::wstring>& control) {
        configure("<configuration><instrumentation><applications>"
                  "<application name='launched.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        Environment variables = printed_variables({L"--config", home.wstring()});
        variables[L"CORVANE_CONTROL"] = control;
        DebuggeeOptions options =
            tool_options({L"wait", (folder() / "started.txt").wstring()}, variables);
        options.program = program_as(L"launched.exe").wstring();
        launch(options);
        if (control == L"1") {
            await_pipe();
        }
    }

    void launch(DebuggeeOptions options) {
        const fs::path file = folder() / "started.txt";
        options.output_file = (folder() / "launched.txt").wstring();
        launcher_ = start_program(options);
        for (int i = 0; i < 6000 && id_ == 0; ++i) {
            std::ifstream(file) >> id_;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ASSERT_NE(id_, 0U) << "the program did not start";
        program_ = OwnedHandle(OpenProcess(PROCESS_ALL_ACCESS, FALSE, id_));
    }

    // Without taking it from a client. The thread that makes it may get to that later than the
    // program to what it does.
    void await_pipe() const {
        const std::wstring name = pipe_of(id_);
        for (int i = 0; i < 6000; ++i) {
            if (WaitNamedPipeW(name.c_str(), 1) != FALSE ||
                GetLastError() != ERROR_FILE_NOT_FOUND) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ADD_FAILURE() << "nobody listens";
    }

    ToolRun ask(std::vector<std::wstring> words) const {
        words.insert(words.begin() + 1, {L"--pid", std::to_wstring(id_)});
        return run_tool(words);
    }

    static std::wstring pipe_of(DWORD process) {
        return L"\\\\.\\pipe\\corvane-" + std::to_wstring(process);
    }

    OwnedHandle connect() const {
        const std::wstring name = pipe_of(id_);
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

    // The one of the process that is asked, made by this one.
    OwnedHandle make_pipe(DWORD access) const {
        const HANDLE pipe =
            CreateNamedPipeW(pipe_of(id_).c_str(), access, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr);
        EXPECT_NE(pipe, INVALID_HANDLE_VALUE) << GetLastError();
        return OwnedHandle(pipe);
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

TEST_P(CorvaneControl, NeedsAProcessThatIsToBeAsked) {
    for (const std::optional<std::wstring>& control :
         {std::optional<std::wstring>(), std::optional<std::wstring>(L"0"),
          std::optional<std::wstring>(L"true"), std::optional<std::wstring>(L"1")}) {
        start_alone(control);
        const ToolRun summary = ask({L"summary"});
        if (control == L"1") {
            EXPECT_EQ(summary.exit_code, 0U) << summary.output;
            break;
        }
        EXPECT_EQ(summary.exit_code, 3U);
        EXPECT_EQ(summary.output,
                  "corvane: process " + std::to_string(id_) +
                      " cannot be asked: it does not run under the profiler, or was started "
                      "without CORVANE_CONTROL=1; \"corvane run\" sets that\r\n");
        EXPECT_EQ(ask({L"flush"}).exit_code, 3U);
        EXPECT_EQ(
            CreateFileW(pipe_of(id_).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
        end();
    }
}

std::wstring own_sid() {
    HANDLE opened = nullptr;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened);
    const OwnedHandle token(opened);
    std::vector<BYTE> user(SECURITY_MAX_SID_SIZE + sizeof(TOKEN_USER));
    DWORD size = 0;
    GetTokenInformation(token.get(), TokenUser, user.data(), static_cast<DWORD>(user.size()),
                        &size);
    LPWSTR text = nullptr;
    ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text);
    return LocalMemory<wchar_t>(text).get();
}

TEST_P(CorvaneControl, AdmitsItsUserAndAdministratorsOfThisMachine) {
    start({});
    const OwnedHandle pipe = connect();
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(GetSecurityInfo(pipe.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, nullptr, nullptr, &descriptor),
              static_cast<DWORD>(ERROR_SUCCESS));
    const LocalMemory<void> owner(descriptor);
    EXPECT_EQ(rights_in(descriptor),
              L"D:(D;;0x1f019f;;;NU)(A;;0x1f019f;;;BA)(A;;0x1f019f;;;" + own_sid() + L")");
}

// Which talks to no other process in the place of the one that was meant.
TEST_P(CorvaneControl, RefusesThePipeOfAnotherProcess) {
    start_alone(std::nullopt);
    for (const wchar_t* const command : {L"summary", L"flush", L"sample"}) {
        const OwnedHandle pipe = make_pipe(PIPE_ACCESS_DUPLEX);
        const ToolRun result = ask({command});
        EXPECT_EQ(result.exit_code, 3U);
        EXPECT_EQ(result.output, "corvane: the pipe of process " + std::to_string(id_) +
                                     " belongs to process " +
                                     std::to_string(GetCurrentProcessId()) + "\r\n");
        DWORD asked = 0;
        PeekNamedPipe(pipe.get(), nullptr, 0, nullptr, &asked, nullptr);
        EXPECT_EQ(asked, 0U);
    }
}

// This process stands for one of another user: the system refuses to open its pipe for writing.
TEST_P(CorvaneControl, SaysThatAProcessIsAnotherUsers) {
    id_ = GetCurrentProcessId();
    const OwnedHandle pipe = make_pipe(PIPE_ACCESS_OUTBOUND);
    const ToolRun result = ask({L"flush"});
    EXPECT_EQ(result.exit_code, 3U);
    EXPECT_EQ(result.output,
              "corvane: process " + std::to_string(id_) +
                  " belongs to another user: ask as that one, or as administrator\r\n");
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
    id_ = GetCurrentProcessId();
    const OwnedHandle pipe = make_pipe(PIPE_ACCESS_DUPLEX);
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

// As the system lists its processes.
ULONG handles_of(DWORD process) {
    const auto query =
        reinterpret_cast<decltype(&NtQuerySystemInformation)>(reinterpret_cast<void*>(
            GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<std::uint64_t> list(500'000); // room enough
    ULONG length = 0;
    EXPECT_EQ(
        query(SystemProcessInformation, list.data(), static_cast<ULONG>(list.size() * 8), &length),
        0);
    const char* at = reinterpret_cast<const char*>(list.data());
    for (;;) {
        const auto& entry = *reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at);
        if (reinterpret_cast<std::uintptr_t>(entry.UniqueProcessId) == process) {
            return entry.HandleCount;
        }
        if (entry.NextEntryOffset == 0) {
            ADD_FAILURE() << "the system lists no process " << process;
            return 0;
        }
        at += entry.NextEntryOffset;
    }
}

// Garbage, clients that go before their answer, those that get it, and a few that say nothing.
TEST_P(CorvaneControl, IsTheSameAfterAThousandClients) {
    start({}, L"wait");
    EXPECT_EQ(ask({L"summary"}).exit_code, 0U);
    const ULONG before = handles_of(id_);

    constexpr int kClients = 1'000;
    std::atomic<int> next = 0;
    std::atomic<int> asked = 0;
    std::atomic<int> answered = 0;
    const auto be_clients = [&] {
        std::vector<OwnedHandle> silent;
        for (int i = next++; i < kClients; i = next++) {
            OwnedHandle client = connect();
            if (i % 250 == 249) {
                silent.push_back(std::move(client));
            } else if (i % 3 == 0) {
                write(client, std::string(1'000, '\xFF'));
            } else {
                write(client, "summary\n");
            }
            if (client && i % 3 == 2) {
                char byte = 0;
                DWORD count = 0;
                ++asked;
                answered +=
                    ReadFile(client.get(), &byte, 1, &count, nullptr) != FALSE && byte == 'o';
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back(be_clients);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(asked, 300);
    EXPECT_EQ(answered, asked);
    EXPECT_EQ(ask({L"summary"}).exit_code, 0U);
    EXPECT_GT(before, 0U);
    EXPECT_LE(handles_of(id_), 2 * before); // it may be the room of a table, which doubles
}

} // namespace
} // namespace corvane::testing
