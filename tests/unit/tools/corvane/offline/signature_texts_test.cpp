#include "tools/corvane/offline/signature_texts.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace corvane::tool {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

// "D2" is row 2 of TypeDef.
std::string name_of(std::uint32_t table, std::uint32_t row) {
    return std::to_string(row).insert(0, 1, "DRS?"[table & 3]);
}

std::string type_of(const std::vector<std::uint8_t>& blob) {
    return type_text(blob, name_of);
}

constexpr std::uint8_t kTypeDef2 = 2 << 2;
constexpr std::uint8_t kTypeRef3 = (3 << 2) | 1;

TEST(SignatureTexts, NameTypesAsILDoes) {
    EXPECT_EQ(type_of({0x0E}), "string");
    EXPECT_EQ(type_of({0x12, kTypeRef3}), "R3");
    EXPECT_EQ(type_of({0x1D, 0x12, kTypeRef3}), "R3[]");
    EXPECT_EQ(type_of({0x1D, 0x1D, 0x08}), "int32[][]");
    EXPECT_EQ(type_of({0x0F, 0x01}), "void*");
    EXPECT_EQ(type_of({0x14, 0x08, 0x02, 0x00, 0x00}), "int32[,]");
    EXPECT_EQ(type_of({0x15, 0x12, kTypeDef2, 0x02, 0x08, 0x13, 0x00}), "D2<int32, !0>");
    EXPECT_EQ(type_of({0x1E, 0x01}), "!!1");
    EXPECT_EQ(type_of({0x1B, 0x00, 0x01, 0x01, 0x1C}), "method void *(object)");
    EXPECT_EQ(type_of({0x1F, kTypeRef3, 0x08}), "int32 modreq(R3)");
}

TEST(SignatureTexts, GiveResultAndParametersOfAMethod) {
    const std::vector<std::uint8_t> blob = {0x20, 0x03, 0x01, 0x10, 0x08, 0x0E, 0x16};
    const SignatureTexts texts = method_texts(blob, name_of);
    EXPECT_TRUE(texts.is_whole);
    EXPECT_EQ(texts.result, "void");
    EXPECT_THAT(texts.parameters, ElementsAre("int32&", "string", "typedref"));
}

TEST(SignatureTexts, MarkWhereParametersOfACallBegin) {
    const std::vector<std::uint8_t> blob = {0x05, 0x02, 0x08, 0x0E, 0x41, 0x08};
    EXPECT_THAT(method_texts(blob, name_of).parameters, ElementsAre("string", "...", "int32"));
}

TEST(SignatureTexts, OfDamagedBlobsEndWithAQuestionMark) {
    const std::vector<std::uint8_t> blob = {0x20, 0x02, 0x01, 0x08};
    const SignatureTexts texts = method_texts(blob, name_of);
    EXPECT_FALSE(texts.is_whole);
    EXPECT_THAT(texts.parameters, ElementsAre("int32", "?"));
    EXPECT_EQ(method_texts({}, name_of).result, "?");
    EXPECT_EQ(type_of({}), "?");
    EXPECT_EQ(type_of({0x12}), "?");
}

TEST(SignatureTexts, ListLocals) {
    const std::vector<std::uint8_t> rest = {0x03, 0x08, 0x45, 0x1C, 0x10, 0x11, kTypeDef2};
    EXPECT_THAT(list_texts(rest, name_of), ElementsAre("int32", "object pinned", "D2&"));
}

TEST(SignatureTexts, CutLongNamesBetweenCharacters) {
    EXPECT_EQ(cut(std::string(kLongestName, 'x')), std::string(kLongestName, 'x'));
    EXPECT_EQ(cut(std::string(kLongestName - 1, 'x') + "\xC3\xA4y"),
              std::string(kLongestName - 1, 'x') + "...");
    std::vector<std::uint8_t> deep(100, 0x1D);
    deep.push_back(0x12);
    deep.push_back(kTypeRef3);
    const auto long_name = [](std::uint32_t, std::uint32_t) { return std::string(590, 'n'); };
    EXPECT_THAT(type_text(deep, long_name), EndsWith("..."));
}

} // namespace
} // namespace corvane::tool
