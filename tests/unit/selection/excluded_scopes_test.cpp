#include "selection/excluded_scopes.h"

#include <gtest/gtest.h>

#include <sstream>

namespace corvane {
namespace {

using Path = std::vector<std::wstring>;

void expect_scope(const wchar_t* line, const std::wstring& assembly, const Path& path) {
    const ExcludedScope scope = parse_scope(line);
    EXPECT_EQ(scope.assembly, assembly) << line;
    EXPECT_EQ(scope.path, path) << line;
}

// The scopes of a text, a line each: assembly, then "|" and a name for each component.
std::wstring scopes_of(const std::wstring& text) {
    std::wistringstream stream(text);
    std::vector<ExcludedScope> scopes;
    append_scopes(stream, scopes);
    std::wstring result;
    for (const ExcludedScope& scope : scopes) {
        result += scope.assembly;
        for (const std::wstring& name : scope.path) {
            result += L'|' + name;
        }
        result += L'\n';
    }
    return result;
}

TEST(ParseScope, SplitsAssemblyAndNames) {
    expect_scope(L"[kite.managed]*", L"kite.managed", {L"*"});
    expect_scope(L"[A]B.C", L"A", {L"B", L"C"});
    expect_scope(L"[A]B.*", L"A", {L"B", L"*"});
}

TEST(ParseScope, KeepsEmptyNamesAndBlanksAndCase) {
    expect_scope(L"[A]B..C", L"A", {L"B", L"", L"C"});
    expect_scope(L"[A].B.", L"A", {L"", L"B", L""});
    expect_scope(L"[A] B", L"A", {L" B"});
    expect_scope(L"[ a ]b. C", L" a ", {L"b", L" C"});
    expect_scope(L"[A].", L"A", {L"", L""});
}

TEST(ParseScope, TakesTheFirstOpeningAndTheLastClosingBracket) {
    expect_scope(L"x[A]B", L"A", {L"B"});
    expect_scope(L"[A[1]B]C", L"A[1]B", {L"C"});
    expect_scope(L"x]y[A", L"A", {L"y[A"});
    expect_scope(L"]A[", L"", {L"A["});
}

TEST(ParseScope, HasNoAssemblyWithoutBothBrackets) {
    expect_scope(L"B.C", L"", {L"B", L"C"});
    expect_scope(L"[]B.C", L"", {L"B", L"C"});
    expect_scope(L"[A", L"", {L"[A"});
    expect_scope(L"A]B", L"", {L"B"});
}

TEST(ParseScope, HasNoPathBehindTheLastBracket) {
    expect_scope(L"[A]", L"A", {});
    expect_scope(L"", L"", {});
}

TEST(AppendScopes, PassesOverCommentsAndEmptyLines) {
    EXPECT_EQ(scopes_of(L"// comment\n\n[A]B.C\n"), L"A|B|C\n");
    EXPECT_EQ(scopes_of(L"/[A]B\n /\n"), L"");
}

TEST(AppendScopes, DropsLinesThatNameNothing) {
    EXPECT_EQ(scopes_of(L"B.C\n[]B.C\n[A]\n[\n]\n[A]B\n"), L"A|B\n");
}

TEST(AppendScopes, TakesALastLineWithoutEnd) {
    EXPECT_EQ(scopes_of(L"[A]B\n[C]D"), L"A|B\nC|D\n");
    EXPECT_EQ(scopes_of(L""), L"");
}

TEST(AppendScopes, TakesALineOfAMegabyte) {
    const std::wstring name(1024 * 1024, L'n');
    EXPECT_EQ(scopes_of(L"[A]" + name + L"\n[B]c"), L"A|" + name + L"\nB|c\n");
}

TEST(AppendScopes, KeepsTheOrderAndWhatWasThere) {
    std::wistringstream stream(L"[B]x\n[A]y\n[B]x\n");
    std::vector<ExcludedScope> scopes = {parse_scope(L"[kite.managed]*")};
    append_scopes(stream, scopes);
    ASSERT_EQ(scopes.size(), 4U);
    EXPECT_EQ(scopes[0].assembly, L"kite.managed");
    EXPECT_EQ(scopes[1].assembly, L"B");
    EXPECT_EQ(scopes[2].assembly, L"A");
    EXPECT_EQ(scopes[3].assembly, L"B");
}

} // namespace
} // namespace corvane
