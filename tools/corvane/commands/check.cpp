// corvane check
#include "tools/corvane/check_facts.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/machine_settings.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <utility>

namespace corvane::tool {
namespace {

struct Texts {
    std::string program, pool, service;
    bool json = false;
};

void print_as_json(const std::string& subject, const std::vector<Finding>& findings) {
    nlohmann::ordered_json report;
    report["subject"] = subject;
    report["profiled"] = first_reason(findings) == nullptr;
    report["findings"] = nlohmann::ordered_json::array();
    for (const Finding& finding : findings) {
        report["findings"].push_back({{"id", finding.kind->id},
                                      {"exit_code", finding.kind->exit_code},
                                      {"reason", finding.kind->is_reason},
                                      {"text", finding.text},
                                      {"cure", finding.cure},
                                      {"page", page_of(*finding.kind)}});
    }
    print_line(report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

void print_finding(const Finding& finding, const char* beginning) {
    print_paragraph(beginning + finding.text + ".", 8);
    print_paragraph("  Cure: " + finding.cure + ".", 8);
    print_line("  See:  " + page_of(*finding.kind));
}

int report(const std::string& subject, const std::vector<Finding>& findings, bool as_json) {
    const Finding* const reason = first_reason(findings);
    if (as_json) {
        print_as_json(subject, findings);
        return reason == nullptr ? kSuccess : reason->kind->exit_code;
    }
    if (reason != nullptr) {
        print_finding(*reason, (subject + " would not be profiled: ").c_str());
        return reason->kind->exit_code;
    }
    print_line(subject + " would be profiled.");
    for (const Finding& remark : findings) {
        print_finding(remark, "Note: ");
    }
    return kSuccess;
}

std::vector<Finding> check_machine(const MachineProgram& found, const Installation& installed,
                                   const std::string& name) {
    std::optional<ProgramFacts> program;
    if (!found.words.empty()) {
        program =
            read_program_facts(find_program(found.words, found.variables), name, found.variables);
        if (found.is_32_bit && program->file.image) {
            program->file.image->runs_as_32_bit = true;
        }
    }
    return find_problems(read_check_facts(found.variables, installed, std::move(program)));
}

std::vector<Finding> check_named(const Words& words, const Installation& installed) {
    const Environment variables = own_environment();
    std::optional<ProgramFacts> program;
    if (!words.empty()) {
        program =
            read_program_facts(find_program(words, variables), to_utf8(words.front()), variables);
    }
    return find_problems(read_check_facts(variables, installed, std::move(program)));
}

// What may not be read is found like anything else.
template <class Search>
std::vector<Finding> guarded(const Search& search) {
    try {
        return search();
    } catch (const FailedFinding& failed) {
        return {failed.finding};
    }
}

} // namespace

Work define_check(CLI::App& app) {
    const auto texts = std::make_shared<Texts>();
    auto* const program =
        app.add_option("PROGRAM", texts->program, "The program, as \"corvane run\" would find it");
    auto* const pool =
        app.add_option("--pool", texts->pool,
                       "An application pool of IIS: the variables are read where they stand")
            ->type_name("NAME")
            ->excludes(program);
    app.add_option("--service", texts->service, "A service, likewise")
        ->type_name("NAME")
        ->excludes(pool)
        ->excludes(program);
    app.add_flag("--json", texts->json, "Print all findings as JSON");
    return [&app, texts](const Words& behind) {
        const Installation installed = find_installation();
        if (app.count("--service") != 0 || app.count("--pool") != 0) {
            if (!behind.empty()) {
                throw Failure("a service or a pool has its own words: there are to be none behind "
                              "\"--\"",
                              kMisused);
            }
            const bool is_service = app.count("--service") != 0;
            const std::string& name = is_service ? texts->service : texts->pool;
            const std::string subject =
                (is_service ? "The service " : "The application pool ") + name;
            const auto findings = guarded([&] {
                const MachineProgram found =
                    is_service ? find_service(to_wide(name)) : find_pool(to_wide(name));
                return found.exists ? check_machine(found, installed, subject)
                                    : std::vector{missing_on_machine(is_service, name)};
            });
            return report(subject, findings, texts->json);
        }
        Words words = behind;
        if (!texts->program.empty()) {
            words.insert(words.begin(), to_wide(texts->program));
        }
        return report(words.empty() ? "A program" : to_utf8(words.front()),
                      guarded([&] { return check_named(words, installed); }), texts->json);
    };
}

} // namespace corvane::tool
