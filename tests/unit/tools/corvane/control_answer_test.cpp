#include "tools/corvane/control_answer.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace corvane::tool {
namespace {

constexpr std::string_view kAnswer =
    "ok\nwait 2\nwait 1\npart svg 5\n<a>\n\npart cost 0\npart folded 4\nend\nend\n";

TEST(ControlAnswer, HasItsParts) {
    ControlAnswer answer;
    answer.add(kAnswer);
    EXPECT_TRUE(answer.is_complete());
    EXPECT_EQ(answer.refusal(), std::nullopt);
    EXPECT_EQ(answer.take_wait(), 1U);
    EXPECT_EQ(answer.take_wait(), std::nullopt);
    EXPECT_EQ(answer.parts(), (std::map<std::string, std::string>{
                                  {"svg", "<a>\n\n"}, {"cost", ""}, {"folded", "end\n"}}));
}

TEST(ControlAnswer, MayComeByteByByte) {
    ControlAnswer answer;
    std::size_t waits = 0;
    for (std::size_t i = 0; i < kAnswer.size(); ++i) {
        EXPECT_FALSE(answer.is_complete()) << i;
        answer.add(kAnswer.substr(i, 1));
        waits += answer.take_wait().has_value() ? 1 : 0;
    }
    EXPECT_TRUE(answer.is_complete());
    EXPECT_EQ(waits, 2U);
    EXPECT_EQ(answer.parts().at("folded"), "end\n");
}

TEST(ControlAnswer, MayBeARefusal) {
    ControlAnswer answer;
    answer.add("error that is no request\n");
    EXPECT_TRUE(answer.is_complete());
    EXPECT_EQ(answer.refusal(), "that is no request");
}

TEST(ControlAnswer, IsNothingElse) {
    for (const char* const text :
         {"HTTP/1.1 200 OK\n", "\n", "part a 1\n", "ok\nok\n", "ok\nwait\n", "ok\nwait x\n",
          "ok\nwait 999999999999\n", "ok\npart a\n", "ok\npart a -1\n",
          "ok\npart a 99999999999999999999\n", "ok\npart a 2000000000\n", "ok\npart \n"}) {
        ControlAnswer answer;
        EXPECT_THROW(answer.add(text), std::runtime_error) << text;
    }
    ControlAnswer endless;
    EXPECT_THROW(endless.add(std::string(5'000, 'x')), std::runtime_error);
}

} // namespace
} // namespace corvane::tool
