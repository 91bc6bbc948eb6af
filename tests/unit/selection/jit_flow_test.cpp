#include "selection/jit_flow.h"

#include "base/hresult_text.h"
#include "selection/method_outcomes.h"
#include "selection/method_patterns.h"
#include "selection/target_methods.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_method.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace corvane {
namespace {

using testing::DebugOutput;
using testing::FakeMethod;

constexpr wchar_t kTrace[] = L"Corvane.Instrumentation.TraceAttribute";
constexpr SelectionSettings kTransparentToo = {.transparency_instrumentation = true};
constexpr SelectionSettings kStrict = {.strict = true};
constexpr wchar_t kTransparent[] = L"System.Security.SecurityTransparentAttribute";

std::wstring text_of(HRESULT hr) {
    return hresult_text(hr).c_str();
}

// What rewriting was called with last, and how often; and what it does about it.
struct Rewriting {
    int calls = 0;
    InstrumentationMode mode{};
    ICorProfilerInfo* info = nullptr;
    std::wstring method;
    bool context_agrees = false;
    HRESULT result = S_OK;
    bool throws = false;
    bool says_something = false; // through the channel of the context
    bool mutes_details = false;  // of that channel: all but level 1
} rewriting;

HRESULT rewrite(RewriteContext& context, ICorProfilerInfo* info, const method_info& method,
                InstrumentationMode mode) {
    ++rewriting.calls;
    rewriting.mode = mode;
    rewriting.info = info;
    rewriting.method = method.type_name;
    (rewriting.method += L'.') += method.method_name;
    rewriting.context_agrees = context.info == info && &context.method == &method;
    if (rewriting.says_something) {
        context.log.log(3, L"rewriting");
        context.log.log(4, L"detail");
    }
    if (rewriting.mutes_details) {
        context.log = DebugLog(L"[context] ", 1);
    }
    if (rewriting.throws) {
        throw std::length_error("too long");
    }
    return rewriting.result;
}

class JitFlow : public ::testing::Test {
protected:
    JitFlow() {
        rewriting = {};
        build_target_methods({});
    }
    ~JitFlow() override {
        target_methods.clear();
        method_patterns = MethodPatterns();
        default_log = DebugLog();
        EXPECT_EQ(runtime.references, 1U);
        EXPECT_EQ(runtime.metadata_references, 1U);
    }

    void name(const wchar_t* type, const wchar_t* method) {
        runtime.type_name = type;
        runtime.method_name = method;
    }
    void name_a_target() { name(L"System.Net.HttpWebRequest", L"GetResponse"); }
    void mark(const wchar_t* attribute, mdToken owner = FakeMethod::kMethodToken) {
        runtime.attributes.push_back({owner, attribute});
    }
    static void choose_by_name(const wchar_t* patterns) {
        method_patterns.append(
            patterns, [](std::wstring_view, const wchar_t*) { ADD_FAILURE() << "left out"; });
    }
    static void log_details() { default_log = DebugLog(L"", 4); }

    void compile(const SelectionSettings& settings = {}) {
        on_jit_compilation_started(&runtime, FakeMethod::kFunction, settings, rewrite);
    }

    // What stands in the runtime's answer afterwards: not TRUE or FALSE, where nothing was written.
    static constexpr BOOL kUntouched = 5;
    BOOL search(const SelectionSettings& settings = {}) {
        BOOL use = kUntouched;
        on_cached_function_search_started(&runtime, FakeMethod::kFunction, settings, &use);
        return use;
    }
    BOOL inlining(const SelectionSettings& settings) {
        BOOL should_inline = kUntouched;
        on_jit_inlining(&runtime, FakeMethod::kFunction, settings, &should_inline);
        return should_inline;
    }

    // Expects that the method was handed to rewriting, once.
    void expect_rewritten(InstrumentationMode mode) const {
        EXPECT_EQ(rewriting.calls, 1);
        EXPECT_EQ(rewriting.mode, mode);
        EXPECT_EQ(rewriting.info, &runtime);
        EXPECT_EQ(rewriting.method, runtime.type_name + L'.' + runtime.method_name);
        EXPECT_TRUE(rewriting.context_agrees);
    }
    void expect_left_alone() const { EXPECT_EQ(rewriting.calls, 0); }

    std::wstring inserting() const {
        return L"===================Inserting prologue for: " + runtime.type_name + L'.' +
               runtime.method_name + L'\n';
    }

    FakeMethod runtime;
    DebugOutput output;
};

// --- JITCompilationStarted

TEST_F(JitFlow, LeavesTheOrdinaryMethodWithoutAWord) {
    log_details();
    compile();
    expect_left_alone();
    EXPECT_EQ(output.text(), L"");
}

TEST_F(JitFlow, AllocatesNothingForTheOrdinaryMethod) {
    runtime.writes_down = false;
    for (const std::size_t length : {3U, 60U, 190U}) {
        runtime.type_name.assign(length, L't');
        runtime.method_name.assign(length, L'm');
        runtime.module_name.assign(length, L'f');
        runtime.assembly_name.assign(length, L'a');
        const std::size_t before = testing::allocations();
        runtime.forget_calls();
        compile();
        runtime.forget_calls();
        search();
        EXPECT_EQ(testing::allocations(), before) << length;
    }
    // The counter counts: a method that is chosen is logged.
    name_a_target();
    const std::size_t before = testing::allocations();
    runtime.forget_calls();
    compile();
    EXPECT_GT(testing::allocations(), before);
}

TEST_F(JitFlow, LeavesAMethodThatCannotBeDescribed) {
    name_a_target();
    runtime.results = {{0, E_ACCESSDENIED}};
    compile();
    expect_left_alone();
    const std::wstring text = text_of(E_ACCESSDENIED);
    EXPECT_EQ(output.text(), L"[]method_info:() : Failed to query IMetaDataImport interface (" +
                                 text + L")\n[]method_info:() : get_class_method_info() failed (" +
                                 text + L")\nFailed to create method info (" + text + L")\n");
}

TEST_F(JitFlow, RewritesATargetMethod) {
    name_a_target();
    compile();
    expect_rewritten(InstrumentationMode::kTable);
    EXPECT_EQ(output.text(), inserting());
}

TEST_F(JitFlow, RewritesAnEntryPoint) {
    name(L"Any.Program", L"Main");
    runtime.signature = {0x00, 0x01, 0x08, 0x1D, 0x0E};
    compile();
    expect_rewritten(InstrumentationMode::kTable);
    EXPECT_EQ(output.text(), inserting());
}

TEST_F(JitFlow, LeavesAnInstanceMain) {
    name(L"Any.Program", L"Main");
    compile();
    expect_left_alone();
    EXPECT_EQ(output.text(), L"");
}

TEST_F(JitFlow, RewritesAMarkedMethod) {
    mark(kTrace);
    compile();
    expect_rewritten(InstrumentationMode::kAttribute);
    EXPECT_EQ(output.text(), L""); // a detail
}

TEST_F(JitFlow, SaysSoOfAMarkedMethodAsADetail) {
    log_details();
    mark(kTrace);
    compile();
    expect_rewritten(InstrumentationMode::kAttribute);
    EXPECT_EQ(output.text(), inserting());
}

TEST_F(JitFlow, LetsTheTableAndTheEntryPointPrecedeTheAttribute) {
    mark(kTrace);
    name_a_target();
    compile();
    expect_rewritten(InstrumentationMode::kTable);
    EXPECT_EQ(output.text(), inserting());
}

TEST_F(JitFlow, TakesAMarkedStaticMainForAnEntryPoint) {
    mark(kTrace);
    name(L"Program", L"Main");
    runtime.signature = {0x00, 0x00, 0x01};
    compile();
    expect_rewritten(InstrumentationMode::kTable);
}

TEST_F(JitFlow, TakesAMarkedInstanceMainForAMarkedMethod) {
    mark(kTrace);
    name(L"Program", L"Main");
    compile();
    expect_rewritten(InstrumentationMode::kAttribute);
}

TEST_F(JitFlow, LeavesAMarkedGenericMethod) {
    log_details();
    mark(kTrace);
    runtime.signature = {0x30, 0x01, 0x01, 0x01, 0x1E, 0x00};
    compile();
    expect_left_alone();
    EXPECT_EQ(output.text(), L"Method Shop.Orders.Place not traced because it has generic types\n");
}

TEST_F(JitFlow, CountsAMarkedGenericMethodAsLeft) {
    forget_method_outcomes();
    runtime.signature = {0x30, 0x01, 0x01, 0x01, 0x1E, 0x00};
    compile();
    EXPECT_EQ(method_outcomes().left, 0U);
    mark(kTrace);
    compile();
    compile();
    EXPECT_EQ(method_outcomes(), (MethodOutcomes{0, 1, 1, L"it has generic types"}));
    forget_method_outcomes();
}

TEST_F(JitFlow, SaysNothingOfAMarkedGenericMethodByDefault) {
    mark(kTrace);
    runtime.signature = {0x30, 0x01, 0x01, 0x01, 0x1E, 0x00};
    compile();
    expect_left_alone();
    EXPECT_EQ(output.text(), L"");
}

TEST_F(JitFlow, RewritesAGenericTargetOrEntryPoint) {
    name_a_target();
    runtime.signature = {0x30, 0x01, 0x01, 0x01, 0x1E, 0x00};
    compile();
    expect_rewritten(InstrumentationMode::kTable);
    rewriting = {};
    runtime.forget_calls();
    name(L"Program", L"Main");
    runtime.signature = {0x10, 0x01, 0x00, 0x01};
    compile();
    expect_rewritten(InstrumentationMode::kTable);
}

TEST_F(JitFlow, RewritesTopLevelStatementsInStrictForm) {
    name(L"Program", L"<Main>$");
    runtime.signature = {0x00, 0x01, 0x01, 0x1D, 0x0E};
    compile();
    expect_left_alone();
    EXPECT_EQ(output.text(), L"");
    runtime.forget_calls();
    compile(kStrict);
    expect_rewritten(InstrumentationMode::kTable);
    EXPECT_EQ(output.text(), inserting());
}

TEST_F(JitFlow, LeavesAnInstanceMethodNamedLikeTopLevelStatements) {
    name(L"Program", L"<Main>$");
    compile(kStrict);
    expect_left_alone();
}

// --- Patterns

TEST_F(JitFlow, RewritesAMethodThatAPatternMatchesLikeAMarkedOne) {
    choose_by_name(L"Shop.Orders.Pl*");
    compile();
    expect_rewritten(InstrumentationMode::kAttribute);
    EXPECT_EQ(output.text(), L""); // a detail
    log_details();
    runtime.forget_calls();
    compile();
    EXPECT_EQ(output.text(), inserting());
}

TEST_F(JitFlow, LeavesAGenericMethodThatAPatternMatches) {
    log_details();
    choose_by_name(L"Shop.*");
    runtime.signature = {0x30, 0x01, 0x01, 0x01, 0x1E, 0x00};
    compile();
    expect_left_alone();
    EXPECT_EQ(output.text(), L"Method Shop.Orders.Place not traced because it has generic types\n");
}

TEST_F(JitFlow, LeavesWhatAPatternExcludesButNoOtherRule) {
    choose_by_name(L"Shop.*; !Shop.Orders.*; !System.*");
    compile();
    expect_left_alone();
    runtime.forget_calls();
    name_a_target();
    compile();
    expect_rewritten(InstrumentationMode::kTable);
    rewriting = {};
    runtime.forget_calls();
    name(L"Shop.Orders", L"Place");
    mark(kTrace);
    compile();
    expect_rewritten(InstrumentationMode::kAttribute);
}

TEST_F(JitFlow, ChoosesNothingByNameInTheLibrariesBelowInjectedCode) {
    choose_by_name(L"*");
    for (const wchar_t* const assembly : {L"kite.managed", L"System.Private.CoreLib"}) {
        runtime.assembly_name = assembly;
        runtime.forget_calls();
        compile(kStrict);
        runtime.forget_calls();
        EXPECT_EQ(search(kStrict), kUntouched);
        runtime.forget_calls();
        EXPECT_EQ(inlining(kStrict), kUntouched);
    }
    expect_left_alone();
    EXPECT_EQ(method_patterns.never_matched().size(), 1U);
}

TEST_F(JitFlow, KeepsWhatAPatternMatchesVisibleInStrictFormOnly) {
    choose_by_name(L"Shop.Orders.Place");
    EXPECT_EQ(search(), kUntouched);
    runtime.forget_calls();
    EXPECT_EQ(search(kStrict), FALSE);
    EXPECT_EQ(output.text(), L"UseCachedFunction(Shop, Shop.Orders.Place)=False\n");
    runtime.forget_calls();
    EXPECT_EQ(inlining(kStrict), FALSE);
}

TEST_F(JitFlow, LeavesAMethodWhoseFullNameIsNotGiven) {
    choose_by_name(L"*");
    constexpr std::size_t kDescribed = 17; // calls: four more give the name
    for (std::size_t call = kDescribed; call < kDescribed + 4; ++call) {
        runtime.results = {{call, E_FAIL}};
        runtime.forget_calls();
        compile();
        expect_left_alone();
        EXPECT_EQ(output.text(), L"") << call;
    }
    runtime.results = {{kDescribed + 4, E_FAIL}}; // the type is not nested
    runtime.forget_calls();
    compile();
    expect_rewritten(InstrumentationMode::kAttribute);
}

// --- JITInlining

TEST_F(JitFlow, LetsTheRuntimeInlineInTheDefaultForm) {
    mark(kTrace);
    EXPECT_EQ(inlining({}), kUntouched);
    EXPECT_EQ(runtime.calls.size(), 0U); // not even a question
}

TEST_F(JitFlow, KeepsWhatIsChosenFromBeingInlinedInStrictForm) {
    log_details();
    EXPECT_EQ(inlining(kStrict), kUntouched);
    name_a_target();
    runtime.forget_calls();
    EXPECT_EQ(inlining(kStrict), FALSE);
    name(L"Shop.Orders", L"Place");
    mark(kTrace);
    runtime.forget_calls();
    EXPECT_EQ(inlining(kStrict), FALSE);
    runtime.signature = {0x30, 0x01, 0x01, 0x01, 0x1E, 0x00};
    runtime.forget_calls();
    EXPECT_EQ(inlining(kStrict), kUntouched);
    EXPECT_EQ(output.text(), L""); // the runtime asks too often for lines
}

TEST_F(JitFlow, LetsTheRuntimeInlineWhatCannotBeDescribed) {
    name_a_target();
    runtime.results = {{0, E_ACCESSDENIED}};
    EXPECT_EQ(inlining(kStrict), kUntouched);
}

// --- Transparency

class Transparent : public JitFlow, public ::testing::WithParamInterface<mdToken> {
protected:
    Transparent() { mark(kTransparent, GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Owners, Transparent,
                         ::testing::Values(FakeMethod::kMethodToken, FakeMethod::kAssemblyToken));

TEST_P(Transparent, IsLeftAloneWhateverChoosesIt) {
    const std::wstring line = L"it is transparent (" + text_of(S_OK) + L")\n";
    std::wstring lines;
    const auto expect_skipped = [&] {
        runtime.forget_calls();
        compile();
        expect_left_alone();
        EXPECT_EQ(output.text(), lines += line);
    };
    expect_skipped();
    name_a_target();
    expect_skipped();
    mark(kTrace);
    expect_skipped();
    name(L"Program", L"Main");
    runtime.signature = {0x00, 0x00, 0x01};
    expect_skipped();
}

TEST_P(Transparent, IsRewrittenWithTheSwitch) {
    name_a_target();
    compile(kTransparentToo);
    expect_rewritten(InstrumentationMode::kTable);
    EXPECT_EQ(output.text(), inserting());
}

TEST_P(Transparent, IsRewrittenByItsAttributeWithTheSwitch) {
    mark(kTrace);
    compile(kTransparentToo);
    expect_rewritten(InstrumentationMode::kAttribute);
    EXPECT_EQ(output.text(), L"");
}

TEST_P(Transparent, HasItsPrecompiledCodeRefusedLikeAnyOther) {
    name_a_target();
    EXPECT_EQ(search(), FALSE);
}

TEST_F(JitFlow, RewritesAMethodThatIsNotTransparentWithTheSwitch) {
    name_a_target();
    compile(kTransparentToo);
    expect_rewritten(InstrumentationMode::kTable);
}

// --- Failing rewriting

TEST_F(JitFlow, ReportsRewritingThatFailed) {
    name_a_target();
    rewriting.result = E_ACCESSDENIED;
    compile();
    const std::wstring text = L" (" + text_of(E_ACCESSDENIED) + L")\n";
    EXPECT_EQ(output.text(),
              inserting() +
                  L"[Shop]System.Net.HttpWebRequest:GetResponse() : Failed to create "
                  L"prologue/epilogue IL" +
                  text + L"Failed to create method body instrumenter" + text);
}

TEST_F(JitFlow, ReportsRewritingOfAMarkedMethodThatFailed) {
    mark(kTrace);
    rewriting.result = E_ACCESSDENIED;
    compile();
    const std::wstring text = L" (" + text_of(E_ACCESSDENIED) + L")\n";
    EXPECT_EQ(output.text(), L"[Shop]Shop.Orders:Place() : Failed to create prologue/epilogue IL" +
                                 text + L"Failed to create method body instrumenter(attribute)" +
                                 text);
}

TEST_F(JitFlow, TakesEverySuccessOfRewriting) {
    name_a_target();
    rewriting.result = S_FALSE;
    compile();
    EXPECT_EQ(output.text(), inserting());
}

TEST_F(JitFlow, TakesRewritingThatThrowsForOneThatFailed) {
    name_a_target();
    rewriting.throws = true;
    EXPECT_NO_THROW(compile());
    const std::wstring text = L" (" + text_of(E_OUTOFMEMORY) + L")\n";
    EXPECT_EQ(output.text(),
              inserting() +
                  L"[Shop]System.Net.HttpWebRequest:GetResponse() : Failed to create "
                  L"prologue/epilogue IL" +
                  text + L"Failed to create method body instrumenter" + text);
}

TEST_F(JitFlow, GivesRewritingAChannelUpToLevelThree) {
    mark(kTrace);
    rewriting.says_something = true;
    compile();
    EXPECT_EQ(output.text(), L"[Shop]Shop.Orders:Place() : rewriting\n");
}

TEST_F(JitFlow, TakesPercentSignsInNamesForText) {
    runtime.assembly_name = L"100%s";
    name(L"%n.Ty%pe", L"%s%s%s");
    mark(kTrace);
    log_details();
    rewriting.says_something = true;
    rewriting.result = E_FAIL;
    compile();
    const std::wstring text = L" (" + text_of(E_FAIL) + L")\n";
    EXPECT_EQ(output.text(),
              inserting() + L"[100%s]%n.Ty%pe:%s%s%s() : rewriting\n" +
                  L"[100%s]%n.Ty%pe:%s%s%s() : Failed to create prologue/epilogue IL" + text +
                  L"Failed to create method body instrumenter(attribute)" + text);
}

// --- Levels

// Zeros in its place would cut every line of the channel.
TEST_F(JitFlow, WritesWholeLinesAboutAMethodWhoseAssemblyHasNoName) {
    name_a_target();
    runtime.failing = "GetAssemblyInfo(A1, buffer";
    rewriting.says_something = true;
    compile();
    EXPECT_EQ(output.text(),
              inserting() + L"[]System.Net.HttpWebRequest:GetResponse() : rewriting\n");
}

TEST_F(JitFlow, WritesItsLinesAtLevelOne) {
    default_log = DebugLog(L"", 1);
    name_a_target();
    rewriting.result = E_ACCESSDENIED;
    rewriting.mutes_details = true;
    compile();
    const std::wstring text = L" (" + text_of(E_ACCESSDENIED) + L")\n";
    std::wstring expected = inserting() + L"[context] Failed to create prologue/epilogue IL" +
                            text + L"Failed to create method body instrumenter" + text;
    EXPECT_EQ(output.text(), expected);

    runtime.forget_calls();
    search();
    expected += L"UseCachedFunction(Shop, System.Net.HttpWebRequest.GetResponse)=False\n";
    EXPECT_EQ(output.text(), expected);

    name(L"Program", L"Main");
    runtime.signature = {0x00, 0x00, 0x01};
    rewriting.result = S_OK;
    runtime.forget_calls();
    compile();
    EXPECT_EQ(output.text(), expected += inserting());

    mark(kTransparent);
    runtime.forget_calls();
    compile();
    EXPECT_EQ(output.text(), expected += L"it is transparent (" + text_of(S_OK) + L")\n");
}

TEST_F(JitFlow, WritesItsLinesAboutAMarkedMethodThatFailedAtLevelOne) {
    default_log = DebugLog(L"", 1);
    mark(kTrace);
    rewriting.result = E_ACCESSDENIED;
    rewriting.mutes_details = true;
    compile();
    const std::wstring text = L" (" + text_of(E_ACCESSDENIED) + L")\n";
    EXPECT_EQ(output.text(), L"[context] Failed to create prologue/epilogue IL" + text +
                                 L"Failed to create method body instrumenter(attribute)" + text);
}

TEST_F(JitFlow, WritesAtLevelOneThatAMethodCannotBeDescribed) {
    default_log = DebugLog(L"", 1);
    runtime.results = {{0, E_FAIL}};
    const std::wstring line = L"Failed to create method info (" + text_of(E_FAIL) + L")\n";
    compile();
    EXPECT_TRUE(output.text().ends_with(line));
    const std::size_t length = output.text().size();
    runtime.forget_calls();
    search();
    EXPECT_TRUE(output.text().substr(length).ends_with(line));
}

TEST_F(JitFlow, NumbersItsModes) {
    EXPECT_EQ(static_cast<std::uint32_t>(InstrumentationMode::kTable), 0U);
    EXPECT_EQ(static_cast<std::uint32_t>(InstrumentationMode::kAttribute), 1U);
}

// --- JITCachedFunctionSearchStarted

class CachedSearch : public JitFlow {
protected:
    ~CachedSearch() override { expect_left_alone(); }
};

TEST_F(CachedSearch, RefusesPrecompiledCodeOfATarget) {
    name_a_target();
    EXPECT_EQ(search(), FALSE);
    EXPECT_EQ(output.text(),
              L"UseCachedFunction(Shop, System.Net.HttpWebRequest.GetResponse)=False\n");
}

TEST_F(CachedSearch, LeavesTheRuntimesAnswerForOthers) {
    log_details();
    EXPECT_EQ(search(), kUntouched);
    EXPECT_EQ(output.text(), L"");
}

TEST_F(CachedSearch, LeavesEntryPointsAndMarkedMethods) {
    mark(kTrace);
    EXPECT_EQ(search(), kUntouched);
    runtime.forget_calls();
    name(L"Program", L"Main");
    runtime.signature = {0x00, 0x00, 0x01};
    EXPECT_EQ(search(), kUntouched);
    EXPECT_EQ(output.text(), L"");
}

TEST_F(CachedSearch, LeavesAnotherOverload) {
    name(L"System.Net.HttpWebRequest", L"GetRequestStream");
    EXPECT_EQ(search(), kUntouched);
    runtime.forget_calls();
    runtime.signature = {0x20, 0x01, 0x12, 0x05, 0x10, 0x12, 0x09};
    EXPECT_EQ(search(), FALSE);
}

TEST_F(CachedSearch, ReportsAMethodThatCannotBeDescribed) {
    name_a_target();
    runtime.results = {{8, E_FAIL}};
    EXPECT_EQ(search(), kUntouched);
    const std::wstring text = text_of(E_FAIL);
    EXPECT_EQ(output.text(), L"[]method_info:() : get_module_info() failed (" + text +
                                 L")\nFailed to create method info (" + text + L")\n");
}

TEST_F(CachedSearch, RefusesPrecompiledCodeOfAllThatIsChosenInStrictForm) {
    mark(kTrace);
    EXPECT_EQ(search(kStrict), FALSE);
    EXPECT_EQ(output.text(), L"UseCachedFunction(Shop, Shop.Orders.Place)=False\n");
    runtime.forget_calls();
    name(L"Program", L"<Main>$");
    runtime.signature = {0x00, 0x00, 0x01};
    runtime.attributes.clear();
    EXPECT_EQ(search(kStrict), FALSE);
}

TEST_F(CachedSearch, LeavesWhatIsNotChosenInStrictForm) {
    EXPECT_EQ(search(kStrict), kUntouched);
    mark(kTrace);
    runtime.signature = {0x30, 0x01, 0x01, 0x01, 0x1E, 0x00};
    runtime.forget_calls();
    EXPECT_EQ(search(kStrict), kUntouched);
    mark(kTransparent);
    runtime.signature = {0x20, 0x00, 0x01};
    runtime.forget_calls();
    EXPECT_EQ(search(kStrict), kUntouched);
    EXPECT_EQ(output.text(), L"");
}

TEST_F(CachedSearch, TakesPercentSignsInNamesForText) {
    target_methods = {{L"%s.T.%d", {}}};
    runtime.assembly_name = L"%n";
    name(L"%s.T", L"%d");
    EXPECT_EQ(search(), FALSE);
    EXPECT_EQ(output.text(), L"UseCachedFunction(%n, %s.T.%d)=False\n");
}

} // namespace
} // namespace corvane
