// A program that was compiled against the managed library, in the forms in which programs are
// published: it runs as it does plain, whatever lies beside it.
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

namespace corvane::testing {
namespace {

using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kConfiguration = "<configuration><instrumentation><applications>"
                                       "<application name='published.exe' corvane='Enabled'/>"
                                       "</applications></instrumentation></configuration>";

Launch strict() {
    return {.executable = L"published.exe",
            .environment = {{L"CORVANE_STRICT_IL", L"1"}},
            .exit_code = 42};
}

struct Beside : NamedRow {
    const wchar_t* variant; // of the library; null: a text
    const wchar_t* reason;
};

class PublishedWithLibrary : public EachRuntimeRowTest<Beside> {};
constexpr Beside kBeside[] = {
    {{"Text"}, nullptr, L"cannot be read as an assembly"},
    {{"Older"}, L"older", L"is of version 3.8.9.9"},
    {{"OtherKey"}, L"other-key", L"is signed with another key"},
    {{"NoDirectives"},
     L"no-directives",
     L"lacks Corvane.Instrumentation.InstrumentationDirectives"},
    {{"NoEpilogue"}, L"no-epilogue", L"lacks kite.managed.span::GenericEpilogue"},
};
INSTANTIATE_TEST_SUITE_P(Runtimes, PublishedWithLibrary,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kBeside)),
                         row_name<Beside>);

TEST_P(PublishedWithLibrary, IsLeftAsItIs) {
    configure(kConfiguration);
    program = L"published";
    const auto beside = program_folder() / "kite.managed.dll";
    if (row().variant == nullptr) {
        write_file(beside, "a text");
    } else {
        std::filesystem::copy_file(built_file(L"managed") / "variants" / row().variant /
                                       "kite.managed.dll",
                                   beside, std::filesystem::copy_options::overwrite_existing);
    }
    const Lines log = watch(strict()).log;
    const std::wstring left = L"Left as it is: " + beside.wstring() + L' ' + row().reason;
    EXPECT_THAT(log, Contains(L"[published]Program:Main() : " + left));
    EXPECT_THAT(log, Contains(L"[published]Orders:Total() : " + left));
}

class Published : public EachRuntimeTest {};
INSTANTIATE_TEST_SUITE_P(Runtimes, Published, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Published, IsInstrumentedWithTheLibraryBesideIt) {
    configure(kConfiguration);
    program = L"published";
    EXPECT_THAT(watch(strict()).log, Not(Contains(HasSubstr(L"Left as it is"))));
}

struct Form : NamedRow {
    const wchar_t* folder;
    const wchar_t* reason; // null: the method is instrumented
    bool with_hook = false;
};

class PublishedForm : public RuntimeTest, public ::testing::WithParamInterface<Form> {
protected:
    void SetUp() override { use_runtime(10); }
};
constexpr Form kForms[] = {
    {{"ReadyToRun"}, L"published_ReadyToRun", nullptr},
    {{"SingleFile"},
     L"published_SingleFile",
     L"kite.managed is not loaded; name its file in DOTNET_STARTUP_HOOKS"},
    {{"SingleFileWithHook"}, L"published_SingleFileAlone", nullptr, true},
    {{"Trimmed"},
     L"published_Trimmed",
     L"the program's mscorlib is not there; publish it without trimming"},
    {{"TrimmedWithHook"},
     L"published_TrimmedWithHook",
     L"the program's mscorlib is not there; publish it without trimming",
     true},
};
INSTANTIATE_TEST_SUITE_P(Forms, PublishedForm, ::testing::ValuesIn(kForms),
                         [](const auto& form) { return std::string(form.param.name); });

TEST_P(PublishedForm, RunsAsItDoesPlain) {
    configure(kConfiguration);
    program = GetParam().folder;
    Launch launch = strict();
    if (GetParam().with_hook) {
        launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
    }
    const Lines log = watch(launch).log;
    if (GetParam().reason != nullptr) {
        EXPECT_THAT(log, Contains(EndsWith(GetParam().reason)));
    } else {
        EXPECT_THAT(log, Not(Contains(HasSubstr(L"Left as it is"))));
    }
}

class TrimmedWithHook : public RuntimeTest {
protected:
    void SetUp() override { use_runtime(10); }
};

// Without a configuration: under the profiler such a short program may be over before a sample.
TEST_F(TrimmedWithHook, SaysInOneLineWhyItIsNotSampled) {
    program = L"published_TrimmedWithHook";
    Launch launch = strict();
    launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
    launch.environment[L"CORVANE_SAMPLE"] = L"samples";
    launch.with_witness = false; // which would stay in the process
    launch.opening = "kite.managed: no samples are taken: CorvaneProfiler.dll is not in this "
                     "process: it left because there is no " +
                     (home / "agent.config").string() +
                     ". Write it, and list published.exe in it.\r\n";
    watch(launch);
    EXPECT_FALSE(std::filesystem::exists(program_folder() / "samples"));
}

} // namespace
} // namespace corvane::testing
