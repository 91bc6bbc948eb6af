#include "tools/corvane/watched_line.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

TEST(WatchedText, LeavesOutWhatATerminalWouldObey) {
    EXPECT_EQ(watched_text("> ", "a\x1B[31mb\x07\tc"), "> a[31mb\tc");
}

TEST(WatchedLine, BeginsWithAThread) {
    EXPECT_TRUE(is_profilers_line("1500 CClrProfiler::Initialize(): Invoked"));
    EXPECT_TRUE(is_profilers_line("[shop]Shop.Program:Main() : (99 bytes)\n    0x13"));
    for (const char* const other :
         {"", " ", "1500", "a 1", " 1500 a", "1500: a", "GC heap", "[shop] opens"}) {
        EXPECT_FALSE(is_profilers_line(other)) << other;
    }
}

TEST(WatchedLine, HasTheLevelOfItsText) {
    struct Row {
        int level;
        const char* line;
    };
    for (const Row& row : {
             Row{1, "12 CClrProfiler::Initialize(): Invoked"},
             Row{3, "12 CClrProfiler::Initialize(): after should trace"},
             Row{3, "12 [shop]Shop.Program:Main() : Instrumented, number 7"},
             Row{3, "[shop]Shop.Program:Main() : (99 bytes)\n    0x13"},
             Row{4, "12 CClrProfiler::ModuleLoadFinished(): AssemblyName=shop"},
             Row{1, "12 CClrProfiler::CheckKey(): could not load agent config."},
             Row{4, "12 CClrProfiler::CheckKey(): Could not find configuration.appSettings.add "
                    "elements."},
             Row{4, "12 Method Shop.Cart.Same not traced because it has generic types"},
             Row{4, "12 []il_disassembler:() : IL_0000: nop"},
             Row{1, "12 something new"},
         }) {
        EXPECT_EQ(level_of(row.line), row.level) << row.line;
    }
}

TEST(WatchedLine, WeighsWhatItSays) {
    EXPECT_EQ(weight_of("12 CClrProfiler::Initialize(): Invoked"), Weight::kPlain);
    EXPECT_EQ(weight_of("12 [a]B:C() : Left as it is: it has no ret instruction"), Weight::kLeft);
    EXPECT_EQ(weight_of("12 Failed to create method info (no)"), Weight::kFailure);
    EXPECT_EQ(weight_of("12 CClrProfiler::ShouldTrace(): could not load agent.config."),
              Weight::kFailure);
    EXPECT_EQ(weight_of("12 [a]B:C() : Instrumented, number 1"), Weight::kDetail);
    EXPECT_EQ(weight_of("12 [a]B:C() : TRAVERSING TYPE Failed"), Weight::kDetail);
}

TEST(WatchedLine, IndentsItsFurtherLines) {
    EXPECT_EQ(watched_text("front ", "12 a"), "front 12 a");
    EXPECT_EQ(watched_text("front ", "12 a\n"), "front 12 a");
    EXPECT_EQ(watched_text("", "12 a\nb\r\nc\r\n\n"), "12 a\r\n    b\r\n    c");
    EXPECT_EQ(watched_text("front ", ""), "front ");
}

} // namespace
} // namespace corvane::tool
