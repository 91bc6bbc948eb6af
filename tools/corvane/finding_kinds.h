// What may keep a program from being profiled: a list. Each kind has an exit code and a heading of
// its own name in docs/troubleshooting.md. Pure.
#pragma once

#include "tools/corvane/command.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::tool {

struct FindingKind {
    const char* id;
    int exit_code;
    bool is_reason; // else it is a remark, and the program is profiled all the same
};

std::span<const FindingKind> finding_kinds();

// Where the documentation speaks of it.
std::string page_of(const FindingKind& kind);

struct Finding {
    const FindingKind* kind;
    std::string text;
    std::string cure;
};
using Findings = std::vector<Finding>;

// The id is one of the list.
void add_finding(Findings& findings, std::string_view id, std::string text, std::string cure);

const Finding* first_reason(const Findings& findings);

// A reason that ends a command.
class FailedFinding : public Failure {
public:
    explicit FailedFinding(Finding reason);

    const Finding finding;
};

// Of a service or a pool that the machine does not have.
Finding missing_on_machine(bool is_service, const std::string& name);

// What this account may not read, and why.
Finding unreadable_registry(const std::string& key, const std::string& reason);
Finding unreadable_pools(const std::string& file, const std::string& reason);

} // namespace corvane::tool
