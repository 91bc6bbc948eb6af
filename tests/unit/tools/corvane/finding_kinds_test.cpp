#include "tools/corvane/finding_kinds.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <string>

namespace corvane::tool {
namespace {

TEST(FailedFinding, SaysTheReasonTheCureAndThePage) {
    const FailedFinding failed(missing_on_machine(true, "x"));
    EXPECT_STREQ(
        failed.what(),
        "this machine has no service x: give the service's name, which is not the one that "
        "is displayed (docs/troubleshooting.md#service-missing)");
    EXPECT_EQ(failed.code, 150);
}

TEST(FindingKinds, HaveCodesOfTheirOwn) {
    std::set<int> codes;
    for (const FindingKind& kind : finding_kinds()) {
        EXPECT_TRUE(codes.insert(kind.exit_code).second) << kind.id;
        EXPECT_GT(kind.exit_code, 100) << kind.id;
        EXPECT_LT(kind.exit_code, 200) << kind.id;
    }
}

// Of what every command may end with: the rows of a table, of which the findings have one.
TEST(ExitCodes, AreInTheDocumentation) {
    std::ifstream page(CORVANE_SOURCES "/docs/corvane.md");
    std::set<std::string> documented;
    bool is_in_table = false;
    for (std::string line; std::getline(page, line);) {
        is_in_table = line == "| Exit code | Meaning |" || (is_in_table && line.starts_with('|'));
        if (is_in_table && line[2] >= '0' && line[2] <= '9') {
            documented.insert(line.substr(2, line.find(" |", 2) - 2));
        }
    }
    std::set<std::string> made;
    for (const int code : kExitCodes) {
        made.insert(std::to_string(code));
    }
    std::set<int> findings;
    for (const FindingKind& kind : finding_kinds()) {
        findings.insert(kind.exit_code);
    }
    made.insert(std::to_string(*findings.begin()) + " to " + std::to_string(*findings.rbegin()));
    EXPECT_EQ(documented, made);
}

// Each has a heading of its name, and its code begins the text below.
TEST(FindingKinds, AreInTheDocumentation) {
    std::ifstream page(CORVANE_SOURCES "/docs/troubleshooting.md");
    std::map<std::string, int> documented;
    std::string heading;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("### ")) {
            heading = line.substr(4);
        } else if (!heading.empty() && !line.empty()) {
            documented[heading] = std::atoi(line.c_str());
            heading.clear();
        }
    }
    std::map<std::string, int> made;
    for (const FindingKind& kind : finding_kinds()) {
        made[kind.id] = kind.exit_code;
    }
    EXPECT_EQ(documented, made);
}

} // namespace
} // namespace corvane::tool
