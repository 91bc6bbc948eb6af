// The choice of methods in a real runtime: which ones the log names when a program calls methods of
// the target table, real ones and stand-ins, and that the program does not notice.
// Methods that were chosen for their attribute are named at a level that a default log leaves out;
// chooser.dll, the same decision with another entry behind it, shows those.
#include "base/hresult_text.h"
#include "tests/support/runtime_test.h"

#include <algorithm>
#include <iterator>

namespace corvane::testing {
namespace {

// One compilation a method: no tiers, nothing inlined.
const Environment kCompiledOnce = {{L"DOTNET_TieredCompilation", L"0"}};
constexpr char kNoInlining[] = "<add key='Inlining' value='Disabled'/>";

// Runs the program and gives the lines that follow its own entry point's.
class SelectionTest : public RuntimeTest {
protected:
    Lines chosen(const wchar_t* what, const std::string& settings = "",
                 const Environment& environment = {}) {
        program = L"selected";
        configure("<configuration><appSettings>" + settings +
                  "</appSettings><instrumentation><applications><application name='program.exe' "
                  "corvane='Enabled'/></applications></instrumentation></configuration>");
        Lines log = watch({.arguments = {what}, .environment = environment, .exit_code = 3}).log;
        const Lines start = traced_log();
        if (!std::equal(start.begin(), start.end(), log.begin(),
                        log.begin() +
                            static_cast<std::ptrdiff_t>(std::min(start.size(), log.size())))) {
            ADD_FAILURE() << ::testing::PrintToString(log);
            return {};
        }
        log.erase(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(start.size()));
        std::erase_if(log, [](const std::wstring& line) {
            return line.starts_with(L'[') && line.ends_with(kLeftWithoutLibrary);
        });
        return log;
    }

    static std::wstring inserting(const std::wstring& name) {
        return L"===================Inserting prologue for: " + name;
    }

    static Lines inserting(std::initializer_list<const wchar_t*> names) {
        Lines lines;
        for (const wchar_t* const name : names) {
            lines.push_back(inserting(std::wstring(name)));
        }
        return lines;
    }

    // Of methods that the runtime has precompiled code for.
    static Lines refusing_and_inserting(const std::wstring& assembly,
                                        std::initializer_list<const wchar_t*> names) {
        Lines lines;
        for (const std::wstring name : names) {
            lines.push_back(L"UseCachedFunction(" + assembly + L", " + name + L")=False");
            lines.push_back(inserting(name));
        }
        return lines;
    }
};

class Selection : public SelectionTest, public ::testing::WithParamInterface<int> {
protected:
    void SetUp() override { use_runtime(GetParam()); }

    // A call of each command, some through more than one overload: compiled once each.
    static Lines database_lines() {
        constexpr const wchar_t* kCommand = L"System.Data.SqlClient.SqlCommand.";
        Lines lines;
        for (const wchar_t* const method :
             {L"ExecuteReader", L"ExecuteReader", L"ExecuteScalar", L"ExecuteNonQuery",
              L"ExecuteXmlReader", L"BeginExecuteReader", L"BeginExecuteNonQuery",
              L"BeginExecuteXmlReader"}) {
            lines.push_back(inserting(std::wstring(kCommand) + method));
        }
        return lines;
    }

    static Lines web_lines() {
        return refusing_and_inserting(L"System.Net.Requests",
                                      {L"System.Net.HttpWebRequest.GetResponse",
                                       L"System.Net.HttpWebRequest.BeginGetResponse",
                                       L"System.Net.HttpWebRequest.EndGetResponse",
                                       L"System.Net.HttpWebRequest.GetRequestStream"});
    }

    static Lines shapes_lines() {
        return inserting({L"Shapes.Static.Main", L"Nested.Main",
                          // A generic method is compiled for references and for each value type.
                          L"Corvane.Instrumentation.MethodArguments.InstrumentedMethod",
                          L"Corvane.Instrumentation.MethodArguments.InstrumentedMethod"});
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Selection, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Selection, TakesDatabaseCommands) {
    EXPECT_EQ(chosen(L"database", kNoInlining, kCompiledOnce), database_lines());
}

// What is called a few times only stays in its first tier.
TEST_P(Selection, TakesDatabaseCommandsInTiers) {
    EXPECT_EQ(chosen(L"database"), database_lines());
}

TEST_P(Selection, TakesWebRequestsFromTheirPrecompiledCode) {
    EXPECT_EQ(chosen(L"web", kNoInlining, kCompiledOnce), web_lines());
}

TEST_P(Selection, TakesWebRequestsInTiers) {
    EXPECT_EQ(chosen(L"web"), web_lines());
}

TEST_P(Selection, TakesWebRequestsWithoutPrecompiledCode) {
    Lines lines = web_lines();
    std::erase_if(lines, [](const std::wstring& line) { return line.starts_with(L"Use"); });
    EXPECT_EQ(chosen(L"web", kNoInlining,
                     {{L"DOTNET_TieredCompilation", L"0"}, {L"DOTNET_ReadyToRun", L"0"}}),
              lines);
}

TEST_P(Selection, TakesStaticMainsOnly) {
    EXPECT_EQ(chosen(L"shapes", kNoInlining, kCompiledOnce), shapes_lines());
}

TEST_P(Selection, TakesStaticMainsInTiers) {
    EXPECT_EQ(chosen(L"shapes"), shapes_lines());
}

TEST_P(Selection, TakesAHotMethodOnceWithoutTiers) {
    EXPECT_EQ(chosen(L"hot", kNoInlining, kCompiledOnce),
              inserting({L"Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod"}));
}

// Called from the first tier at once, counted from the first call, compiled again on the thirtieth,
// and not a third time, which only profile-guided optimisation would do.
TEST_P(Selection, TakesAHotMethodOnceATier) {
    EXPECT_EQ(chosen(L"hot", "",
                     {{L"DOTNET_TieredPGO", L"0"},
                      {L"DOTNET_TC_CallCountingDelayMs", L"0"},
                      {L"DOTNET_TC_BackgroundWorkerTimeoutMs", L"0"}}),
              inserting({L"Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod",
                         L"Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod"}));
}

// --- Logging libraries, by the switches

struct LoggingRow : NamedRow {
    const char* settings;
    Lines chosen;
};

const LoggingRow kLoggingRows[] = {
    {{"None"}, "", {}},
    {{"OtherValues"},
     "<add key='InsertLogTraceIdIntoLogs' value='enabled'/>"
     "<add key='AddAttributeLogTraceId' value='1'/>",
     {}},
    {{"Insert"},
     "<add key='InsertLogTraceIdIntoLogs' value='Enabled'/>",
     {L"Serilog.Context.LogContext.Enrich",
      L"Serilog.Formatting.Display.MessageTemplateTextFormatter..ctor",
      L"log4net.Core.LoggerManager.GetLogger", L"log4net.Layout.SimpleLayout.Format",
      L"log4net.Layout.Pattern.PropertyPatternConverter.Convert"}},
    {{"Add"},
     "<add key='AddAttributeLogTraceId' value='Enabled'/>",
     {L"Serilog.Context.LogContext.Enrich",
      L"Serilog.Formatting.Compact.CompactJsonFormatter.Format",
      L"Serilog.Sinks.Murrel.LogEventConverter.CreateMurrelEvent",
      L"log4net.Repository.Hierarchy.Logger.CallAppenders",
      L"log4net.Layout.Pattern.PropertyPatternConverter.Convert"}},
    {{"Both"},
     "<add key='AddAttributeLogTraceId' value='Enabled'/>"
     "<add key='InsertLogTraceIdIntoLogs' value='Enabled'/>",
     {L"Serilog.Context.LogContext.Enrich",
      L"Serilog.Formatting.Compact.CompactJsonFormatter.Format",
      L"Serilog.Sinks.Murrel.LogEventConverter.CreateMurrelEvent",
      L"Serilog.Formatting.Display.MessageTemplateTextFormatter..ctor",
      L"log4net.Core.LoggerManager.GetLogger", L"log4net.Layout.SimpleLayout.Format",
      L"log4net.Repository.Hierarchy.Logger.CallAppenders",
      L"log4net.Layout.Pattern.PropertyPatternConverter.Convert"}},
};

class LoggingLibraries : public SelectionTest,
                         public ::testing::WithParamInterface<std::tuple<int, LoggingRow>> {
protected:
    void SetUp() override { use_runtime(std::get<0>(GetParam())); }
    static const LoggingRow& row() { return std::get<1>(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Switches, LoggingLibraries,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kLoggingRows)),
                         row_name<LoggingRow>);

TEST_P(LoggingLibraries, AreTakenBySwitch) {
    Lines lines;
    for (const std::wstring& name : row().chosen) {
        lines.push_back(inserting(name)); // the program calls them in the table's order
    }
    EXPECT_EQ(chosen(L"logging", row().settings), lines);
}

// --- What is handed to rewriting, and in which mode

TEST_P(Selection, HandsOverMarkedMethodsInTheirOwnMode) {
    program = L"selected";
    library = built_file(L"chooser.dll");
    configure("");
    const Watched run = watch({.arguments = {L"shapes"},
                               .environment = kCompiledOnce,
                               .with_witness = false,
                               .exit_code = 3});
    Lines choices;
    std::copy_if(run.log.begin(), run.log.end(), std::back_inserter(choices),
                 [](const std::wstring& line) { return line.starts_with(L"chosen"); });
    // Neither the generic methods with the attribute nor the transparent one.
    EXPECT_EQ(choices,
              (Lines{L"chosen in mode 0: Program.Main", L"chosen in mode 0: Shapes.Static.Main",
                     L"chosen in mode 0: Nested.Main", L"chosen in mode 1: Shapes.Marked..ctor",
                     L"chosen in mode 1: Shapes.Marked.Plain",
                     L"chosen in mode 0: "
                     L"Corvane.Instrumentation.MethodArguments.InstrumentedMethod",
                     L"chosen in mode 0: "
                     L"Corvane.Instrumentation.MethodArguments.InstrumentedMethod"}));
}

// --- Transparency, by the switch

struct TransparencyRow : NamedRow {
    const char* settings;
    bool is_chosen;
};

const TransparencyRow kTransparencyRows[] = {
    {{"None"}, "", false},
    {{"Zero"}, "<add key='SecurityTransparencyInstrumentation' value='0'/>", false},
    {{"One"}, "<add key='SecurityTransparencyInstrumentation' value='1'/>", true},
    {{"Two"}, "<add key='SecurityTransparencyInstrumentation' value='2'/>", true},
};

class TransparentMethods : public SelectionTest,
                           public ::testing::WithParamInterface<std::tuple<int, TransparencyRow>> {
protected:
    void SetUp() override { use_runtime(std::get<0>(GetParam())); }
    static const TransparencyRow& row() { return std::get<1>(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Values, TransparentMethods,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kTransparencyRows)),
                         row_name<TransparencyRow>);

// A method with the attribute, then one of an assembly with it; both are in the target table.
TEST_P(TransparentMethods, AreTakenBySwitch) {
    const std::wstring skipped =
        std::wstring(L"it is transparent (") + hresult_text(S_OK).c_str() + L")";
    EXPECT_EQ(chosen(L"transparent", row().settings),
              row().is_chosen
                  ? inserting({L"Corvane.Instrumentation.MultipleExitPoints.SomeVoidMethod",
                               L"Corvane.BVT.Activator.Activate"})
                  : (Lines{skipped, skipped}));
}

} // namespace
} // namespace corvane::testing
