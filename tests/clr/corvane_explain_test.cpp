// corvane explain, as a user types it: its output on a program of every shape, and every way in
// which it refuses.
#include "tests/support/damaged_file.h"
#include "tests/support/debuggee.h"
#include "tests/support/fixtures.h"
#include "tests/support/real_methods.h"
#include "tests/support/runtime_test.h"
#include "tools/corvane/offline/offline_runtime.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <regex>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr DWORD kMisused = 2;
constexpr DWORD kMissing = 3;
constexpr DWORD kNotManaged = 4;
constexpr DWORD kDamaged = 5;
constexpr DWORD kNoRuntime = 6;
constexpr DWORD kNoConfiguration = 7;

class CorvaneExplain : public ::testing::Test {
protected:
    void SetUp() override {
        if (!runtime_) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
        }
    }

    // Gives what it prints, on both streams. Its runtime is that of the tests.
    std::string run(std::vector<std::wstring> arguments, DWORD exit_code = 0) const {
        DebuggeeOptions options;
        options.program = built_file(L"corvane.exe").wstring();
        options.arguments = {L"explain"};
        for (std::wstring& argument : arguments) {
            options.arguments.push_back(std::move(argument));
        }
        options.environment = {{L"DOTNET_ROOT", installation()}, {L"DOTNET_ROOT_X64", {}}};
        options.output_file = (folder_.path() / "output.txt").wstring();
        const DebuggeeResult result = run_debuggee(options);
        const std::string output = read_text(folder_.path() / "output.txt");
        EXPECT_EQ(result.exit_code, exit_code) << output;
        return output;
    }

    // A copy of an assembly, in a folder of its own: what is beside it counts as loaded.
    fs::path copy_of(const char* name, const fs::path& as) const {
        const fs::path copy = folder_.path() / as;
        fs::create_directories(copy.parent_path());
        fs::copy_file(built_file(fs::path(CORVANE_PROGRAMS_FOLDER).make_preferred()) / name, copy);
        return copy;
    }
    fs::path shapes() const { return copy_of("prepared/shapes.dll", "shapes.dll"); }

    std::wstring installation() const {
        return runtime_->parent_path().parent_path().parent_path().wstring();
    }

    // Without the head, which has the paths of this machine.
    static std::string portable(const std::string& output) {
        const auto behind = output.find("\r\n\r\n");
        EXPECT_NE(behind, output.npos);
        return std::regex_replace(output.substr(behind + 4), std::regex("\r\n"), "\n");
    }

    const OwnFolder folder_;
    const std::optional<fs::path> runtime_ = newest_runtime_folder();
};

constexpr const wchar_t* kPatterns = L"Shop.*; !*.Point";

TEST_F(CorvaneExplain, ShowsWhatIsChosenAndWhy) {
    const std::string output = run({shapes().wstring(), L"--method", kPatterns, L"--width", L"80"});
    expect_golden("explain/shapes.txt", portable(output));
    EXPECT_THAT(output, HasSubstr("shapes.dll, strict"));
    EXPECT_THAT(output, HasSubstr("Taken as loaded: kite.managed, all libraries beside the"));
}

TEST_F(CorvaneExplain, ShowsCodeOneUnderTheOther) {
    expect_golden("explain/code-80.txt",
                  portable(run({shapes().wstring(), L"--method", kPatterns, L"--width", L"80",
                                L"--il", L"--show", L"*.Price; *.Take; *.Filtered"})));
}

TEST_F(CorvaneExplain, ShowsCodeSideBySide) {
    expect_golden("explain/code-140.txt",
                  portable(run({shapes().wstring(), L"--method", kPatterns, L"--width", L"140",
                                L"--il", L"--show", L"*.Main; *.Never; *Line.Total"})));
}

TEST_F(CorvaneExplain, ShowsTheDefaultForm) {
    expect_golden("explain/default-form.txt",
                  portable(run({shapes().wstring(), L"--method", kPatterns, L"--width", L"80",
                                L"--default-form", L"--il", L"--show", L"*.Price; *Line.Total"})));
}

TEST_F(CorvaneExplain, FitsIntoItsWidth) {
    for (const std::wstring width : {L"60", L"80", L"120", L"200"}) {
        const std::string output =
            run({copy_of("matrix/crafted.dll", L"w" + width + L"/c.dll").wstring(), L"--method",
                 L"*", L"--width", width, L"--il"});
        EXPECT_GT(output.size(), 100'000U);
        std::istringstream lines(output);
        std::size_t longest = 0;
        for (std::string line; std::getline(lines, line);) {
            longest = std::max(longest, line.size() - (line.ends_with('\r') ? 1 : 0));
        }
        EXPECT_LE(longest, std::stoul(width)) << width;
    }
}

TEST_F(CorvaneExplain, ShowsTheSameAsJson) {
    const auto json = nlohmann::json::parse(run(
        {shapes().wstring(), L"--method", kPatterns, L"--show", L"Shop.*", L"--il", L"--json"}));
    EXPECT_TRUE(json["strict"]);
    EXPECT_EQ(json["counts"],
              (nlohmann::json{{"instrumented", 4}, {"left", 5}, {"not chosen", 2}}));
    ASSERT_EQ(json["methods"].size(), 10U);
    const auto& price = json["methods"][1];
    EXPECT_EQ(price["method"], "Shop.Program.Price");
    EXPECT_EQ(price["signature"], "int32 Price(int32)");
    EXPECT_EQ(price["rule"], "trace attribute");
    EXPECT_EQ(price["outcome"], "instrumented");
    EXPECT_EQ(price["before"][1], "IL_0000  ldarg.0");
    EXPECT_GT(price["after"].size(), price["before"].size());
    const auto& point = json["methods"][7];
    EXPECT_EQ(point["method"], "Shop.Program.Point");
    EXPECT_EQ(point["outcome"], "not chosen");
    EXPECT_FALSE(point.contains("rule"));
    EXPECT_FALSE(point.contains("after"));
    const auto& never = json["methods"][4];
    EXPECT_EQ(never["reason"], "it has no ret instruction");
}

TEST_F(CorvaneExplain, ReadsTheSwitchesOfAConfiguration) {
    const fs::path home = folder_.path() / "a home";
    fs::create_directories(home);
    write_file(home / "agent.config",
               "<configuration><appSettings><add key='SecurityTransparencyInstrumentation' "
               "value='1'/></appSettings></configuration>");
    const std::wstring transparent =
        copy_of("selected/transparent.dll", "transparent.dll").wstring();
    EXPECT_THAT(run({transparent, L"--method", L"*"}), HasSubstr("it is transparent"));
    EXPECT_THAT(run({transparent, L"--method", L"*", L"--config", home.wstring()}),
                Not(HasSubstr("it is transparent")));
}

TEST_F(CorvaneExplain, LeavesTheFileAsItIs) {
    const fs::path file = shapes();
    const std::string before = read_text(file);
    run({file.wstring(), L"--method", L"*"});
    EXPECT_EQ(read_text(file), before);
}

TEST_F(CorvaneExplain, TakesPathsOfEveryKind) {
    const fs::path file =
        copy_of("prepared/shapes.dll", fs::path(L"caf\u00E9 \u65E5\u672C") / L"my shapes.dll");
    EXPECT_THAT(run({file.wstring()}), HasSubstr("void Main(string[])"));
}

TEST_F(CorvaneExplain, RefusesAFileThatIsNotThere) {
    EXPECT_THAT(run({L"nowhere.dll"}, kMissing), EndsWith("nowhere.dll is not there\r\n"));
    EXPECT_THAT(run({folder_.path().wstring()}, kMissing), EndsWith(" is not there\r\n"));
}

TEST_F(CorvaneExplain, RefusesWhatIsNoAssembly) {
    write_file(folder_.path() / "text.dll", "no assembly");
    write_file(folder_.path() / "empty.dll", "");
    for (const fs::path& file :
         {folder_.path() / "text.dll", folder_.path() / "empty.dll", *runtime_ / "coreclr.dll"}) {
        EXPECT_THAT(run({file.wstring()}, kNotManaged), EndsWith(" is no .NET assembly\r\n"));
    }
    shapes();
    fs::copy_file(*runtime_ / "coreclr.dll", folder_.path() / "shapes.exe");
    EXPECT_THAT(run({(folder_.path() / "shapes.exe").wstring()}, kNotManaged),
                EndsWith(" is no .NET assembly; the methods are in shapes.dll\r\n"));
}

TEST_F(CorvaneExplain, RefusesADamagedAssembly) {
    const std::string whole = read_text(shapes());
    const fs::path damaged = folder_.path() / "damaged.dll";
    write_file(damaged, whole.substr(0, whole.size() / 2));
    EXPECT_THAT(run({damaged.wstring()}, kDamaged),
                EndsWith(" is damaged: its metadata cannot be read\r\n"));
    std::string other = whole; // without the streams that its metadata names
    const std::size_t metadata = whole.find("BSJB");
    ASSERT_NE(metadata, whole.npos);
    other.replace(metadata + 32, 100, 100, '\xFF');
    write_file(damaged, other);
    EXPECT_THAT(run({damaged.wstring()}, kDamaged),
                EndsWith(" is damaged: its metadata cannot be read\r\n"));
}

// The engine itself fails, with an access violation. The tests of damaged files print numbers of
// such damage.
TEST_F(CorvaneExplain, RefusesWhatTheEngineCannotBear) {
    constexpr std::uint32_t kFatalDamage = 7'595;
    const auto whole = *tool::read_file_bytes(shapes());
    const tool::AssemblyFile file(whole);
    const auto metadata = std::ranges::search(whole, file.metadata()).begin() - whole.begin();
    const auto bytes =
        damaged(whole, static_cast<std::size_t>(metadata), file.metadata().size(), kFatalDamage);
    const fs::path damaged_file = folder_.path() / "damaged.dll";
    write_file(damaged_file, std::string(bytes.begin(), bytes.end()));
    EXPECT_THAT(run({damaged_file.wstring(), L"--method", L"*", L"--il"}, kDamaged),
                EndsWith(" is damaged: its metadata cannot be read\r\n"));
}

TEST_F(CorvaneExplain, RefusesWithoutARuntime) {
    EXPECT_THAT(run({shapes().wstring(), L"--runtime", folder_.path().wstring()}, kNoRuntime),
                HasSubstr(" holds no .NET runtime for 64-bit Windows"));
    write_file(folder_.path() / "coreclr.dll", "no library");
    EXPECT_THAT(
        run({(folder_.path() / "shapes.dll").wstring(), L"--runtime", folder_.path().wstring()},
            kNoRuntime),
        HasSubstr(" cannot be loaded"));
}

// It may come from anywhere.
TEST_F(CorvaneExplain, RunsNoLibraryFromBesideTheAssembly) {
    write_file(folder_.path() / "coreclr.dll", "no library");
    EXPECT_THAT(run({shapes().wstring()}), HasSubstr("methods with code"));
}

TEST_F(CorvaneExplain, RefusesAMissingConfiguration) {
    EXPECT_THAT(run({shapes().wstring(), L"--config", folder_.path().wstring()}, kNoConfiguration),
                HasSubstr(" has no agent.config that can be read"));
}

TEST_F(CorvaneExplain, RefusesWhatItDoesNotKnow) {
    EXPECT_THAT(run({shapes().wstring(), L"--colour"}, kMisused), HasSubstr("--colour"));
    run({}, kMisused);
}

TEST_F(CorvaneExplain, NamesPatternsThatItLeavesOut) {
    EXPECT_THAT(run({shapes().wstring(), L"--method", std::wstring(1'001, L'x')}),
                HasSubstr("is left out: "));
}

} // namespace
} // namespace corvane::testing
