// Bodies in, everything that is made of them out: what is written for the body as it was read and
// with a nop in front of every instruction, the dump, and the listing. "bad-" bodies have no golden
// text; their first line says what reading must answer.
#include "il/listing.h"
#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "tests/support/body_model.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

const std::string kFolder = "bodies";

bool is_bad(const std::string& name) {
    return name.starts_with("bad-");
}

std::vector<std::string> names(bool bad) {
    std::vector<std::string> all = fixture_names(kFolder, ".hex");
    std::erase_if(all, [bad](const std::string& name) { return is_bad(name) != bad; });
    return all;
}

std::string hex_text(const Bytes& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x%c", unsigned{bytes[i]},
                      i % 32 == 31 || i + 1 == bytes.size() ? '\n' : ' ');
        text += digits;
    }
    return text;
}

// One line for each piece, with its line ends in sight.
std::string visible(const std::string& piece) {
    std::string text = "|";
    for (const char c : piece) {
        text += c == '\n' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c);
    }
    return text + "|\n";
}

std::string dump_text(const Bytes& bytes) {
    const std::wstring dump = dumpBody(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::string text;
    for (const wchar_t c : dump) {
        text += static_cast<char>(c);
    }
    return text;
}

std::string listing_text(const Bytes& bytes) {
    std::string text;
    list_body(bytes, [&text](const std::string& piece) { text += visible(piece); });
    return text;
}

std::string name_of(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class GoldenBody : public testing::TestWithParam<std::string> {};

TEST_P(GoldenBody, IsReadWrittenAndListed) {
    const Bytes bytes = parse_hex(read_text(fixture_path(kFolder + "/" + GetParam() + ".hex")));
    MethodBody body;
    ASSERT_EQ(read_body(bytes, body), BodyResult::kOk);
    Bytes written;
    ASSERT_EQ(write_body(body, written), BodyResult::kOk);
    MethodBody again;
    ASSERT_EQ(read_body(written, again), BodyResult::kOk);
    EXPECT_EQ(difference(body, again), "");

    MethodBody edited;
    ASSERT_EQ(read_body(bytes, edited), BodyResult::kOk);
    const std::vector<bool> nops = insert_nops(edited, 1);
    Bytes edited_bytes;
    ASSERT_EQ(write_body(edited, edited_bytes), BodyResult::kOk);
    MethodBody edited_again;
    ASSERT_EQ(read_body(edited_bytes, edited_again), BodyResult::kOk);
    EXPECT_EQ(difference(body, edited_again, nops), "");

    expect_golden(kFolder + "/" + GetParam() + ".golden",
                  "written\n" + hex_text(written) +                      //
                      "\nwritten with nops\n" + hex_text(edited_bytes) + //
                      "\ndump\n" + dump_text(bytes) +                    //
                      "\nlisting\n" + listing_text(bytes));
}

INSTANTIATE_TEST_SUITE_P(Bodies, GoldenBody, testing::ValuesIn(names(false)), name_of);

class BadBody : public testing::TestWithParam<std::string> {};

TEST_P(BadBody, IsRefusedAsItsFirstLineSays) {
    const std::string text = read_text(fixture_path(kFolder + "/" + GetParam() + ".hex"));
    const Bytes bytes = parse_hex(text);
    unsigned expected = 0;
    ASSERT_EQ(std::sscanf(text.c_str(), "# expect %x", &expected), 1);
    ASSERT_NE(expected, 0u);
    MethodBody body;
    EXPECT_EQ(static_cast<unsigned>(read_body(bytes, body)), expected);
    // The texts are for any bytes.
    // Both renderings end and stay within the bytes, which the sanitizers watch.
    const auto size = static_cast<std::uint32_t>(bytes.size());
    EXPECT_TRUE(
        dumpBody(bytes.data(), size).starts_with(L"(" + std::to_wstring(size) + L" bytes)\n    "));
    list_body(bytes, [](const std::string&) {});
}

INSTANTIATE_TEST_SUITE_P(Bodies, BadBody, testing::ValuesIn(names(true)), name_of);

} // namespace
} // namespace corvane
