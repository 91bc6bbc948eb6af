// Spans in a real runtime: that they are where the program's flow was, and last as long as its
// work.
#include "tests/support/otlp_file.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace corvane::testing {
namespace {

using ::testing::SizeIs;

constexpr int kLevels = 25;
constexpr std::size_t kItems = 200;
constexpr std::size_t kLetters = 20;
constexpr int kError = 2;

// The build of the library for .NET, and the other one, which .NET can use as well.
constexpr NamedRow kLibraries[] = {{"kite"}, {"kite_framework"}};

class Flows : public EachRuntimeRowTest<NamedRow> {
protected:
    // In the default form small methods are inlined, and others left as they are.
    void record() {
        configure("<configuration><instrumentation><applications>"
                  "<application name='flows.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        program = L"flows";
        const std::filesystem::path file = folder() / "spans.jsonl";
        watch({.executable = L"flows.exe",
               .environment =
                   {{L"CORVANE_STRICT_IL", L"1"},
                    {L"CORVANE_OTLP_FILE", file.wstring()},
                    {L"DOTNET_STARTUP_HOOKS",
                     (built_file(L"managed") / row().name / "kite.managed.dll").wstring()}},
               .with_witness = false,
               .with_debugger = false,
               .exit_code = 42});
        spans = read_otlp_file(file);
    }

    std::vector<OtlpSpan> children(const OtlpSpan& parent, const std::string& name) const {
        std::vector<OtlpSpan> found;
        std::ranges::copy_if(spans, std::back_inserter(found), [&](const OtlpSpan& span) {
            return span.parent == parent.id && span.name == "Flows." + name;
        });
        for (const OtlpSpan& child : found) {
            EXPECT_EQ(child.trace, parent.trace) << child.name;
            EXPECT_LE(parent.started, child.started) << child.name;
        }
        return found;
    }

    OtlpSpan only_child(const OtlpSpan& parent, const std::string& name) const {
        const std::vector<OtlpSpan> found = children(parent, name);
        EXPECT_THAT(found, SizeIs(1)) << name << " in " << parent.name;
        return found.empty() ? OtlpSpan() : found[0];
    }

    OtlpSpan main() const {
        const auto found = std::ranges::find(spans, "Flows.Main", &OtlpSpan::name);
        EXPECT_NE(found, spans.end());
        return found == spans.end() ? OtlpSpan() : *found;
    }

    std::vector<OtlpSpan> spans;
};
INSTANTIATE_TEST_SUITE_P(Libraries, Flows,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kLibraries)),
                         row_name<NamedRow>);

TEST_P(Flows, AreThoseOfTheProgram) {
    record();
    const OtlpSpan root = main();
    EXPECT_EQ(root.parent, "");

    const OtlpSpan chain = only_child(root, "Chain");
    EXPECT_EQ(chain.status, 0);
    OtlpSpan outer = chain;
    for (int level = 1; level <= kLevels; ++level) {
        const OtlpSpan inner = only_child(outer, "Level");
        EXPECT_EQ(inner.status, kError) << level;
        EXPECT_EQ(inner["error.type"], level > kLevels - 5 ? "System.FormatException"
                                                           : "System.InvalidOperationException")
            << level;
        EXPECT_LE(inner.ended, outer.ended) << level;
        outer = inner;
    }
    EXPECT_THAT(children(outer, "Level"), SizeIs(0));

    const std::vector<OtlpSpan> items = children(only_child(root, "Loop"), "Item");
    EXPECT_THAT(items, SizeIs(kItems));
    for (const OtlpSpan& item : items) {
        only_child(item, "Part");
    }

    const OtlpSpan exchange = only_child(root, "Exchange");
    EXPECT_THAT(children(only_child(exchange, "Read"), "Receive"), SizeIs(kLetters));
    EXPECT_THAT(children(only_child(exchange, "Write"), "Send"), SizeIs(kLetters));

    const OtlpSpan spread = only_child(root, "Spread");
    for (const char* const name : {"OnTimer", "OnThread", "OnPool", "OnTask"}) {
        only_child(spread, name);
    }

    EXPECT_NE(only_child(root, "Once")["corvane.ends_at_return"], "");

    EXPECT_EQ(spans.size(), 1 + 1 + kLevels + 1 + 2 * kItems + 3 + 2 * kLetters + 5 + 1);
    std::set<std::string> ids;
    std::ranges::transform(spans, std::inserter(ids, ids.end()), &OtlpSpan::id);
    EXPECT_EQ(ids.size(), spans.size());
}

} // namespace
} // namespace corvane::testing
