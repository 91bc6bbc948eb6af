// Any process and any configuration to the gate: it decides as a plain statement of the rule does.
// An input is the executable's name, the type of application and the arguments with blanks between
// them, a line each, and then the configuration. A "?" stands for what is not there.
#include "profiler/process_gate.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/xml_document.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane {
namespace {

struct Outcome {
    GateVerdict verdict = GateVerdict::kRefuse;
    bool disable_inlining = false;
    std::size_t messages = 0;
};

// Nothing for bytes that are no UTF-8: cut short, longer than necessary, or no character's.
std::optional<std::wstring> decode_utf8(const std::string& bytes) {
    constexpr std::uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    std::wstring text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto lead = static_cast<std::uint8_t>(bytes[i]);
        const std::size_t more = lead < 0x80   ? 0
                                 : lead < 0xC0 ? 4
                                 : lead < 0xE0 ? 1
                                 : lead < 0xF0 ? 2
                                 : lead < 0xF8 ? 3
                                               : 4;
        if (more > 3 || more >= bytes.size() - i) {
            return std::nullopt;
        }
        std::uint32_t character = more == 0 ? lead : lead & (0x3Fu >> more);
        for (std::size_t end = i + more; i < end;) {
            const auto next = static_cast<std::uint8_t>(bytes[++i]);
            if ((next & 0xC0) != 0x80) {
                return std::nullopt;
            }
            character = character << 6 | (next & 0x3Fu);
        }
        if (character < kSmallest[more] || character > 0x10FFFF ||
            (character >= 0xD800 && character < 0xE000)) {
            return std::nullopt;
        }
        text += static_cast<wchar_t>(character);
    }
    return text;
}

const AgentConfig* section(const AgentConfig* config, const std::string& name) {
    return child(child(child(config, "configuration"), "instrumentation"), name);
}

Outcome plain_worker(const ProcessFacts& process, const AgentConfig* config) {
    Outcome outcome{GateVerdict::kTrace};
    if (config == nullptr) {
        outcome.messages = 1;
        return outcome;
    }
    if (!process.arguments ||
        (!process.arguments->empty() && process.arguments->back() == L"-ap")) {
        return outcome;
    }
    std::wstring pool;
    for (std::size_t i = process.arguments->size(); i-- > 0;) {
        if ((*process.arguments)[i] == L"-ap") {
            pool = (*process.arguments)[i + 1];
            break;
        }
    }
    const AgentConfig* const pools = section(config, "applicationPools");
    if (pools == nullptr) {
        outcome.messages = 1;
        return outcome;
    }
    for (const auto& [element, entry] : *pools) {
        const auto name = attribute(entry, "name");
        if (!name) {
            ++outcome.messages;
            continue;
        }
        const auto text = decode_utf8(*name);
        if (!text) {
            ++outcome.messages;
            return outcome;
        }
        if (lower(*text) == lower(pool)) {
            const bool disabled = attribute(entry, "corvane") == "Disabled";
            outcome.verdict = disabled ? GateVerdict::kRefuse : GateVerdict::kTrace;
            return outcome;
        }
    }
    outcome.verdict = GateVerdict::kAskPoolDefault;
    return outcome;
}

Outcome plain_executable(const ProcessFacts& process, const AgentConfig* config) {
    const AgentConfig* const applications = section(config, "applications");
    Outcome outcome;
    if (applications == nullptr) {
        outcome.messages = 1;
        return outcome;
    }
    for (const auto& [element, entry] : *applications) {
        const auto name = attribute(entry, "name");
        if (!name) {
            ++outcome.messages;
        } else if (*name == "*" || lower(*name) == lower(process.executable_name)) {
            if (attribute(entry, "corvane") != "Disabled") {
                outcome.verdict = GateVerdict::kTrace;
                outcome.disable_inlining = attribute(entry, "inlining") == "Disabled";
            }
            return outcome;
        }
    }
    return outcome;
}

void check(const ProcessFacts& process, const AgentConfig* config) {
    const bool worker =
        process.app_type == "TYPE_IIS" && lower(process.executable_name) == "w3wp.exe";
    require(is_iis_worker(process) == worker, "a worker has the type and the name");
    const Outcome expected =
        worker ? plain_worker(process, config) : plain_executable(process, config);
    std::size_t messages = 0;
    const GateDecision decision = decide_trace(process, config, [&](int level, const wchar_t*) {
        require(level == 1, "messages of the gate have level 1");
        ++messages;
    });
    require(decision.verdict == expected.verdict, "the verdict follows the rule");
    require(decision.disable_inlining == expected.disable_inlining, "inlining follows the entry");
    require(messages == expected.messages, "what is missing is reported");
}

std::wstring any_text(const std::string& bytes) {
    return decode_utf8(bytes).value_or(std::wstring(bytes.begin(), bytes.end()));
}

std::vector<std::wstring> split(const std::string& line) {
    std::vector<std::wstring> arguments;
    for (std::size_t begin = 0; begin < line.size();) {
        const std::size_t end = std::min(line.find(' ', begin), line.size());
        arguments.push_back(any_text(line.substr(begin, end - begin)));
        begin = end + 1;
    }
    return arguments;
}

void check(Input input) {
    ProcessFacts process;
    process.executable_name = input.line();
    if (const std::string type = input.line(); type != "?") {
        process.app_type = type;
    }
    if (const std::string arguments = input.line(); arguments != "?") {
        process.arguments = split(arguments);
    }
    const auto parsed = parse_xml(input.text());
    const AgentConfig* const config = parsed ? &*parsed : nullptr;
    check(process, config);

    // Every name that the configuration gives, asked for in turn.
    for (const char* const name : {"applications", "applicationPools"}) {
        const AgentConfig* const entries = section(config, name);
        for (const auto& [element, entry] : entries != nullptr ? *entries : AgentConfig()) {
            const std::string asked = lower(attribute(entry, "name").value_or(""));
            check({asked, process.app_type, process.arguments}, config);
            check({"W3WP.exe", "TYPE_IIS", std::vector<std::wstring>{L"-ap", any_text(asked)}},
                  config);
        }
    }
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(corvane::Input({data, size}));
    return 0;
}
