// corvane install and uninstall
#include "profiler/wide_text.h"
#include "tools/corvane/class_id.h"
#include "tools/corvane/com_server.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/install_record.h"
#include "tools/corvane/installation.h"
#include "tools/corvane/machine_changes.h"
#include "tools/corvane/machine_settings.h"
#include "tools/corvane/program.h"
#include "tools/corvane/registry.h"
#include "tools/corvane/run_plan.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>

#include <windows.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kRecord[] = L"install.json";
constexpr wchar_t kAside[] =
    L".previous"; // behind the name of a file that another one has replaced

// Owned by administrators, who may do all, as may the system; users read and run. Nothing comes
// from above.
constexpr wchar_t kPermissions[] = L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";

struct Options {
    std::string folder;
    std::vector<std::string> services, pools;
    bool what_if = false;
};

// One change of the machine, and its opposite, which has an effect only as far as the change was
// made.
struct Step {
    std::string text;
    std::function<void()> make;
    std::function<void()> unmake;
};
using Steps = std::vector<Step>;

std::string shown(const fs::path& path) {
    return to_utf8(path.wstring());
}

std::string shown(bool is_pool, const std::wstring& name) {
    return (is_pool ? "the application pool " : "the service ") + to_utf8(name);
}

// --- Files

// What an installation consists of; the user's own files are never replaced.
struct NewFile {
    std::wstring path; // in the folder
    std::string bytes;
    bool is_users = false;
};

std::vector<NewFile> files_of(const Installation& source, const std::string& config) {
    const fs::path folder = source.folder;
    std::vector<NewFile> files;
    const auto add = [&](const fs::path& from, const std::wstring& path, bool is_users = false) {
        if (auto bytes = read_file(from)) {
            files.push_back({path, std::move(*bytes), is_users});
        }
    };
    add(source.profiler, L"CorvaneProfiler.dll");
    add(own_file(), L"corvane.exe");
    add(source.library, L"managed\\kite\\kite.managed.dll");
    for (const wchar_t* const path :
         {L"managed\\kite_framework\\kite.managed.dll", L"README.txt", L"sbom.cdx.json"}) {
        add(folder / path, path);
    }
    std::error_code none;
    for (const auto& licence : fs::directory_iterator(folder / "licenses", none)) {
        add(licence.path(), L"licenses\\" + licence.path().filename().wstring());
    }
    add(folder / "do_not_instrument.txt", L"do_not_instrument.txt", true);
    if (config.empty()) {
        add(folder / "agent.config", L"agent.config", true);
    } else {
        files.push_back({L"agent.config", config, true});
    }
    return files;
}

// A file that runs cannot be removed, but it can be renamed, and goes when the system starts again.
void remove_file(const fs::path& file) {
    if (DeleteFileW(file.c_str()) != FALSE || GetLastError() == ERROR_FILE_NOT_FOUND ||
        GetLastError() == ERROR_PATH_NOT_FOUND) {
        return;
    }
    const DWORD error = GetLastError();
    const fs::path aside = file.extension() == kAside ? file : fs::path(file.wstring() + kAside);
    if ((aside != file &&
         MoveFileExW(file.c_str(), aside.c_str(), MOVEFILE_REPLACE_EXISTING) == FALSE) ||
        MoveFileExW(aside.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT) == FALSE) {
        fail("cannot remove " + shown(file), error);
    }
    print_line("In use, and removed when Windows starts again: " + shown(aside));
}

void move_file(const fs::path& from, const fs::path& to) {
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) == FALSE) {
        fail("cannot replace " + shown(to), GetLastError());
    }
}

bool is_there(const fs::path& file) {
    std::error_code ignored;
    return fs::exists(file, ignored);
}

// The folders of these files, the deepest first, and the folder itself: those that are empty go.
void remove_empty_folders(const fs::path& folder, const std::vector<RecordedFile>& files,
                          bool with_itself) {
    for (const RecordedFile& file : files) {
        for (fs::path inner = fs::path(file.path).parent_path(); !inner.empty();
             inner = inner.parent_path()) {
            RemoveDirectoryW((folder / inner).c_str());
        }
    }
    if (with_itself) {
        RemoveDirectoryW(folder.c_str());
    }
}

Step put_file(const fs::path& folder, NewFile file) {
    const fs::path target = folder / file.path;
    const fs::path aside = target.wstring() + kAside;
    const bool replaces = is_there(target);
    const auto contents = std::make_shared<NewFile>(std::move(file));
    return {(replaces ? "replace " : "write ") + shown(target),
            [=] {
                fs::create_directories(target.parent_path());
                if (replaces) {
                    move_file(target, aside);
                }
                write_file(target, contents->bytes);
            },
            [=] {
                if (!replaces) {
                    remove_file(target);
                    remove_empty_folders(folder, {{contents->path, {}}}, false);
                } else if (is_there(aside)) {
                    remove_file(target);
                    move_file(aside, target);
                }
            }};
}

std::optional<InstallRecord> read_record(const fs::path& folder) {
    const auto text = read_file(folder / kRecord);
    if (!text) {
        return std::nullopt;
    }
    auto record = parse_record(*text);
    if (!record) {
        throw Failure(shown(folder / kRecord) + " is no record of an installation");
    }
    return record;
}

// --- The registration

std::wstring registered_path() {
    const auto path = registry_texts(
        HKEY_CLASSES_ROOT, std::wstring(L"CLSID\\") + kProfilerClass + L"\\InprocServer32", L"");
    return path ? path->front() : std::wstring();
}

bool is_same_file(const std::wstring& left, const std::wstring& right) {
    std::error_code ignored;
    return fs::equivalent(left, right, ignored);
}

// The registration as it was before; without the file of that one there is nothing to go back to.
void register_again(const std::wstring& before, const std::wstring& profiler) {
    if (is_there(before) && !before.empty()) {
        call_server(before, "DllRegisterServer");
    } else {
        call_server(profiler, "DllUnregisterServer");
    }
}

// --- Services and pools

// As `corvane run` sets them for a program, but for the results of the one run. A pool that gets
// variables of its own no longer has those of the defaults: they come with them.
Changes variables_for(const fs::path& folder, bool is_pool, const Environment& current,
                      const Environment& inherited) {
    Environment others = current;
    others.insert(inherited.begin(), inherited.end());
    const std::wstring library = (folder / "managed" / "kite" / "kite.managed.dll").wstring();
    if (const auto hooks = others.find(L"DOTNET_STARTUP_HOOKS");
        hooks != others.end() && hooks->second.starts_with(library)) {
        hooks->second.erase(0, library.size() + 1); // of the installation before this one
    }
    Changes changes = run_changes(
        {}, {(folder / "CorvaneProfiler.dll").wstring(), library, folder.wstring(), L"", L""},
        others);
    std::erase_if(changes, [](const auto& change) { return change.first == L"CORVANE_SUMMARY"; });
    if (is_pool) {
        changes.emplace_back(L"APP_TYPE", L"TYPE_IIS");
    }
    for (const auto& [name, value] : inherited) {
        if (std::ranges::none_of(changes, [&name = name](const auto& change) {
                return equals_ignore_case(change.first, name);
            })) {
            changes.emplace_back(name, value);
        }
    }
    return changes;
}

Step change_variables(bool is_pool, const std::wstring& name, const Changes& changes,
                      const Environment& current) {
    Changes opposite;
    std::string text = "change " + shown(is_pool, name) + ":";
    for (const auto& [variable, value] : changes) {
        const auto before = current.find(variable);
        opposite.emplace_back(variable, before == current.end() ? std::nullopt
                                                                : std::optional(before->second));
        text += "\r\n    " +
                (value ? to_utf8(variable + L'=' + *value) : "without " + to_utf8(variable));
    }
    return {text, [=] { change_target(is_pool, name, changes); },
            [=] {
                const auto now = target_variables(is_pool, name);
                if (const Changes needed = differing(opposite, now.value_or(Environment()));
                    !needed.empty()) {
                    change_target(is_pool, name, needed);
                }
            }};
}

Environment required_variables(bool is_pool, const std::wstring& name) {
    const auto variables = target_variables(is_pool, name);
    if (!variables) {
        throw Failure("there is no " + std::string(is_pool ? "application pool " : "service ") +
                      to_utf8(name));
    }
    return *variables;
}

std::vector<std::pair<bool, std::wstring>> targets_of(const Options& options) {
    std::vector<std::pair<bool, std::wstring>> targets;
    for (const std::string& name : options.services) {
        targets.emplace_back(false, to_wide(name));
    }
    for (const std::string& name : options.pools) {
        targets.emplace_back(true, to_wide(name));
    }
    return targets;
}

// An agent.config with the programs of the services; empty without any, and a sample is taken then.
std::string config_for(const Options& options) {
    std::vector<std::string> names;
    for (const std::string& name : options.services) {
        const MachineProgram service = find_service(to_wide(name));
        if (!service.words.empty()) {
            names.push_back(gate_name(find_program(service.words, service.variables).file));
        }
    }
    return names.empty() ? std::string() : run_config(names, false);
}

// --- Doing it

void print_steps(const Steps& steps) {
    for (const Step& step : steps) {
        print_line("would " + step.text);
    }
}

// All of them or none.
void make_all(const Steps& steps) {
    std::size_t begun = 0;
    try {
        for (const Step& step : steps) {
            ++begun;
            step.make();
            print_line(step.text);
        }
    } catch (const std::exception& error) {
        std::string left;
        while (begun != 0) {
            try {
                steps[--begun].unmake();
            } catch (const std::exception& other) {
                left += std::string("; ") + other.what();
            }
        }
        throw Failure(std::string(error.what()) +
                      (left.empty() ? ". What was done until then is undone"
                                    : ". Not all that was done is undone" + left));
    }
}

struct Plan {
    Steps steps;
    InstallRecord record;
};

void plan_folder(Plan& plan, const fs::path& folder, bool is_new) {
    const bool is_there_already = is_there(folder);
    if (is_new) {
        plan.record.made_folder = !is_there_already;
    }
    const std::wstring before = is_there_already ? permissions_of(folder) : std::wstring();
    if (is_new) {
        plan.record.permissions_before = before;
    }
    plan.steps.push_back({"make " + shown(folder) + " a folder that only administrators write to",
                          [=] {
                              fs::create_directories(folder);
                              set_permissions(folder, kPermissions);
                          },
                          [=] {
                              if (is_there_already) {
                                  set_permissions(folder, before);
                              } else {
                                  RemoveDirectoryW(folder.c_str());
                              }
                          }});
}

void plan_files(Plan& plan, const fs::path& folder, std::vector<NewFile> files) {
    for (NewFile& file : files) {
        const auto present = read_file(folder / file.path);
        const std::string sum = sum_of(file.bytes);
        if (present && (file.is_users || sum_of(*present) == sum)) {
            continue;
        }
        if (RecordedFile* const known = find_file(plan.record, file.path)) {
            known->sum = sum;
        } else {
            plan.record.files.push_back({file.path, sum});
        }
        plan.steps.push_back(put_file(folder, std::move(file)));
    }
}

void plan_registration(Plan& plan, const fs::path& folder) {
    const std::wstring profiler = (folder / "CorvaneProfiler.dll").wstring();
    const std::wstring before = registered_path();
    if (is_same_file(before, profiler)) {
        return;
    }
    plan.record.registers = true;
    plan.record.registered_before = before;
    plan.steps.push_back({"register " + to_utf8(profiler),
                          [=] { call_server(profiler, "DllRegisterServer"); },
                          [=] { register_again(before, profiler); }});
}

void plan_targets(Plan& plan, const fs::path& folder, const Options& options) {
    for (const auto& [is_pool, name] : targets_of(options)) {
        const Environment current = required_variables(is_pool, name);
        const Changes changes = variables_for(folder, is_pool, current,
                                              is_pool ? inherited_variables(name) : Environment());
        RecordedTarget& target = target_of(plan.record, is_pool, name);
        target.variables = recorded_with(target.variables, current, changes);
        if (const Changes needed = differing(changes, current); !needed.empty()) {
            plan.steps.push_back(change_variables(is_pool, name, needed, current));
        }
    }
}

// The record comes before what it speaks of: an installation that is cut off can be taken back.
Step write_record(const fs::path& folder, const InstallRecord& record) {
    const fs::path file = folder / kRecord;
    const auto before = read_file(file);
    return {"write " + shown(file), [=] { write_file(file, to_json(record)); },
            [=] {
                if (before) {
                    write_file(file, *before);
                } else {
                    remove_file(file);
                }
            }};
}

int install(const Options& options) {
    const Installation source = find_installation();
    if (source.profiler.empty() || source.library.empty()) {
        throw Failure(
            "there is no " +
            std::string(source.profiler.empty() ? "CorvaneProfiler.dll" : "kite.managed.dll") +
            " with this tool in " + to_utf8(source.folder));
    }
    const fs::path folder = full_path(to_wide(options.folder));
    std::optional<InstallRecord> known = read_record(folder);
    const bool is_own = is_same_file(folder.wstring(), source.folder);
    std::error_code ignored;
    if (!known && !is_own && is_there(folder) && !fs::is_empty(folder, ignored)) {
        throw Failure(shown(folder) + " has other files in it: name a folder that is new or empty");
    }
    Plan plan;
    plan.record = known.value_or(InstallRecord());
    plan_folder(plan, folder, !known);
    const std::size_t place_of_record = plan.steps.size();
    plan_files(plan, folder, files_of(source, config_for(options)));
    plan_registration(plan, folder);
    plan_targets(plan, folder, options);
    plan.steps.insert(plan.steps.begin() + static_cast<std::ptrdiff_t>(place_of_record),
                      write_record(folder, plan.record));
    if (options.what_if) {
        print_steps(plan.steps);
        return kSuccess;
    }
    make_all(plan.steps);
    for (const RecordedFile& file : plan.record.files) {
        remove_file((folder / file.path).wstring() + kAside);
    }
    for (const auto& [is_pool, name] : targets_of(options)) {
        print_line("Restart " + shown(is_pool, name) + ". \"corvane check --" +
                   (is_pool ? "pool" : "service") + " \"" + to_utf8(name) +
                   "\"\" says whether it will be profiled.");
    }
    return kSuccess;
}

// --- Taking it back

void plan_taking_back(Steps& steps, std::vector<std::string>& left, const RecordedTarget& target) {
    const auto current = target_variables(target.is_pool, target.name);
    if (!current) {
        return; // gone with all that it had
    }
    const TakingBack back = taking_back(target.variables, *current);
    for (const std::wstring& name : back.left) {
        left.push_back(to_utf8(name) + " of " + shown(target.is_pool, target.name));
    }
    if (!back.changes.empty()) {
        steps.push_back(change_variables(target.is_pool, target.name, back.changes, *current));
    }
}

int uninstall(const Options& options) {
    const fs::path folder =
        options.folder.empty() ? own_file().parent_path() : full_path(to_wide(options.folder));
    const auto record = read_record(folder);
    if (!record) {
        throw Failure("there is no " + shown(folder / kRecord) +
                      ": nothing was installed there by \"corvane install\"");
    }
    Steps steps; // none is unmade: what fails is tried again by the next uninstall
    std::vector<std::string> left;
    for (const RecordedTarget& target : record->targets) {
        plan_taking_back(steps, left, target);
    }
    const std::wstring profiler = (folder / "CorvaneProfiler.dll").wstring();
    const std::wstring registered = registered_path();
    if (record->registers && is_same_file(registered, profiler)) {
        steps.push_back({"remove the registration of " + to_utf8(profiler),
                         [=] { register_again(record->registered_before, profiler); },
                         {}});
    } else if (record->registers && !registered.empty() &&
               registered != record->registered_before) {
        left.push_back("the registration of " + to_utf8(registered));
    }
    for (const RecordedFile& file : record->files) {
        const fs::path path = folder / file.path;
        const auto bytes = read_file(path);
        if (bytes && sum_of(*bytes) != file.sum) {
            left.push_back(shown(path));
        } else if (bytes) {
            steps.push_back({"remove " + shown(path), [=] { remove_file(path); }, {}});
        }
    }
    steps.push_back({"remove " + shown(folder / kRecord),
                     [=] {
                         remove_file(folder / kRecord);
                         remove_empty_folders(folder, record->files, record->made_folder);
                         if (!record->made_folder) {
                             set_permissions(folder, record->permissions_before);
                         }
                     },
                     {}});
    if (options.what_if) {
        print_steps(steps);
    } else {
        for (const Step& step : steps) {
            step.make();
            print_line(step.text);
        }
    }
    for (const std::string& name : left) {
        print_line("left, because it was changed since: " + name);
    }
    return kSuccess;
}

} // namespace

Work define_install(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--dir", options->folder, "The folder; it is made, or has to be empty")
        ->type_name("DIR")
        ->required();
    app.add_option("--service", options->services,
                   "Also sets the variables of a service; may be repeated")
        ->type_name("NAME");
    app.add_option("--pool", options->pools, "The same of an application pool of IIS")
        ->type_name("NAME");
    app.add_flag("--what-if", options->what_if, "Change nothing, and print what would be done");
    return [options](const Words&) { return install(*options); };
}

Work define_uninstall(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--dir", options->folder, "The folder; without it the one of this tool")
        ->type_name("DIR");
    app.add_flag("--what-if", options->what_if, "Change nothing, and print what would be done");
    return [options](const Words&) { return uninstall(*options); };
}

} // namespace corvane::tool
