// Sampling by the managed library in a real runtime: what is written about programs whose behaviour
// is known. They run without a debugger, which would be told of every snapshot's worker.
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <boost/property_tree/json_parser.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using TextLines = std::vector<std::string>;

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

TextLines lines_of(const std::string& text) {
    std::istringstream stream(text);
    TextLines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line.ends_with('\r') ? line.substr(0, line.size() - 1) : line);
    }
    return lines;
}

// The time of a speedscope profile in stacks with a function of this name; without one, in all of
// them.
double time_in(const boost::property_tree::ptree& file, const std::string& thread,
               const std::string& function) {
    std::string index = "none";
    int number = 0;
    for (const auto& [key, frame] : file.get_child("shared.frames")) {
        if (frame.get<std::string>("name") == function) {
            index = std::to_string(number);
        }
        ++number;
    }
    double time = 0;
    for (const auto& [key, profile] : file.get_child("profiles")) {
        if (!profile.get<std::string>("name").starts_with(thread + " (")) {
            continue;
        }
        auto weight = profile.get_child("weights").begin();
        for (const auto& [none, stack] : profile.get_child("samples")) {
            for (const auto& [nothing, frame] : stack) {
                if (function.empty() || frame.data() == index) {
                    time += weight->second.get_value<double>();
                    break;
                }
            }
            ++weight;
        }
    }
    return time;
}

class Profiling : public EachRuntimeTest {
protected:
    // What was written about a run.
    struct Profile {
        TextLines folded;
        boost::property_tree::ptree speedscope;
        std::string drawing;

        int samples_of(const std::string& thread) const {
            int count = 0;
            for (const std::string& line : folded) {
                if (line.starts_with(thread + ';')) {
                    count += std::stoi(line.substr(line.rfind(' ')));
                }
            }
            return count;
        }

        double waiting_percent(const std::string& thread) const {
            return 100 * time_in(speedscope, thread, "(waiting)") / time_in(speedscope, thread, "");
        }
    };

    void SetUp() override {
        EachRuntimeTest::SetUp();
        program = L"profiled";
        enable("Enabled");
    }

    void enable(const std::string& corvane) const {
        configure("<configuration><instrumentation><applications><application name='profiled.exe' "
                  "corvane='" +
                  corvane + "'/></applications></instrumentation></configuration>");
    }

    void run(const std::vector<std::wstring>& arguments, const Environment& environment,
             DWORD exit_code) {
        watch({.executable = L"profiled.exe",
               .arguments = arguments,
               .environment = environment,
               .with_witness = false,
               .with_debugger = false,
               .timeout = std::chrono::minutes(5),
               .exit_code = exit_code});
    }

    Profile sample(const std::vector<std::wstring>& arguments, DWORD exit_code = 3) {
        const fs::path samples = folder() / ("samples of " + std::to_string(++samplings_));
        run(arguments,
            {{L"DOTNET_STARTUP_HOOKS", managed_library().wstring()},
             {L"CORVANE_SAMPLE", samples.wstring()},
             {L"CORVANE_SAMPLE_INTERVAL_MS", L"5"}},
            exit_code);

        Profile profile;
        std::vector<std::string> names;
        for (const fs::directory_entry& file : fs::directory_iterator(samples)) {
            const std::string name = file.path().filename().string();
            names.push_back(name.substr(name.find('.')));
            EXPECT_THAT(name, StartsWith("profiled-"));
            const std::string text = read_file(file.path());
            if (name.ends_with(".folded")) {
                profile.folded = lines_of(text);
            } else if (name.ends_with(".svg")) {
                profile.drawing = text;
            } else if (name.ends_with(".json")) {
                std::istringstream stream(text);
                boost::property_tree::read_json(stream, profile.speedscope);
            }
        }
        EXPECT_THAT(names, ::testing::UnorderedElementsAre(".folded", ".pb.gz", ".speedscope.json",
                                                           ".svg"));
        EXPECT_THAT(profile.drawing, AllOf(StartsWith("<?xml "), EndsWith("</svg>\n")));
        return profile;
    }

private:
    int samplings_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Profiling, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Profiling, AgreesWithKnownShares) {
    constexpr int kEnough = 1200;
    constexpr int kSeconds = 8;
    Profile profile = sample({L"shares", std::to_wstring(kSeconds)});
    if (const int samples = profile.samples_of("main"); samples < kEnough) {
        // The machine has much else to do. A share of so few samples says little.
        const int seconds = kSeconds * (2 * kEnough / std::max(samples, 1) + 1);
        profile = sample({L"shares", std::to_wstring(std::min(seconds, 90))});
    }
    const std::string base = "main;Program.Main;Shares.Run;Shares.";
    const double all = time_in(profile.speedscope, "main", "Shares.Run");
    EXPECT_GT(all, 7e6);
    for (const auto& [function, percent] :
         {std::pair("InHalf", 50), std::pair("InThird", 30), std::pair("InFifth", 20)}) {
        const double time = time_in(profile.speedscope, "main", std::string("Shares.") + function);
        EXPECT_NEAR(100 * time / all, percent, 3)
            << function << ", samples: " << profile.samples_of("main");
        EXPECT_THAT(profile.folded, Contains(StartsWith(base + function + ";Shares.Spin ")));
        EXPECT_THAT(profile.drawing, HasSubstr(std::string("<title>Shares.") + function + "\n"));
    }
}

// What the thread used of a processor is what the program was told of it by the system. When it has
// work and no processor, either may be seen.
TEST_P(Profiling, TellsRunningFromWaiting) {
    const fs::path shares = folder() / "shares.txt";
    const Profile profile = sample({L"waits", shares.wstring()});
    const TextLines lines = lines_of(read_file(shares));
    ASSERT_EQ(lines.size(), 4); // the first two are of the run without the profiler
    EXPECT_GT(100 - profile.waiting_percent("main"), std::stod(lines[2]) - 3);
    EXPECT_LT(100 - profile.waiting_percent("main"), std::stod(lines[3]) + 3);
    for (const std::string thread : {"waiter", "sleeper", "locked"}) {
        EXPECT_GT(profile.waiting_percent(thread), 97) << thread;
    }
    EXPECT_THAT(profile.folded, Contains(StartsWith("main;Program.Main;Waits.Run;Waits.Work ")));
    EXPECT_THAT(profile.folded, Contains(AllOf(StartsWith("locked;"), HasSubstr(";Waits.Enter"),
                                               HasSubstr(";(waiting) "))));
}

// Some of them end at once, and their ids are given to threads that the runtime does not know.
TEST_P(Profiling, LivesWithThreadsThatComeAndGo) {
    const Profile profile = sample({L"crowd"});
    EXPECT_THAT(profile.folded, Contains(AllOf(StartsWith("worker;"), HasSubstr(";Crowd.Work"))));
    EXPECT_THAT(profile.folded,
                Contains(AllOf(StartsWith("collector;"), HasSubstr(";Crowd.Collect"))));
    EXPECT_THAT(profile.folded, Contains(StartsWith("main;Program.Main;Crowd.Run")));
    EXPECT_THAT(profile.folded, Not(Contains(HasSubstr("Corvane sampler"))));
}

TEST_P(Profiling, IsWrittenAtEnvironmentExit) {
    EXPECT_THAT(sample({L"exit"}, 4).folded, Contains(HasSubstr(";Shares.Run;Shares.In")));
}

TEST_P(Profiling, IsWrittenWhenAnExceptionEndsTheProgram) {
    EXPECT_THAT(sample({L"throw"}, 0xE0434352).folded,
                Contains(HasSubstr(";Shares.Run;Shares.In")));
}

// The first line is of the run without the profiler.
TEST_P(Profiling, IsOfferedToPrograms) {
    const fs::path results = folder() / "results.txt";
    run({L"own", results.wstring()}, {}, 3);
    EXPECT_THAT(lines_of(read_file(results)),
                ElementsAre(StartsWith("CorvaneProfiler.dll is not in this process: "
                                       "CORECLR_ENABLE_PROFILING is not 1."),
                            "no failure", "watched", "in order", "now",
                            "Shares.Run Shares.In* Shares.Spin", "cost"));
}

// A thread that stayed suspended would keep the process from ending.
TEST_P(Profiling, EndsWithTheProgram) {
    for (int i = 0; i < 5; ++i) {
        run({L"forgotten"}, {}, 3);
    }
}

TEST_P(Profiling, SaysWhyItIsNotToBeHad) {
    enable("Disabled");
    const fs::path results = folder() / "results.txt";
    run({L"own", results.wstring()}, {}, 3);
    EXPECT_THAT(lines_of(read_file(results)),
                ElementsAre(::testing::_, HasSubstr("agent.config does not enable profiled.exe")));
}

} // namespace
} // namespace corvane::testing
