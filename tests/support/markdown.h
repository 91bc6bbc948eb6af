// The pages of the documentation as tests read them: headings, links, and the blocks between ```
// lines.
#pragma once

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::testing {

struct MarkdownBlock {
    std::string where;         // "docs/page.md:12"
    std::string language = {}; // the first word behind ```
    std::string remark = {};   // the rest of that line
    std::vector<std::string> lines = {};
};

struct MarkdownPage {
    std::string name; // from the root of the project: "docs/page.md"
    std::set<std::string> anchors = {};
    std::vector<std::string> links = {};
    std::vector<MarkdownBlock> blocks = {};
    std::vector<std::string> prose = {};    // all lines outside of blocks
    std::vector<std::string> indented = {}; // where a block begins that has no ``` lines
};

// A heading as the end of an address: small letters, digits, hyphens and underscores; blanks become
// hyphens.
inline std::string anchor_of(std::string_view heading) {
    std::string anchor;
    for (const char c : heading) {
        const auto letter = static_cast<unsigned char>(c);
        if (c == ' ' || c == '-') {
            anchor += '-';
        } else if (std::isalnum(letter) != 0 || c == '_' || letter >= 0x80) {
            anchor += static_cast<char>(std::tolower(letter));
        }
    }
    return anchor;
}

// What stands behind each "](" of a line.
inline std::vector<std::string> links_of(std::string_view line) {
    std::vector<std::string> links;
    for (auto at = line.find("]("); at != line.npos; at = line.find("](", at + 2)) {
        const auto end = line.find(')', at);
        links.emplace_back(line.substr(at + 2, end == line.npos ? end : end - at - 2));
    }
    return links;
}

inline MarkdownPage read_markdown(const std::filesystem::path& root, const std::string& name) {
    MarkdownPage page{.name = name};
    std::ifstream file(root / name, std::ios::binary);
    bool is_in_block = false;
    bool is_behind_empty = true;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        line.erase(line.find_last_not_of('\r') + 1);
        const std::string where = name + ':' + std::to_string(number);
        if (line.starts_with("```")) {
            is_in_block = !is_in_block;
            if (is_in_block) {
                std::istringstream words(line.substr(3));
                MarkdownBlock block{.where = where};
                words >> block.language >> std::ws;
                std::getline(words, block.remark);
                page.blocks.push_back(std::move(block));
            }
        } else if (is_in_block) {
            page.blocks.back().lines.push_back(line);
        } else {
            if (line.starts_with('#')) {
                page.anchors.insert(anchor_of(line.substr(line.find_first_not_of("# "))));
            }
            if (is_behind_empty && line.starts_with("    ")) {
                page.indented.push_back(where);
            }
            for (std::string& link : links_of(line)) {
                page.links.push_back(std::move(link));
            }
            page.prose.push_back(line);
        }
        is_behind_empty = line.empty();
    }
    return page;
}

// README and its neighbours, and all of docs.
inline std::map<std::string, MarkdownPage> read_documentation(const std::filesystem::path& root) {
    std::map<std::string, MarkdownPage> pages;
    for (const char* const folder : {"", "docs"}) {
        for (const auto& entry : std::filesystem::directory_iterator(root / folder)) {
            if (entry.path().extension() == ".md") {
                const std::string name = entry.path().lexically_relative(root).generic_string();
                pages.emplace(name, read_markdown(root, name));
            }
        }
    }
    return pages;
}

} // namespace corvane::testing
