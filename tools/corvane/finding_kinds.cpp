#include "tools/corvane/finding_kinds.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace corvane::tool {
namespace {

constexpr std::array kKinds = {
    FindingKind{"program-missing", 101, true},
    FindingKind{"program-no-image", 102, true},
    FindingKind{"program-architecture", 103, true},
    FindingKind{"program-native-aot", 104, true},
    FindingKind{"program-not-managed", 105, true},
    FindingKind{"runtime-too-old", 106, true},
    FindingKind{"hooks-off", 107, true},
    FindingKind{"diagnostics-off", 110, true},
    FindingKind{"variables-unset", 111, true},
    FindingKind{"variables-one-family", 112, true},
    FindingKind{"variables-contradictory", 113, true},
    FindingKind{"another-profiler", 114, true},
    FindingKind{"variables-two-paths", 115, false},
    FindingKind{"registration-absent", 120, true},
    FindingKind{"registration-stale", 121, true},
    FindingKind{"registration-another", 122, false},
    FindingKind{"profiler-missing", 123, true},
    FindingKind{"profiler-unreadable", 124, true},
    FindingKind{"profiler-architecture", 125, true},
    FindingKind{"profiler-exports", 126, true},
    FindingKind{"home-unset", 130, true},
    FindingKind{"home-characters", 131, true},
    FindingKind{"config-missing", 132, true},
    FindingKind{"config-unreadable", 133, true},
    FindingKind{"config-section", 134, true},
    FindingKind{"config-entry", 135, true},
    FindingKind{"config-near-miss", 136, true},
    FindingKind{"config-disabled", 137, true},
    FindingKind{"config-value", 138, false},
    FindingKind{"library-unnamed", 140, true},
    FindingKind{"library-missing", 141, true},
    FindingKind{"library-version", 142, true},
    FindingKind{"library-in-bundle", 143, true},
    FindingKind{"library-not-beside", 144, true},
    FindingKind{"service-missing", 150, true},
    FindingKind{"pool-missing", 151, true},
    FindingKind{"registry-unreadable", 152, true},
    FindingKind{"pools-unreadable", 153, true},
    FindingKind{"log-unread", 160, false},
};

const FindingKind& kind_of(std::string_view id) {
    for (const FindingKind& kind : kKinds) {
        if (id == kind.id) {
            return kind;
        }
    }
    throw std::logic_error("no such finding");
}

} // namespace

std::span<const FindingKind> finding_kinds() {
    return kKinds;
}

void add_finding(Findings& findings, std::string_view id, std::string text, std::string cure) {
    findings.push_back({&kind_of(id), std::move(text), std::move(cure)});
}

FailedFinding::FailedFinding(Finding reason)
    : Failure(reason.text + ": " + reason.cure + " (" + page_of(*reason.kind) + ')',
              reason.kind->exit_code),
      finding(std::move(reason)) {}

Finding missing_on_machine(bool is_service, const std::string& name) {
    return {&kind_of(is_service ? "service-missing" : "pool-missing"),
            "this machine has no " + std::string(is_service ? "service " : "application pool ") +
                name,
            is_service ? "give the service's name, which is not the one that is displayed"
                       : "correct the name"};
}

Finding unreadable_registry(const std::string& key, const std::string& reason) {
    return {&kind_of("registry-unreadable"),
            "cannot read the registry, " + key + " (" + reason + ')',
            "run this command as administrator"};
}

Finding unreadable_pools(const std::string& file, const std::string& reason) {
    return {&kind_of("pools-unreadable"),
            "cannot read the application pools, " + file + " (" + reason + ')',
            "run this command as administrator"};
}

std::string page_of(const FindingKind& kind) {
    return std::string("docs/troubleshooting.md#") + kind.id;
}

const Finding* first_reason(const Findings& findings) {
    const auto found = std::ranges::find_if(
        findings, [](const Finding& finding) { return finding.kind->is_reason; });
    return found == findings.end() ? nullptr : &*found;
}

} // namespace corvane::tool
