// Any text as agent.config. The depth that is found before parsing is the one that the parser
// finds, wherever a deep nest hides; what is loaded is what the parser reads and no deeper than the
// limit; a question about a setting is answered as a plain reading of the tree answers it.
#include "profiler/agent_config.h"
#include "profiler/xml_depth.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/xml_document.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace corvane {
namespace {

namespace fs = std::filesystem;

// The file in the folder that the variable names. It lies in memory, for it is written anew for
// each input.
class ConfigFile {
public:
    ConfigFile() {
        require(memory_ >= 0 && mkdtemp(folder_.data()) != nullptr, "there is room for a file");
        fs::create_symlink("/proc/self/fd/" + std::to_string(memory_),
                           fs::path(folder_) / "agent.config");
        setenv(kHomeVariable, folder_.c_str(), 1);
    }
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;
    ~ConfigFile() {
        fs::remove_all(folder_);
        close(memory_);
    }

    void write(const std::string& text) const {
        require(ftruncate(memory_, 0) == 0 && pwrite(memory_, text.data(), text.size(), 0) ==
                                                  static_cast<ssize_t>(text.size()),
                "the file is written");
    }

private:
    int memory_ = memfd_create("agent.config", 0);
    std::string folder_ = (fs::temp_directory_path() / "corvane-fuzz-XXXXXX").string();
};

class Messages {
public:
    LogSink sink() {
        return [this](int level, const wchar_t*) { levels_.push_back(level); };
    }
    bool are(std::size_t count, int level) const {
        return levels_ == std::vector<int>(count, level);
    }

private:
    std::vector<int> levels_;
};

std::string repeated(const std::string& text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

int depth_of(const AgentConfig& tree) {
    int depth = 0;
    for (const auto& [name, element] : tree) {
        if (name != "<xmlattr>") {
            depth = std::max(depth, 1 + depth_of(element));
        }
    }
    return depth;
}

// Innermost empty tags are a level of the tree and none of the elements that are open at once.
enum class Innermost { kPairs, kPairsOrEmptyTags };

void check_depth(const std::string& xml, int depth, Innermost innermost) {
    const int fewest = innermost == Innermost::kPairs ? depth : depth - 1;
    require(!nests_deeper_than(xml, depth), "no level is found that is not there");
    require(fewest < 1 || nests_deeper_than(xml, fewest - 1), "no level is hidden");
}

struct Answer {
    bool yes = false;
    std::size_t messages = 0;
};

Answer plain_answer(const AgentConfig& config, const std::string& key, const std::string& value) {
    const AgentConfig* const settings = child(child(&config, "configuration"), "appSettings");
    if (settings == nullptr) {
        return {false, 1};
    }
    Answer answer;
    for (const auto& [name, entry] : *settings) {
        if (lower(name) != "add") {
            continue;
        }
        const auto entry_key = attribute(entry, "key");
        if (!entry_key) {
            ++answer.messages;
        } else if (*entry_key == key) {
            const auto entry_value = attribute(entry, "value");
            answer.messages += entry_value ? 0 : 1;
            answer.yes = entry_value == value;
            break;
        }
    }
    return answer;
}

void check_question(const AgentConfig& config, const std::string& key, const std::string& value) {
    Messages log;
    const Answer expected = plain_answer(config, key, value);
    require(check_key(config, key, value, log.sink()) == expected.yes,
            "the first entry with the key answers");
    require(log.are(expected.messages, 4), "each entry that says nothing is reported");
}

void collect_attributes(const AgentConfig& tree, std::set<std::string>& values) {
    for (const auto& [name, element] : tree) {
        if (values.size() > 8) {
            return;
        }
        if (name == "key" || name == "value") {
            values.insert({element.data(), lower(element.data()), element.data() + " "});
        }
        collect_attributes(element, values);
    }
}

// What is loaded, empty without.
AgentConfig check_loading(const std::string& xml, const std::optional<AgentConfig>& parsed) {
    static const ConfigFile file;
    file.write(xml);
    AgentConfig config;
    config.put("left.over", "text");
    Messages log;
    const bool loaded = LoadAgentConfig(config, log.sink());
    require(loaded == (parsed && !nests_deeper_than(xml, kMaxElementDepth)),
            "what the parser reads and is not too deep is loaded");
    require(config == (loaded ? *parsed : AgentConfig()), "what is loaded is what was parsed");
    require(log.are(loaded ? 0 : 1, 1), "what is not loaded is reported once");
    require(depth_of(config) <= kMaxElementDepth + 1, "nothing deeper than the limit is loaded");
    return config;
}

// The same text with a nest of pairs where a byte 1 marks a place, or else at the end.
std::string with_nest(const std::string& xml) {
    static const std::string nest = repeated("<a>", 16) + repeated("</a>", 16);
    const std::size_t place = std::min(xml.find('\1'), xml.size());
    return xml.substr(0, place) + nest + xml.substr(std::min(place + 1, xml.size()));
}

void check(const std::string& xml) {
    const auto parsed = parse_xml(xml);
    const AgentConfig config = check_loading(xml, parsed);
    std::set<std::string> asked = {"Inlining", "Disabled"};
    collect_attributes(config, asked);
    for (const std::string& key : asked) {
        for (const std::string& value : asked) {
            check_question(config, key, value);
        }
    }

    if (parsed) {
        check_depth(xml, depth_of(*parsed), Innermost::kPairsOrEmptyTags);
    }
    const std::string deeper = with_nest(xml);
    if (const auto tree = parse_xml(deeper)) {
        const int depth = depth_of(*tree);
        const bool in_nest = parsed && depth > depth_of(*parsed);
        check_depth(deeper, depth, in_nest ? Innermost::kPairs : Innermost::kPairsOrEmptyTags);
    }
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(corvane::Input({data, size}).text());
    return 0;
}
