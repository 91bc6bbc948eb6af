// The exact texts of the dump and the listing, and what they make of bytes that are no body.
#include "il/listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsEmpty;

std::wstring dump(const Bytes& bytes) {
    return dumpBody(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

std::vector<std::string> listing(const Bytes& bytes) {
    std::vector<std::string> pieces;
    list_body(bytes, [&pieces](const std::string& piece) { pieces.push_back(piece); });
    return pieces;
}

TEST(DumpBody, ShowsATinyBody) {
    EXPECT_EQ(dump({0x0A, 0x00, 0x2A}), L"(3 bytes)\n    0x0a,0x00,0x2a\n    "
                                        L"Header type: TINY (type: 2, size: 2)\n    "
                                        L"Code section (2 bytes): 0x00,0x2a\n");
}

TEST(DumpBody, ShowsFlagsPaddingAndClausesOfAFatBody) {
    const Bytes bytes = {0x5B, 0x30, 0x08, 0x00, 0x06, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x11,
                         0x00, 0xDE, 0x02, 0x00, 0xDC, 0x2A, 0xEE, 0xEE,                         //
                         0x01, 0x1C, 0x00, 0x00,                                                 //
                         0x02, 0x00, 0x00, 0x00, 0x03, 0x03, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, //
                         0x04, 0x00, 0x00, 0x00, 0x03, 0x03, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00};
    EXPECT_EQ(dump(bytes), L"(48 bytes)\n    "
                           L"0x5b,0x30,0x08,0x00,0x06,0x00,0x00,0x00,0x01,0x00,0x00,0x11,"
                           L"0x00,0xde,0x02,0x00,0xdc,0x2a,0xee,0xee,0x01,0x1c,0x00,0x00,"
                           L"0x02,0x00,0x00,0x00,0x03,0x03,0x00,0x02,0x00,0x00,0x00,0x00,"
                           L"0x04,0x00,0x00,0x00,0x03,0x03,0x00,0x02,0x00,0x00,0x00,0x00\n    "
                           L"Header type: FAT (code size: 6, flags: 91 (CorILMethod_CompressedIL | "
                           L"CorILMethod_InitLocals | CorILMethod_MoreSects | ), max stack: 8, "
                           L"signature token: 285212673)\n    "
                           L"Code section (6 bytes): 0x00,0xde,0x02,0x00,0xdc,0x2a\n"
                           L"    Code section padded by 2 bytes: 0x00,0x00\n"
                           L"    FINALLY:\n      .try   {@0 3 bytes}\n      .catch {@3 2 bytes}\n"
                           L"    FAULT:\n      .try   {@0 3 bytes}\n      .catch {@3 2 bytes}\n");
}

TEST(DumpBody, ShowsPaddingOfABodyThatEndsWithItsCode) {
    EXPECT_EQ(
        dump({0x03, 0x30, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x2A}),
        L"(13 bytes)\n    "
        L"0x03,0x30,0x01,0x00,0x01,0x00,0x00,0x00,0x00,0x00,0x00,0x00,0x2a\n    "
        L"Header type: FAT (code size: 1, flags: 3 (), max stack: 1, signature token: 0)\n    "
        L"Code section (1 bytes): 0x2a\n"
        L"    Code section padded by 3 bytes: 0x00,0x00,0x00\n");
}

TEST(DumpBody, WalksEverySectionAndNamesOnlyKnownKinds) {
    const Bytes bytes = {0x0B, 0x30, 0x01, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x00, 0x00, 0x00, 0x2A,                         //
                         0x82, 0x05, 0x00, 0x00, 0x99, 0x00, 0x00, 0x00, // another kind, 5 bytes
                         0x81, 0x10, 0x00, 0x00,                         //
                         0x07, 0x00, 0x01, 0x00, 0x02, 0x03, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, //
                         0xC1, 0x1C, 0x00, 0x00,                                                 //
                         0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, //
                         0x02, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00};
    const std::wstring text = dump(bytes);
    EXPECT_EQ(text.substr(text.find(L"Code section")),
              L"Code section (4 bytes): 0x00,0x00,0x00,0x2a\n"
              L"          .try   {@1 2 bytes}\n      .catch {@3 1 bytes}\n"
              L"    FILTER:\n      .try   {@0 1 bytes}\n      .catch {@2 2 bytes}\n");
}

TEST(DumpBody, ShowsTheBytesOfWhatIsNoBody) {
    EXPECT_EQ(dump({}), L"(0 bytes)\n    \n    ");
    EXPECT_EQ(dump({0x0A, 0x00}), L"(2 bytes)\n    0x0a,0x00\n    ");
}

TEST(ListBody, ListsATinyBody) {
    EXPECT_THAT(listing({0x0A, 0x00, 0x2A}),
                ElementsAre("Code section:\n", " IL_0000: nop \t\t 0x00\n",
                            " IL_0001: ret \t\t 0x2a\n", "Exception handling section:\n",
                            "<empty>"));
}

TEST(ListBody, ReadsSecondBytesAndSwitchTargetsAsOpcodes) {
    EXPECT_THAT(
        listing({0x32, 0xFE, 0x09, 0x45, 0x01, 0x00, 0x00, 0x00, 0x2A, 0x00, 0x00, 0x00, 0x2A}),
        ElementsAre(
            "Code section:\n", " IL_0000: prefix1 \t\t 0xfe\n", " IL_0001: ldloc.3 \t\t 0x09\n",
            " IL_0002: switch \t\t 0x45,0x01,0x00,0x00,0x00\n", " IL_0007: ret \t\t 0x2a\n",
            " IL_0008: nop \t\t 0x00\n", " IL_0009: nop \t\t 0x00\n", " IL_000a: nop \t\t 0x00\n",
            " IL_000b: ret \t\t 0x2a\n", "Exception handling section:\n", "<empty>"));
}

TEST(ListBody, StopsAtTheCodeAndNeverReadsBehindTheBody) {
    EXPECT_THAT(listing({0x0A, 0x00, 0x20}),
                ElementsAre("Code section:\n", " IL_0000: nop \t\t 0x00\n",
                            " IL_0001: ldc.i4 \t\t 0x20\n", "Exception handling section:\n",
                            "<empty>"));
}

TEST(ListBody, ListsTheBlocksOfClausesFromZero) {
    EXPECT_THAT(listing({0x0B, 0x30, 0x08, 0x00, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, //
                         0x00, 0xDE, 0x02, 0x00, 0xDC, 0x2A, 0x00, 0x00,                         //
                         0x01, 0x1C, 0x00, 0x00,                                                 //
                         0x02, 0x00, 0x00, 0x00, 0x03, 0x03, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, //
                         0x09, 0x00, 0x01, 0x00, 0x02, 0xFF, 0xFF, 0x02, 0x00, 0x00, 0x00, 0x00}),
                ElementsAre("Code section:\n", " IL_0000: nop \t\t 0x00\n",
                            " IL_0001: leave.s \t\t 0xde,0x02\n", " IL_0003: nop \t\t 0x00\n",
                            " IL_0004: endfinally \t\t 0xdc\n", " IL_0005: ret \t\t 0x2a\n",
                            "Exception handling section:\n", " small FINALLY clause:\n", " .try",
                            " IL_0000: nop", " IL_0001: leave.s", " .catch", " IL_0000: nop",
                            " IL_0001: endfinally", " .try", " IL_0000: leave.s", " .catch"));
}

TEST(ListBody, SaysEmptyOnlyWithoutAnExceptionTable) {
    const Bytes without_clauses = {0x0B, 0x30, 0x08, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00,
                                   0x00, 0x00, 0x2A, 0x00, 0x00, 0x00, 0x41, 0x04, 0x00, 0x00};
    EXPECT_THAT(listing(without_clauses),
                ElementsAre("Code section:\n", " IL_0000: ret \t\t 0x2a\n",
                            "Exception handling section:\n"));
}

TEST(ListBody, SaysEmptyWithSectionsOfAnotherKindOnly) {
    EXPECT_THAT(listing({0x0B, 0x30, 0x08, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, //
                         0x2A, 0x00, 0x00, 0x00, 0x02, 0x04, 0x00, 0x00}),
                ElementsAre("Code section:\n", " IL_0000: ret \t\t 0x2a\n",
                            "Exception handling section:\n", "<empty>"));
}

TEST(ListBody, HasNothingToSayAboutWhatIsNoBody) {
    EXPECT_THAT(listing({}), IsEmpty());
    EXPECT_THAT(listing({0x0A, 0x00}), IsEmpty());
}

} // namespace
} // namespace corvane
