// Start-up in a real runtime: what is logged, subscribed and delivered, and that the program does
// not notice.
#include "tests/support/runtime_test.h"

namespace corvane::testing {
namespace {

constexpr char kListed[] = "<configuration><instrumentation><applications>"
                           "<application name='program.exe' corvane='Enabled'/>"
                           "</applications></instrumentation></configuration>";

class StartUp : public EachRuntimeTest {};
INSTANTIATE_TEST_SUITE_P(Runtimes, StartUp, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(StartUp, IsLoggedWhenTheRuntimeLoadsTheLibraryItself) {
    configure(kListed);
    EXPECT_EQ(watch({.with_witness = false}).log, traced_log());
}

TEST_P(StartUp, SubscribesAndIsCalled) {
    configure(kListed);
    expect_traced(watch(), traced_log());
}

TEST_P(StartUp, LeavesTheExitCode) {
    configure(kListed);
    expect_traced(watch({.arguments = {L"77"}, .exit_code = 77}), traced_log());
}

TEST_P(StartUp, LeavesAnExceptionThatNobodyCatches) {
    configure(kListed);
    const Watched run = watch({.arguments = {L"throw"}, .exit_code = 0xE0434352});
    EXPECT_EQ(run.log, traced_log());
    EXPECT_EQ(run.started, S_OK);
    EXPECT_EQ(run.events, kDefaultEvents);
}

TEST_P(StartUp, WorksWithoutTiers) {
    configure(kListed);
    expect_traced(watch({.environment = {{L"DOTNET_TieredCompilation", L"0"}}}), traced_log());
}

TEST_P(StartUp, WorksWithoutPrecompiledCode) {
    configure(kListed);
    const Watched usual = watch();
    const Watched run = watch({.environment = {{L"DOTNET_ReadyToRun", L"0"}}});
    expect_traced(run, traced_log());
    EXPECT_GT(run.compilations, usual.compilations);
}

TEST_P(StartUp, LeavesNothingBehindWhenItRefusesTenTimes) {
    configure("<configuration><instrumentation><applications/></instrumentation></configuration>");
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(watch({.with_witness = false}).log, refused_log());
    }
}

struct SwitchRow : NamedRow {
    const char* application_attributes;
    const char* settings;
    DWORD events;
};

const SwitchRow kSwitchRows[] = {
    {"None", "", "", 0x10020224},
    {"InliningOfTheApplication", "inlining='Disabled'", "", 0x10220224},
    {"InliningOfTheApplicationOtherValue", "inlining='disabled'", "", 0x10020224},
    {"Inlining", "", "<add key='Inlining' value='Disabled'/>", 0x10220224},
    {"FirstInliningDecides", "",
     "<add key='Inlining' value='Enabled'/><add key='Inlining' value='Disabled'/>", 0x10020224},
    {"Transparency2", "", "<add key='SecurityTransparencyInstrumentation' value='2'/>", 0x50020224},
    {"Transparency1", "", "<add key='SecurityTransparencyInstrumentation' value='1'/>", 0x10020224},
    {"InliningAndTransparency2", "",
     "<add key='Inlining' value='Disabled'/>"
     "<add key='SecurityTransparencyInstrumentation' value='2'/>",
     0x50220224},
    {"LogTraceIds", "",
     "<add key='InsertLogTraceIdIntoLogs' value='Enabled'/>"
     "<add key='AddAttributeLogTraceId' value='Enabled'/>",
     0x10020224},
};

class Switches : public EachRuntimeRowTest<SwitchRow> {};
INSTANTIATE_TEST_SUITE_P(Rows, Switches,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kSwitchRows)),
                         row_name<SwitchRow>);

TEST_P(Switches, GiveTheEventMask) {
    configure(std::string("<configuration><appSettings>") + row().settings +
              "</appSettings><instrumentation><applications><application name='program.exe' "
              "corvane='Enabled' " +
              row().application_attributes + "/></applications></instrumentation></configuration>");
    expect_traced(watch(), traced_log(), row().events);
}

} // namespace
} // namespace corvane::testing
