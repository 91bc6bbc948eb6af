// Homes, configuration files and scope files as users leave them, good and bad. Whatever they are,
// the program runs as it does without the profiler.
#include "tests/support/runtime_test.h"

#include <functional>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

const std::string kListed = "<configuration><instrumentation><applications>"
                            "<application name='program.exe' corvane='Enabled'/>"
                            "</applications></instrumentation></configuration>";
const Lines kNoConfig = {L"CClrProfiler::LoadAgentConfig(): Could not find agent.config file",
                         L"CClrProfiler::ShouldTrace(): could not load agent.config."};
const Lines kNoApplications = {L"CClrProfiler::ShouldTrace(): Could not find "
                               L"configuration.applications.application elements."};

// --- The home folder

class Home : public EachRuntimeTest {};
INSTANTIATE_TEST_SUITE_P(Runtimes, Home, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Home, IsNotNamed) {
    home_variable = std::nullopt;
    expect_refused(watch(), refused_log({kNoConfig[1]})); // not set is not a failure to load
}

TEST_P(Home, DoesNotExist) {
    expect_refused(watch(), refused_log(kNoConfig));
}

TEST_P(Home, IsAFile) {
    write_file(home, kListed);
    expect_refused(watch(), refused_log(kNoConfig));
}

TEST_P(Home, HoldsAFolderInPlaceOfTheFile) {
    fs::create_directories(home / "agent.config");
    expect_refused(watch(), refused_log(kNoConfig));
}

TEST_P(Home, EndsInASeparator) {
    configure(kListed);
    home_variable = home.wstring() + L'\\';
    expect_traced(watch(), traced_log());
}

TEST_P(Home, EndsInASlash) {
    configure(kListed);
    home_variable = home.wstring() + L'/';
    expect_traced(watch(), traced_log());
}

TEST_P(Home, HasBlanks) {
    home = folder() / "the agent's  home";
    home_variable = home.wstring();
    configure(kListed);
    expect_traced(watch(), traced_log());
}

TEST_P(Home, IsOutsideAscii) {
    home = folder() / L"B\u00fccher \u00e4\u00f6\u00fc";
    home_variable = home.wstring();
    configure(kListed);
    expect_traced(watch(), traced_log());
}

TEST_P(Home, IsAPathBeyondAnyLimit) {
    home_variable = home.wstring() + L'\\' + std::wstring(20000, L'x');
    expect_refused(watch(), refused_log(kNoConfig));
}

// --- agent.config

std::string repeated(int count, const std::string& text) {
    std::string all;
    all.reserve(static_cast<std::size_t>(count) * text.size());
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

std::string utf16(const std::string& ascii) {
    std::string text = "\xff\xfe";
    for (const char c : ascii) {
        text += {c, '\0'};
    }
    return text;
}

// Elements within elements, far beyond what a stack holds.
std::string deep() {
    constexpr int kDepth = 100000;
    return repeated(kDepth, "<a>") + repeated(kDepth, "</a>");
}

struct FileRow : NamedRow {
    std::function<std::string()> bytes;
    bool traced;
    Lines messages = {}; // of the gate
};

const FileRow kFileRows[] = {
    // The parser takes these for documents with nothing in them.
    {"Empty", [] { return ""; }, false, kNoApplications},
    {"OnlyBlanks", [] { return " \r\n\t"; }, false, kNoApplications},
    {"TagsThatDoNotMatch", [] { return "<configuration></instrumentation>"; }, false,
     kNoApplications},
    {"ZeroBytes", [] { return std::string(4096, '\0'); }, false, kNoApplications},
    // These hide how deep they nest from whoever reads markup by stricter rules than the parser.
    {"DeepBehindStrayEndTags",
     [] { return "<!DOCTYPE a [" + repeated(100000, "</a>") + "]>" + deep(); }, false, kNoConfig},
    {"DeepBehindAQuote", [] { return "<!DOCTYPE a [<!-- don't -->]>" + deep(); }, false, kNoConfig},
    {"DeepBehindAShortComment", [] { return "<!--><![CDATA[ -->" + deep(); }, false, kNoConfig},
    // These it refuses.
    {"NoXml", [] { return "applications: program.exe\r\n"; }, false, kNoConfig},
    {"Malformed", [] { return kListed.substr(0, kListed.size() - 3); }, false, kNoConfig},
    {"Utf8WithMark", [] { return "\xef\xbb\xbf<?xml version='1.0'?>\r\n" + kListed; }, true},
    {"Utf16", [] { return utf16(kListed); }, false, kNoConfig},
    {"OtherRoot", [] { return "<settings>" + kListed + "</settings>"; }, false, kNoApplications},
    {"RootInOtherCase", [] { return "<Configuration/>"; }, false, kNoApplications},
    {"NoSections", [] { return "<configuration></configuration>"; }, false, kNoApplications},
    {"EntriesWithoutAttributes",
     [] {
         return "<configuration><appSettings><add/><add key='Inlining'/><add value='Disabled'/>"
                "</appSettings><instrumentation><applications><application/>"
                "<application name='program.exe'/></applications></instrumentation>"
                "</configuration>";
     },
     true,
     {L"CClrProfiler::ShouldTrace(): Error configuration.applications.application is missing name "
      L"attribute."}},
    {"CommentsAndBlankLines",
     [] { return "<!-- the agent -->\r\n\r\n" + kListed + "\r\n<!-- end -->\r\n"; }, true},
    {"TenMegabytes",
     [] {
         std::string text = kListed;
         return text.insert(text.find("<application "),
                            repeated(100000, "<application name='service-of-many.exe'/>\r\n") +
                                "<!--" + std::string(6000000, ' ') + "-->");
     },
     true},
    {"NestedTooDeep",
     [] {
         std::string text = kListed;
         return text.insert(text.find("<instrumentation>"), deep());
     },
     false, kNoConfig},
};

class ConfigFile : public EachRuntimeRowTest<FileRow> {};
INSTANTIATE_TEST_SUITE_P(Rows, ConfigFile,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kFileRows)),
                         row_name<FileRow>);

TEST_P(ConfigFile, IsTakenOrRefused) {
    configure(row().bytes());
    const Watched run = watch();
    if (row().traced) {
        expect_traced(run, traced_log(row().messages));
    } else {
        expect_refused(run, refused_log(row().messages));
    }
}

// --- do_not_instrument.txt

struct ScopesRow : NamedRow {
    std::function<std::string()> bytes;
};

const ScopesRow kScopesRows[] = {
    {"Empty", [] { return ""; }},
    {"WindowsLineEnds", [] { return "// ours\r\n\r\n[program]Program.Words\r\n[]x\r\n"; }},
    {"NoLineEndAtTheEnd", [] { return "[program]Program\n[program]Program.Main"; }},
    {"LongLine", [] { return "[program]" + std::string(1000000, 'x') + "\n[program]y\n"; }},
    {"ManyNames", [] { return "[program]" + std::string(1000000, '.') + "\n"; }},
    {"NoText", [] { return std::string("\xff\xfe[\0\xe4]\0x\n", 9) + std::string(5000, '\0'); }},
};

class ScopesFile : public EachRuntimeRowTest<ScopesRow> {
protected:
    // The file stands beside the library, so the test has a library of its own.
    void SetUp() override {
        EachRuntimeRowTest::SetUp();
        const fs::path own = folder() / "library";
        fs::create_directory(own);
        fs::copy_file(library, own / "CorvaneProfiler.dll");
        library = own / "CorvaneProfiler.dll";
        configure(kListed);
    }
};
INSTANTIATE_TEST_SUITE_P(Rows, ScopesFile,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kScopesRows)),
                         row_name<ScopesRow>);

TEST_P(ScopesFile, IsReadWithoutAWord) {
    write_file(library.parent_path() / "do_not_instrument.txt", row().bytes());
    Lines log = traced_log();
    std::erase_if(log, [](const std::wstring& line) {
        return line.starts_with(L"Failed to read list of excluded scopes");
    });
    expect_traced(watch(), log);
}

class NoScopesFile : public EachRuntimeTest {};
INSTANTIATE_TEST_SUITE_P(Runtimes, NoScopesFile, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(NoScopesFile, IsNamedInFullBesideTheLibrary) {
    const fs::path own = folder() / L"B\u00fccher \u00e4\u00f6\u00fc";
    fs::create_directory(own);
    fs::copy_file(library, own / "CorvaneProfiler.dll");
    library = own / "CorvaneProfiler.dll";
    configure(kListed);
    expect_traced(watch(), traced_log());
}

} // namespace
} // namespace corvane::testing
