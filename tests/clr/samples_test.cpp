// The samples that people start from, run as their opening comments say.
#include "tests/support/call_tree.h"
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <winsock2.h>

#include <map>
#include <set>
#include <sstream>
#include <thread>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// A port that nobody listened at a moment ago.
std::wstring free_port() {
    WSADATA data = {};
    WSAStartup(MAKEWORD(2, 2), &data);
    const SOCKET listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof address;
    bind(listener, reinterpret_cast<const sockaddr*>(&address), size);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    closesocket(listener);
    WSACleanup();
    return std::to_wstring(ntohs(address.sin_port));
}

class Samples : public ToolTest {
protected:
    void TearDown() override {
        for (RunningProgram& running : running_) {
            TerminateProcess(running.process.get(), 0);
            WaitForSingleObject(running.process.get(), INFINITE);
        }
    }

    // A copy of a sample's folder, and its program in there.
    fs::path sample(const std::wstring& name) const {
        const fs::path copy = folder() / name;
        if (!exists(copy)) {
            fs::create_directory(copy);
            for (const auto& file : fs::directory_iterator(built_file(L"managed") / name)) {
                if (file.is_regular_file()) {
                    fs::copy_file(file.path(), copy / file.path().filename());
                }
            }
        }
        return copy / (name + L".exe");
    }

    ToolRun run_sample(const std::wstring& name, std::vector<std::wstring> options,
                       const std::vector<std::wstring>& arguments = {},
                       const Environment& environment = {}) const {
        options.insert(options.begin(), L"run");
        options.emplace_back(L"--");
        options.push_back(sample(name).wstring());
        options.insert(options.end(), arguments.begin(), arguments.end());
        return run_tool(options, environment);
    }

    // Without the profiler; what it writes is in the file that is returned.
    fs::path start(DebuggeeOptions options, const std::wstring& name) {
        const fs::path output = folder() / (name + L".txt");
        options.output_file = output.wstring();
        running_.push_back(start_program(options));
        return output;
    }

    fs::path start_sample(const std::wstring& name, const std::vector<std::wstring>& arguments) {
        DebuggeeOptions options = tool_options(arguments);
        options.program = sample(name).wstring();
        return start(std::move(options), name);
    }

    // Returns when the file has this text so many times, or after five minutes.
    static bool comes(const fs::path& file, const std::string& text, int times = 1) {
        for (int i = 0; i < 3000; ++i) {
            const std::string all = text_of(file);
            int found = 0;
            for (auto at = all.find(text); at != all.npos; at = all.find(text, at + 1)) {
                ++found;
            }
            if (found >= times) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }

private:
    std::vector<RunningProgram> running_;
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Samples, ::testing::Values(8, 10), runtime_name);

TEST_P(Samples, ConsoleProgramShowsItsCalls) {
    const fs::path tree = folder() / "tree.txt";
    const ToolRun result = run_sample(L"console", {L"--tree", tree.wstring(), L"--values", L"all"});
    EXPECT_EQ(result.exit_code, 0U);
    EXPECT_EQ(result.output, "2 x tea costs 500 cents.\r\n1 x cake costs 320 cents.\r\n"
                             "There is no moon.\r\ncorvane: wrote " +
                                 tree.string() + "\r\n");
    const std::vector<std::string> lines = read_call_lines(tree);
    ASSERT_EQ(lines.size(), 8U);
    EXPECT_EQ(lines[1], "  Orders.Program.Main(args: {System.String[]}) = 0");
    EXPECT_EQ(lines[2], "    Orders.Shop.Order(item: \"tea\", count: 2) = 500");
    EXPECT_THAT(lines[3], StartsWith("      Orders.Shop.Sign(order: \"{"));
    EXPECT_EQ(lines[6],
              "    Orders.Shop.Order(item: \"moon\", count: 1) ! System.ArgumentException: "
              "nobody sells this");
    EXPECT_EQ(lines[7], "6 calls, 1 threads, 0 dropped");
}

TEST_P(Samples, ConsoleProgramShowsWhereItsTimeGoes) {
    const fs::path flame = folder() / "flame.svg";
    EXPECT_EQ(run_sample(L"console", {L"--flame", flame.wstring()}, {L"5"}).exit_code, 0U);
    const std::string picture = text_of(flame);
    EXPECT_NE(picture.find("<title>Orders.Program.Main\n"), picture.npos);
    EXPECT_TRUE(picture.ends_with("</svg>\n"));
}

TEST_P(Samples, SamplerShowsWhatItsThreadDid) {
    const ToolRun result = run_sample(L"sampler", {L"--summary", L"summary.txt"}, {L"samples"});
    EXPECT_EQ(result.exit_code, 0U) << result.output;
    const std::string picture = text_of(folder() / "samples" / "the-work.svg");
    EXPECT_NE(picture.find("<title>Primes.Program.DoTheWork (lambda)\n"), picture.npos);
    EXPECT_TRUE(picture.find("<title>count\n") != picture.npos ||
                picture.find("<title>search\n") != picture.npos);
}

TEST_P(Samples, SamplerSaysWhatItLacksWithoutTheProfiler) {
    DebuggeeOptions options = tool_options({});
    options.program = sample(L"sampler").wstring();
    EXPECT_EQ(run_debuggee(options).exit_code, 1U);
    EXPECT_THAT(text_of(options.output_file),
                HasSubstr("CorvaneProfiler.dll is not in this process"));
}

TEST_P(Samples, CallbacksSeeAndChangeCalls) {
    const ToolRun result = run_sample(L"callbacks", {L"--summary", L"summary.txt"});
    EXPECT_EQ(result.exit_code, 0U);
    EXPECT_EQ(result.output, "Add returned\r\nAdd returned\r\nAdd failed\r\nrefused\r\n"
                             "102 things are in the cart.\r\ncorvane: wrote " +
                                 (folder() / "summary.txt").string() + "\r\n");
    DebuggeeOptions plain = tool_options({});
    plain.program = sample(L"callbacks").wstring();
    EXPECT_EQ(run_debuggee(plain).exit_code, 0U);
    EXPECT_EQ(text_of(plain.output_file), "refused\r\n1002 things are in the cart.\r\n");
}

// The program that is asked sends its spans by OpenTelemetry, the one that asks by kite.managed;
// both are of one trace.
TEST_P(Samples, WorkerAndWebProgramSendOneTrace) {
    const std::wstring collector = L"http://127.0.0.1:" + free_port();
    const std::wstring web = L"http://127.0.0.1:" + free_port();
    const fs::path received = start_sample(L"collector", {L"--urls", collector});
    const fs::path served = start(
        tool_options({L"run", L"--summary", L"summary.txt", L"--", sample(L"aspnetcore").wstring(),
                      L"--urls", web, L"--collector", collector}),
        L"aspnetcore");
    ASSERT_TRUE(comes(served, "Application started")) << text_of(served);

    const ToolRun worker = run_sample(L"worker", {L"--otlp", collector},
                                      {L"--address", web + L"/price/tea", L"--rounds", L"3"},
                                      {{L"CORVANE_END_SECONDS", L"120"}});
    EXPECT_EQ(worker.exit_code, 0U);
    EXPECT_EQ(worker.output, "round 1: 300\r\nround 2: 300\r\nround 3: 300\r\n");
    const char* const names[] = {"PriceWatcher.AskAsync",
                                 "Microsoft.AspNetCore.Hosting.HttpRequestIn", "Prices.Of"};
    for (const char* const name : names) {
        ASSERT_TRUE(comes(received, std::string("  ") + name, 3)) << name << '\n'
                                                                  << text_of(received);
    }
    std::map<std::string, std::set<std::string>> traces;
    std::istringstream lines(text_of(received));
    for (std::string word, trace, name; lines >> word >> trace >> name;) {
        ASSERT_EQ(word, "trace");
        traces[name].insert(trace);
    }
    for (const char* const name : names) {
        EXPECT_EQ(traces[name].size(), 1U) << name;
        EXPECT_EQ(traces[name], traces[names[0]]) << name;
    }
}

TEST_P(Samples, ProgramOfTheFrameworkIsExplained) {
    const ToolRun result = run_tool({L"explain", sample(L"framework").wstring()});
    EXPECT_EQ(result.exit_code, 0U);
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("  instrumented  entry point      int32 Main()\r\n"),
                      HasSubstr("  instrumented  trace attribute  int32 Balance()\r\n"),
                      HasSubstr(": 3 instrumented, 0 left as they are, ")));
    EXPECT_TRUE(exists(sample(L"framework").parent_path() / "kite.managed.dll"));
}

} // namespace
} // namespace corvane::testing
