// The documentation against the code: links lead somewhere, variables, settings, commands and
// options are those that there are, and code of the pages is code of the samples.
#include "profiler/agent_config.h"
#include "tests/support/markdown.h"

#include <gtest/gtest.h>

#include <boost/property_tree/xml_parser.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {
namespace {

namespace fs = std::filesystem;
using testing::MarkdownBlock;
using testing::MarkdownPage;
using testing::read_documentation;

using Names = std::set<std::string>;

const fs::path kRoot = CORVANE_SOURCES;

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// The texts of all sources below these folders.
std::map<std::string, std::string> read_sources(const std::vector<std::string>& folders) {
    std::map<std::string, std::string> sources;
    for (const std::string& folder : folders) {
        for (const auto& entry : fs::recursive_directory_iterator(kRoot / folder)) {
            const fs::path extension = entry.path().extension();
            if (extension == ".cpp" || extension == ".h" || extension == ".cs" ||
                extension == ".sh") {
                sources.emplace(entry.path().lexically_relative(kRoot).generic_string(),
                                read_file(entry.path()));
            }
        }
    }
    return sources;
}

const std::map<std::string, std::string>& product() {
    static const auto sources =
        read_sources({"base", "clr", "il", "managed/Kite.Managed", "profiler", "rewrite",
                      "sampling", "selection", "tools"});
    return sources;
}

const std::map<std::string, MarkdownPage>& pages() {
    static const auto all = read_documentation(kRoot);
    return all;
}

bool is_part_of_name(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// Each name in the text that begins so, behind `before`. A text of one letter more would be another
// name.
void add_names(Names& names, std::string_view text, std::string_view before,
               std::string_view beginning) {
    std::string searched(before);
    searched += beginning;
    for (auto at = text.find(searched); at != text.npos; at = text.find(searched, at + 1)) {
        if (before.empty() && at > 0 && is_part_of_name(text[at - 1])) {
            continue;
        }
        const auto begin = at + before.size();
        auto end = begin;
        while (end < text.size() && is_part_of_name(text[end])) {
            ++end;
        }
        names.emplace(text.substr(begin, end - begin));
    }
}

std::string text_of(const MarkdownPage& page) {
    std::string text;
    for (const std::string& line : page.prose) {
        text += line + '\n';
    }
    for (const MarkdownBlock& block : page.blocks) {
        for (const std::string& line : block.lines) {
            text += line + '\n';
        }
    }
    return text;
}

Names without(const Names& all, const Names& others) {
    Names rest;
    std::ranges::set_difference(all, others, std::inserter(rest, rest.end()));
    return rest;
}

// --- Links

// What is wrong with a link of a page, or nothing.
std::string fault_of(const std::string& link, const MarkdownPage& page,
                     const std::map<std::string, MarkdownPage>& all) {
    if (link.starts_with("https://")) {
        return "";
    }
    if (link.find("://") != link.npos) {
        return "is no https address";
    }
    const auto sharp = link.find('#');
    const std::string file = link.substr(0, sharp);
    const std::string target =
        file.empty()
            ? page.name
            : (fs::path(page.name).parent_path() / file).lexically_normal().generic_string();
    if (!fs::exists(kRoot / target)) {
        return "leads to no file";
    }
    if (sharp == link.npos) {
        return "";
    }
    const auto found = all.find(target);
    return found != all.end() && found->second.anchors.contains(link.substr(sharp + 1))
               ? ""
               : "leads to no heading";
}

std::vector<std::string> faults_of_links(const std::map<std::string, MarkdownPage>& all) {
    std::vector<std::string> faults;
    for (const auto& [name, page] : all) {
        for (const std::string& link : page.links) {
            if (const std::string fault = fault_of(link, page, all); !fault.empty()) {
                faults.push_back(name + ": " + link + ' ' + fault);
            }
        }
    }
    return faults;
}

TEST(Documentation, LinksLeadSomewhere) {
    EXPECT_EQ(faults_of_links(pages()), std::vector<std::string>{});
}

TEST(Documentation, LinksThatLeadNowhereAreFound) {
    auto changed = pages();
    changed["README.md"].links = {"docs/nothing.md", "docs/privacy.md#nothing", "#nothing",
                                  "http://example.org"};
    EXPECT_EQ(faults_of_links(changed),
              (std::vector<std::string>{"README.md: docs/nothing.md leads to no file",
                                        "README.md: docs/privacy.md#nothing leads to no heading",
                                        "README.md: #nothing leads to no heading",
                                        "README.md: http://example.org is no https address"}));
}

// Messages of the product name pages, some with a heading.
TEST(Documentation, HasThePagesThatMessagesName) {
    int found = 0;
    for (const auto& [file, text] : product()) {
        for (auto at = text.find("docs/"); at != text.npos; at = text.find("docs/", at + 1)) {
            const auto end =
                text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_/.#", at);
            std::string link = text.substr(at, end - at);
            link.erase(link.find_last_not_of(".#") + 1);
            if (link.find(".md") != link.npos) {
                ++found;
                EXPECT_EQ(fault_of(link, pages().at("README.md"), pages()), "")
                    << file << ": " << link;
            }
        }
    }
    EXPECT_GT(found, 0);
}

TEST(Documentation, IsReachedFromTheReadme) {
    Names linked = {"README.md"};
    for (const std::string& link : pages().at("README.md").links) {
        linked.insert(link.substr(0, link.find('#')));
    }
    for (const auto& [name, page] : pages()) {
        EXPECT_TRUE(linked.contains(name)) << name;
    }
}

// --- Names

constexpr const char* kPrefixes[] = {"APP_",     "COMPlus_",   "CORECLR_",
                                     "CORVANE_", "COR_ENABLE", "COR_PROFILER",
                                     "DOTNET_",  "NO_COLOR",   "OTEL_"};

Names variables_of_product() {
    Names names;
    for (const auto& [file, text] : product()) {
        for (const char* const prefix : kPrefixes) {
            add_names(names, text, "\"", prefix);
        }
    }
    std::erase_if(names, [](const std::string& name) { return name.ends_with('_'); });
    // No variables: a macro of the build.
    names.erase("CORVANE_VERSION");
    return names;
}

Names variables_on(const MarkdownPage& page, std::initializer_list<const char*> prefixes) {
    Names names;
    for (const char* const prefix : prefixes) {
        add_names(names, text_of(page), "", prefix);
    }
    std::erase_if(names, [](const std::string& name) { return name.ends_with('_'); });
    return names;
}

TEST(Documentation, NamesEveryVariableOnOnePage) {
    Names documented;
    for (const char* const prefix : kPrefixes) {
        add_names(documented, text_of(pages().at("docs/configuration.md")), "", prefix);
    }
    const Names used = variables_of_product();
    EXPECT_GT(used.size(), 30U);
    EXPECT_EQ(without(used, documented), Names{});
}

// The library puts the names of some together: a part that several have, "TRACES_" or nothing, and
// a part of one.
bool is_put_together(const std::string& name) {
    const std::string prefix = "OTEL_EXPORTER_OTLP_";
    if (!name.starts_with(prefix)) {
        return false;
    }
    std::string rest = name.substr(prefix.size());
    if (rest.starts_with("TRACES_")) {
        rest.erase(0, 7);
    }
    return product().at("managed/Kite.Managed/Export/OtlpEndpoint.cs").find('"' + rest + '"') !=
           std::string::npos;
}

TEST(Documentation, NamesNoVariableThatNobodyReads) {
    const Names used = variables_of_product();
    Names used_by_developers = used;
    for (const auto& [file, text] : read_sources({"tests", "setup"})) {
        add_names(used_by_developers, text, "", "CORVANE_");
    }
    add_names(used_by_developers, read_file(kRoot / "dev"), "", "CORVANE_");
    for (const auto& [name, page] : pages()) {
        Names unknown = without(variables_on(page, {"CORVANE_", "OTEL_"}),
                                name == "HACKING.md" ? used_by_developers : used);
        std::erase_if(unknown, is_put_together);
        EXPECT_EQ(unknown, Names{}) << name;
    }
}

TEST(Documentation, NamesEverySettingAndNoOther) {
    Names used;
    for (const char* const file : {"profiler/clr_profiler.cpp", "profiler/profiler_switches.cpp"}) {
        for (const char* const call : {"CheckKey(\"", "check_key(\""}) {
            add_names(used, product().at(file), call, "");
        }
    }
    Names documented;
    bool is_there = false;
    for (const std::string& line : pages().at("docs/configuration.md").prose) {
        if (line.starts_with('#')) {
            is_there = line == "### Settings";
        } else if (is_there && line.starts_with("| `")) {
            documented.insert(line.substr(3, line.find('`', 3) - 3));
        }
    }
    EXPECT_GE(used.size(), 5U);
    EXPECT_EQ(used, documented);
}

// As "type method", of the table and of the page.
TEST(Documentation, HasTheMethodsThatAreAlwaysChosenAndNoOther) {
    Names chosen;
    const std::string& table = product().at("selection/target_methods.cpp");
    const std::string row = "{{L\"";
    for (auto at = table.find(row); at != table.npos; at = table.find(row, at + 1)) {
        const auto begin = at + row.size();
        std::string name = table.substr(begin, table.find('"', begin) - begin);
        auto dot = name.rfind('.');
        dot -= name[dot - 1] == '.'; // of a constructor
        chosen.insert(name.substr(0, dot) + ' ' + name.substr(dot + 1));
    }
    Names documented;
    bool is_there = false;
    for (const std::string& line : pages().at("docs/instrumentation.md").prose) {
        if (line.starts_with('#')) {
            is_there = line == "## Methods that are always chosen";
        } else if (is_there && line.starts_with("| `")) {
            std::vector<std::string> words;
            const std::string names = line.substr(0, line.rfind('|', line.rfind('|') - 1));
            for (auto at = names.find('`'); at != names.npos;) {
                const auto end = names.find('`', at + 1);
                words.push_back(names.substr(at + 1, end - at - 1));
                at = names.find('`', end + 1);
            }
            for (std::size_t i = 1; i < words.size(); ++i) {
                documented.insert(words[0] + ' ' + words[i]);
            }
        }
    }
    EXPECT_GT(chosen.size(), 60U);
    EXPECT_EQ(chosen, documented);
}

// Words behind "corvane " or "./dev " that are typed: in blocks, and in prose between backticks.
Names words_behind(const std::string& command) {
    Names words;
    for (const auto& [name, page] : pages()) {
        for (const std::string& line : page.prose) {
            add_names(words, line, '`' + command + ' ', "");
        }
        for (const MarkdownBlock& block : page.blocks) {
            for (const std::string& line : block.lines) {
                if (line.starts_with(command + ' ')) {
                    add_names(words, line, command + ' ', "");
                }
            }
        }
    }
    words.erase(""); // an option
    return words;
}

TEST(Documentation, HasTheCommandsOfTheToolAndNoOther) {
    Names commands;
    add_names(commands, product().at("tools/corvane/main.cpp"), "Command{\"", "");
    Names headings;
    for (const std::string& line : pages().at("docs/corvane.md").prose) {
        if (line.starts_with('|')) {
            add_names(headings, line, "`corvane ", "");
        }
    }
    EXPECT_GT(commands.size(), 5U);
    EXPECT_EQ(without(words_behind("corvane"), commands), Names({"COMMAND"}));
    EXPECT_EQ(without(commands, headings), Names{});
}

TEST(Documentation, HasTheCommandsOfTheProjectAndNoOther) {
    Names commands;
    add_names(commands, read_file(kRoot / "dev"), "\ncmd_", "");
    Names documented;
    for (const std::string& line : pages().at("HACKING.md").prose) {
        add_names(documented, line, "| `./dev ", "");
    }
    EXPECT_EQ(commands, documented);
    EXPECT_EQ(without(words_behind("./dev"), commands), Names{});
}

// Each "--name" of a text, without the hyphens in front.
Names options_in(std::string_view text, const std::string& before) {
    Names options;
    for (auto at = text.find(before); at != text.npos; at = text.find(before, at + 1)) {
        const auto begin = at + before.size();
        const auto end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", begin);
        if (end != begin && begin < text.size()) {
            options.emplace(text.substr(begin, end - begin));
        }
    }
    return options;
}

TEST(Documentation, HasTheOptionsOfTheToolAndNoOther) {
    Names options = {"help", "version"};
    for (const auto& [file, text] : product()) {
        if (file.starts_with("tools/corvane/")) {
            options.merge(options_in(text, "\"--"));
        }
    }
    Names documented;
    for (const char* const page : {"docs/corvane.md", "docs/explain.md", "docs/watch.md"}) {
        documented.merge(options_in(text_of(pages().at(page)), "--"));
    }
    EXPECT_EQ(without(options, documented), Names{});
    for (const auto& [name, page] : pages()) {
        for (const MarkdownBlock& block : page.blocks) {
            for (const std::string& line : block.lines) {
                if (line.starts_with("corvane ")) {
                    const auto own = line.substr(0, line.find(" -- "));
                    EXPECT_EQ(without(options_in(own, " --"), options), Names{}) << block.where;
                }
            }
        }
    }
}

// --- Blocks

// What becomes of a block of each language. The commands that Windows understands are run
// (tests/clr).
const std::map<std::string, std::string> kLanguages = {
    {"cmd", "run"},
    {"csharp", "stands in a sample"},
    {"powershell", "only read here: Wine has no PowerShell"},
    {"sh", "commands of ./dev, which run the tests themselves, or what the named test runs"},
    {"text", "outputs and forms of commands, nothing to run"},
    {"xml", "read as the profiler reads it"},
    {"yaml", "only read by people: no collector is installed here"},
};

TEST(Documentation, SaysWhatEachBlockIs) {
    Names seen;
    for (const auto& [name, page] : pages()) {
        EXPECT_EQ(page.indented, std::vector<std::string>{})
            << "put it between ``` lines, and name its language";
        for (const MarkdownBlock& block : page.blocks) {
            EXPECT_TRUE(kLanguages.contains(block.language)) << block.where << block.language;
            EXPECT_FALSE(block.lines.empty()) << block.where;
            seen.insert(block.language);
        }
    }
    EXPECT_EQ(seen.size(), kLanguages.size());
}

template <class Check>
void for_each_block(const std::string& language, const Check& check) {
    int found = 0;
    for (const auto& [name, page] : pages()) {
        for (const MarkdownBlock& block : page.blocks) {
            if (block.language == language) {
                ++found;
                check(block);
            }
        }
    }
    EXPECT_GT(found, 0);
}

// Of other commands the block names the test that runs their like.
TEST(Documentation, HasOnlyCommandsOfTheProjectInShellBlocks) {
    for_each_block("sh", [](const MarkdownBlock& block) {
        if (!block.remark.empty()) {
            EXPECT_TRUE(fs::is_regular_file(kRoot / block.remark)) << block.where;
            return;
        }
        for (const std::string& line : block.lines) {
            EXPECT_TRUE(line.starts_with("./dev ")) << block.where << ": " << line;
        }
    });
}

void add_elements(Names& names, const AgentConfig& tree) {
    for (const auto& [name, child] : tree) {
        if (name != "<xmlattr>") {
            names.insert(name);
            add_elements(names, child);
        }
    }
}

// Those of agent.config, and parts of the files of IIS. The parser does not compare the names of
// closing tags.
TEST(Documentation, HasConfigurationsThatCanBeRead) {
    const Names elements = {"add",
                            "application",
                            "applicationPool",
                            "applications",
                            "applicationPools",
                            "appSettings",
                            "aspNetCore",
                            "configuration",
                            "environmentVariable",
                            "environmentVariables",
                            "instrumentation"};
    for_each_block("xml", [&](const MarkdownBlock& block) {
        std::stringstream text;
        for (const std::string& line : block.lines) {
            text << line << '\n';
        }
        AgentConfig config;
        EXPECT_NO_THROW(boost::property_tree::read_xml(text, config)) << block.where;
        Names used;
        add_elements(used, config);
        EXPECT_EQ(without(used, elements), Names{}) << block.where;
    });
}

std::string trimmed(const std::string& line) {
    const auto begin = line.find_first_not_of(" \t\r");
    return begin == line.npos ? "" : line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
}

// The lines that say something, one behind the other.
std::string joined(std::istream& stream) {
    std::string text = "\n";
    for (std::string line; std::getline(stream, line);) {
        if (line = trimmed(line); !line.empty()) {
            text += line + '\n';
        }
    }
    return text;
}

TEST(Documentation, ShowsCodeOfTheSamples) {
    std::vector<std::string> samples;
    for (const auto& [file, text] : read_sources({"managed/samples"})) {
        std::istringstream stream(text);
        samples.push_back(joined(stream));
    }
    for_each_block("csharp", [&](const MarkdownBlock& block) {
        std::stringstream stream;
        for (const std::string& line : block.lines) {
            stream << line << '\n';
        }
        const std::string code = joined(stream);
        EXPECT_TRUE(std::ranges::any_of(
            samples, [&](const std::string& sample) { return sample.find(code) != sample.npos; }))
            << block.where << " stands in no sample";
    });
}

} // namespace
} // namespace corvane
