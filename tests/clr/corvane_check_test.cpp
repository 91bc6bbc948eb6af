// corvane check: what keeps a program from being profiled, made for real; and that run refuses with
// the same words.
#include "base/owned_handle.h"
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <functional>
#include <map>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kListed[] = "<configuration><instrumentation><applications>"
                           "<application name='launched.exe' corvane='Enabled'/>"
                           "</applications></instrumentation></configuration>";
constexpr wchar_t kClassId[] = L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";
const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\";

class CorvaneCheck : public ToolTest {
protected:
    CorvaneCheck() { program = L"launched"; }

    void SetUp() override {
        ToolTest::SetUp();
        configure(kListed);
        variables = {{L"CORECLR_ENABLE_PROFILING", L"1"},
                     {L"CORECLR_PROFILER", kClassId},
                     {L"CORECLR_PROFILER_PATH", library.wstring()},
                     {L"CORVANE_HOME_APM_DOTNET", home.wstring()},
                     {L"CORVANE_LOG_FILE", L"C:\\corvane.log"},
                     {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}};
    }

    std::wstring launched() const { return program_as(L"launched.exe").wstring(); }

    ToolRun check(std::vector<std::wstring> words) const {
        words.insert(words.begin(), L"check");
        return run_tool(words, variables);
    }

    void expect_finding(const ToolRun& result, DWORD exit_code, const std::string& id,
                        const std::string& text) const {
        EXPECT_EQ(result.exit_code, exit_code) << id << ": " << result.output;
        EXPECT_THAT(result.output, AllOf(HasSubstr(" would not be profiled: "), HasSubstr(text),
                                         HasSubstr("\r\n  Cure: "),
                                         HasSubstr("docs/troubleshooting.md#" + id + "\r\n")));
    }

    // Would be profiled, with this remark.
    static void expect_remark(const ToolRun& result, const std::string& id,
                              const std::string& text) {
        EXPECT_EQ(result.exit_code, 0U) << id << ": " << result.output;
        EXPECT_THAT(result.output, AllOf(HasSubstr(" would be profiled.\r\nNote: " + text),
                                         HasSubstr("\r\n  Cure: "),
                                         HasSubstr("docs/troubleshooting.md#" + id + "\r\n")));
    }

    // A file with other bytes at a place of it.
    static void patch(const fs::path& file, std::size_t at, const std::string& bytes) {
        std::string text = text_of(file);
        ASSERT_LE(at + bytes.size(), text.size());
        write_file(file, text.replace(at, bytes.size(), bytes));
    }

    static void make_32_bit(const fs::path& image) {
        const std::string bytes = text_of(image);
        const auto header = static_cast<unsigned char>(bytes[0x3C]) +
                            256U * static_cast<unsigned char>(bytes[0x3D]);
        patch(image, header + 4, "\x4C\x01");
    }

    Environment variables;
};
INSTANTIATE_TEST_SUITE_P(Newest, CorvaneCheck, ::testing::Values(10), runtime_name);

// What check promises is what a run then does.
TEST_P(CorvaneCheck, FindsNothingWhereAProgramIsProfiled) {
    const ToolRun result = check({launched()});
    EXPECT_EQ(result.exit_code, 0U);
    EXPECT_EQ(result.output, fs::path(launched()).string() + " would be profiled.\r\n");
    DebuggeeOptions options = tool_options({L"code", L"0"}, variables);
    options.program = launched();
    options.environment[L"CORVANE_SUMMARY"] = L"stderr";
    run_debuggee(options);
    EXPECT_THAT(text_of(options.output_file), HasSubstr("1 calls, 0 errors, 1 methods\r\n"));
}

struct Case {
    const char* id;
    DWORD exit_code;
    const char* text;
    std::function<void(Environment&)> change;
};

TEST_P(CorvaneCheck, FindsWhatIsWrongWithTheVariables) {
    const std::wstring folder_text = folder().wstring();
    write_file(folder() / "text.dll", "no DLL");
    fs::copy_file(library, folder() / "32.dll");
    make_32_bit(folder() / "32.dll");
    write_file(folder() / "held.dll", "somebody's");
    const OwnedHandle held(CreateFileW((folder() / "held.dll").c_str(), GENERIC_READ, 0, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const std::vector<Case> cases = {
        {"variables-unset", 111, "CORECLR_ENABLE_PROFILING is not 1",
         [](Environment& e) { e.erase(L"CORECLR_ENABLE_PROFILING"); }},
        {"variables-one-family", 112, "only the variables with COR_",
         [](Environment& e) {
             e.erase(L"CORECLR_ENABLE_PROFILING");
             e[L"COR_ENABLE_PROFILING"] = L"1";
         }},
        {"variables-contradictory", 113, "CORECLR_PROFILER is not set",
         [](Environment& e) { e.erase(L"CORECLR_PROFILER"); }},
        {"profiler-missing", 123, "\"C:\\other.dll\", and there is no such file",
         [](Environment& e) { e[L"CORECLR_PROFILER_PATH_64"] = L"C:\\other.dll"; }},
        {"another-profiler", 114, "{0B8D2FAC-0000-0000-0000-000000000001}",
         [](Environment& e) {
             e[L"CORECLR_PROFILER"] = L"{0B8D2FAC-0000-0000-0000-000000000001}";
         }},
        {"diagnostics-off", 110, "DOTNET_EnableDiagnostics=0",
         [](Environment& e) { e[L"DOTNET_EnableDiagnostics"] = L"0"; }},
        {"registration-absent", 120, "not registered",
         [](Environment& e) { e.erase(L"CORECLR_PROFILER_PATH"); }},
        {"profiler-missing", 123, "no such file",
         [](Environment& e) { e[L"CORECLR_PROFILER_PATH"] = L"C:\\nowhere\\CorvaneProfiler.dll"; }},
        {"profiler-missing", 123, "\"text.dll\", which is no full path", // but is there
         [](Environment& e) { e[L"CORECLR_PROFILER_PATH"] = L"text.dll"; }},
        {"profiler-unreadable", 124, "held.dll\" cannot be read by this account",
         [&](Environment& e) { e[L"CORECLR_PROFILER_PATH"] = folder_text + L"\\held.dll"; }},
        {"profiler-architecture", 125, "no DLL for 64-bit processes",
         [&](Environment& e) { e[L"CORECLR_PROFILER_PATH"] = folder_text + L"\\text.dll"; }},
        {"profiler-architecture", 125, "32.dll\" is no DLL for 64-bit processes",
         [&](Environment& e) { e[L"CORECLR_PROFILER_PATH"] = folder_text + L"\\32.dll"; }},
        {"profiler-exports", 126, "lacks the export DllGetClassObject",
         [](Environment& e) {
             e[L"CORECLR_PROFILER_PATH"] = built_file(L"debuggee_child.exe").wstring();
         }},
        {"home-unset", 130, "is not set",
         [](Environment& e) { e.erase(L"CORVANE_HOME_APM_DOTNET"); }},
        {"home-characters", 131, "code page",
         [](Environment& e) { e[L"CORVANE_HOME_APM_DOTNET"] = L"C:\\\u0416"; }},
        {"home-unset", 130, "  Cure: write CORVANE_HOME_AMP_DOTNET as CORVANE_HOME_APM_DOTNET",
         [](Environment& e) {
             e.erase(L"CORVANE_HOME_APM_DOTNET");
             e[L"CORVANE_HOME_AMP_DOTNET"] = L"C:\\C";
         }},
        {"config-missing", 132, "there is no agent.config in C:\\nowhere",
         [](Environment& e) { e[L"CORVANE_HOME_APM_DOTNET"] = L"C:\\nowhere"; }},
        {"config-missing", 132, "\"home\", which is no full path", // but is there
         [](Environment& e) { e[L"CORVANE_HOME_APM_DOTNET"] = L"home"; }},
        {"library-unnamed", 140, "does not name kite.managed.dll",
         [](Environment& e) { e.erase(L"DOTNET_STARTUP_HOOKS"); }},
        {"library-missing", 141, "no file's full path",
         [](Environment& e) { e[L"DOTNET_STARTUP_HOOKS"] = L"C:\\nowhere\\kite.managed.dll"; }},
    };
    const Environment good = variables;
    for (const Case& wrong : cases) {
        variables = good;
        wrong.change(variables);
        expect_finding(check({launched()}), wrong.exit_code, wrong.id, wrong.text);
    }
}

TEST_P(CorvaneCheck, OnlyRemarksWhatDoesNotCount) {
    Environment good = variables;
    variables[L"CORECLR_PROFILER_PATH_64"] = good[L"CORECLR_PROFILER_PATH"];
    variables[L"CORECLR_PROFILER_PATH"] = L"C:\\other.dll";
    expect_remark(check({launched()}), "variables-two-paths",
                  "CORECLR_PROFILER_PATH and CORECLR_PROFILER_PATH_64 name different files, and "
                  "the second one counts.");
    variables = good;
    variables.erase(L"CORVANE_LOG_FILE");
    expect_remark(check({launched()}), "log-unread",
                  "nobody reads the profiler's log: there is no viewer of debugger output");
}

TEST_P(CorvaneCheck, NamesAFileThatIsAlmostTheConfiguration) {
    fs::rename(home / "agent.config", home / "Agent.config.txt");
    expect_finding(check({launched()}), 132, "config-missing",
                   "  Cure: rename Agent.config.txt, which is there, to agent.config.\r\n");
}

// The version stands behind a mark (VS_FIXEDFILEINFO).
TEST_P(CorvaneCheck, FindsALibraryOfAnotherRelease) {
    const fs::path other = folder() / "other" / "kite.managed.dll";
    fs::create_directory(other.parent_path());
    fs::copy_file(managed_library(), other);
    variables[L"DOTNET_STARTUP_HOOKS"] = other.wstring();
    EXPECT_EQ(check({launched()}).exit_code, 0U);
    const std::size_t mark = text_of(other).find("\xBD\x04\xEF\xFE");
    ASSERT_NE(mark, std::string::npos);
    patch(other, mark + 8, std::string("\x07\0\x63\0", 4));
    expect_finding(check({launched()}), 142, "library-version",
                   other.string() + "\" has the version 99.7.");
    write_file(other, "no assembly");
    expect_finding(check({launched()}), 142, "library-version",
                   other.string() + "\" has no version, and \"" + library.string() +
                       "\" the version ");
}

TEST_P(CorvaneCheck, LooksForTheFrameworksLibraryBesideTheProgram) {
    const fs::path built = built_file(L"managed") / "framework";
    const fs::path exe = folder() / "framework" / "framework.exe";
    fs::create_directory(exe.parent_path());
    fs::copy_file(built / "framework.exe", exe);
    configure("<configuration><instrumentation><applications><application name='framework.exe'/>"
              "</applications></instrumentation></configuration>");
    expect_finding(check({exe.wstring()}), 112, "variables-one-family",
                   "this program reads those with COR_");
    for (const wchar_t* const name : {L"ENABLE_PROFILING", L"PROFILER", L"PROFILER_PATH"}) {
        variables[std::wstring(L"COR_") + name] = variables[std::wstring(L"CORECLR_") + name];
    }
    expect_finding(check({exe.wstring()}), 144, "library-not-beside",
                   "kite.managed.dll is not beside " + exe.string());
    fs::copy_file(built / "kite.managed.dll", exe.parent_path() / "kite.managed.dll");
    const ToolRun good = check({exe.wstring()});
    EXPECT_EQ(good.exit_code, 0U) << good.output;
    variables[L"COR_ENABLE_PROFILING"] = L"0";
    expect_finding(check({exe.wstring()}), 112, "variables-one-family",
                   "only the variables with CORECLR_");
}

// A library is run by dotnet.exe, and this one is listed.
TEST_P(CorvaneCheck, FindsWhatRunsALibrary) {
    const fs::path dll = program_folder() / "launched.dll";
    const fs::path dotnet = program_as(L"dotnet.exe");
    variables[L"PATH"] = dotnet.parent_path().wstring();
    expect_finding(check({dll.wstring()}), 135, "config-entry", "does not list dotnet.exe");
    configure("<configuration><instrumentation><applications><application name='dotnet.exe'/>"
              "</applications></instrumentation></configuration>");
    const ToolRun alone = check({dll.wstring()});
    EXPECT_EQ(alone.exit_code, 0U);
    EXPECT_EQ(alone.output, dll.string() + " would be profiled.\r\n");
    const ToolRun named = check({L"dotnet", L"--", dll.wstring()});
    EXPECT_EQ(named.exit_code, 0U);
    EXPECT_EQ(named.output, "dotnet would be profiled.\r\n");
    expect_finding(check({L"dotnet", L"--", dll.wstring() + L".dll"}), 101, "program-missing",
                   "there is no " + dll.string() + ".dll");
}

TEST_P(CorvaneCheck, LooksOnlyAtTheVariablesWithoutAProgram) {
    const ToolRun good = check({});
    EXPECT_EQ(good.exit_code, 0U);
    EXPECT_EQ(good.output, "A program would be profiled.\r\n");
    variables.erase(L"CORECLR_ENABLE_PROFILING");
    expect_finding(check({}), 111, "variables-unset", "A program would not be profiled: ");
}

TEST_P(CorvaneCheck, TakesOneSubject) {
    for (const std::wstring option : {L"--service", L"--pool"}) {
        const ToolRun both = check({launched(), option, L"x"});
        EXPECT_EQ(both.exit_code, 2U);
        EXPECT_THAT(both.output,
                    StartsWith("corvane: PROGRAM excludes " + fs::path(option).string() + "\r\n"));
        const ToolRun behind = check({option, L"x", L"--", L"word"});
        EXPECT_EQ(behind.exit_code, 2U);
        EXPECT_EQ(behind.output, "corvane: a service or a pool has its own words: there are to be "
                                 "none behind \"--\"\r\n");
    }
    EXPECT_EQ(check({L"--service", L"x", L"--pool", L"x"}).exit_code, 2U);
}

TEST_P(CorvaneCheck, FindsWhatIsWrongWithTheConfiguration) {
    const auto applications = [](const std::string& entries) {
        return "<configuration><instrumentation><applications>" + entries +
               "</applications></instrumentation></configuration>";
    };
    struct Row {
        const char* id;
        DWORD exit_code;
        const char* text;
        std::string config;
    };
    const std::vector<Row> rows = {
        {"config-unreadable", 133, "cannot be read", "<configuration>"},
        {"config-section", 134, "has no element instrumentation", "<configuration/>"},
        {"config-near-miss", 136, "but one called Instrumentation",
         "<configuration><Instrumentation/></configuration>"},
        {"config-entry", 135, "does not list launched.exe",
         applications("<application name='other.exe'/>")},
        {"config-near-miss", 136, "does not list launched.exe, but \"lanched.exe\"",
         applications("<application name='other.exe'/><application name='lanched.exe'/>")},
        {"config-disabled", 137, "corvane=\"Disabled\" for launched.exe",
         applications("<application name='launched.exe' corvane='Disabled'/>")},
    };
    for (const Row& row : rows) {
        configure(row.config);
        expect_finding(check({launched()}), row.exit_code, row.id, row.text);
        const ToolRun refused =
            run_tool({L"run", L"--config", home.wstring(), L"--", launched(), L"sum"});
        EXPECT_EQ(refused.exit_code, row.exit_code);
        EXPECT_THAT(refused.output, AllOf(StartsWith("corvane: "), HasSubstr(row.text)));
        EXPECT_EQ(refused.output.find("27\r\n"), std::string::npos); // not started
    }
    configure(applications("<application name='launched.exe' corvane='disabled'/>"));
    const ToolRun remark = check({launched()});
    EXPECT_EQ(remark.exit_code, 0U);
    EXPECT_THAT(remark.output, HasSubstr("Note: corvane=\"disabled\" counts as enabled"));
}

TEST_P(CorvaneCheck, FindsWhatIsWrongWithTheProgram) {
    write_file(folder() / "script.cmd", "@echo off");
    expect_finding(check({L"no such program"}), 101, "program-missing",
                   "there is no program no such program");
    expect_finding(check({(folder() / "script.cmd").wstring()}), 102, "program-no-image",
                   "perhaps a script");
    expect_finding(check({tool.wstring()}), 105, "program-not-managed", "is not a .NET program");
    const fs::path config = program_folder() / "launched.runtimeconfig.json";
    const std::string as_built = text_of(config);
    const std::wstring exe = launched();
    write_file(
        config,
        R"({"runtimeOptions": {"framework": {"name": "Microsoft.NETCore.App", "version": "6.0.0"}}})");
    expect_finding(check({exe}), 106, "runtime-too-old", "runs on .NET 6.0.0");
    const fs::path own = program_folder() / "kite.managed.dll";
    fs::copy_file(built_file(L"managed") / "kite_framework" / "kite.managed.dll", own);
    expect_finding(check({exe}), 106, "runtime-too-old", "runs on .NET 6.0.0");
    const auto hooks = variables.extract(L"DOTNET_STARTUP_HOOKS"); // the build beside it is loaded
    EXPECT_EQ(check({exe}).exit_code, 0U);
    variables.insert(std::pair(hooks.key(), hooks.mapped()));
    fs::remove(own);
    write_file(
        config,
        R"({"runtimeOptions": {"configProperties": {"System.StartupHookProvider.IsSupported": false}}})");
    expect_finding(check({exe}), 107, "hooks-off", "start-up hooks switched off");
    write_file(config, as_built);
    // A 32-bit program: the machine of the host is changed.
    make_32_bit(exe);
    expect_finding(check({exe}), 103, "program-architecture", "32-bit program");
    // One that was compiled ahead of time has an export of this name.
    const fs::path native = folder() / "native.exe";
    fs::copy_file(library, native);
    patch(native, text_of(native).find("DllGetClassObject"),
          std::string("DotNetRuntimeDebugHeader") + '\0');
    expect_finding(check({native.wstring()}), 104, "program-native-aot", "native AOT");
}

TEST_P(CorvaneCheck, LooksIntoPrograms) {
    const fs::path built = built_file(L"managed");
    expect_finding(check({(built / "published_SingleFile" / "published.exe").wstring()}), 135,
                   "config-entry", "does not list published.exe");
    configure("<configuration><instrumentation><applications><application name='published.exe'/>"
              "</applications></instrumentation></configuration>");
    expect_finding(check({(built / "published_SingleFile" / "published.exe").wstring()}), 143,
                   "library-in-bundle", "carries a kite.managed.dll");
    EXPECT_EQ(check({(built / "published_SingleFileAlone" / "published.exe").wstring()}).exit_code,
              0U);
    expect_finding(check({(built / "published_Trimmed" / "published.exe").wstring()}), 107,
                   "hooks-off", "start-up hooks switched off");
}

TEST_P(CorvaneCheck, PrintsAllFindingsAsJson) {
    variables.erase(L"CORVANE_LOG_FILE");
    variables[L"CORECLR_PROFILER_PATH"] = L"C:\\nowhere.dll";
    const ToolRun result = check({L"--json", launched()});
    EXPECT_EQ(result.exit_code, 123U);
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("\"profiled\": false"), HasSubstr("\"id\": \"profiler-missing\""),
                      HasSubstr("\"exit_code\": 123"), HasSubstr("\"id\": \"log-unread\""),
                      HasSubstr("\"reason\": false")));
}

TEST_P(CorvaneCheck, SaysInJsonThatNothingIsWrong) {
    const ToolRun result = check({L"--json", launched()});
    EXPECT_EQ(result.exit_code, 0U);
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("\"profiled\": true"), HasSubstr("\"findings\": []")));
}

TEST_P(CorvaneCheck, IsRefusedByRunInTheSameWords) {
    EXPECT_EQ(run_tool({L"run", L"--", L"no such program"}).exit_code, 101U);
    EXPECT_EQ(run_tool({L"run", L"--", tool.wstring(), L"status"}).exit_code, 105U);
    const ToolRun off =
        run_tool({L"run", L"--", launched(), L"sum"}, {{L"DOTNET_EnableDiagnostics", L"0"}});
    EXPECT_EQ(off.exit_code, 110U);
    EXPECT_EQ(
        off.output,
        "corvane: DOTNET_EnableDiagnostics=0 keeps the runtime from loading a profiler: remove "
        "the variable (docs/troubleshooting.md#diagnostics-off)\r\n");
    // What a native program starts may be profiled.
    EXPECT_EQ(run_tool({L"run", L"--children", L"--", tool.wstring(), L"--version"}).exit_code, 0U);
}

void set_values(const std::wstring& key,
                const std::map<std::wstring, std::pair<DWORD, std::wstring>>& values) {
    HKEY opened = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                              KEY_ALL_ACCESS, nullptr, &opened, nullptr),
              ERROR_SUCCESS);
    for (const auto& [name, data] : values) {
        RegSetValueExW(opened, name.c_str(), 0, data.first,
                       reinterpret_cast<const BYTE*>(data.second.data()),
                       static_cast<DWORD>(data.second.size() * sizeof(wchar_t)));
    }
    RegCloseKey(opened);
}

// --- The registration; the registry is left as it was found

TEST_P(CorvaneCheck, FollowsTheRegistration) {
    struct Unregister {
        std::function<void()> call;
        ~Unregister() { call(); }
    } const unregister{[this] { run_tool({L"unregister"}); }};
    const std::string profiler = library.string();
    variables.erase(L"CORECLR_PROFILER_PATH");
    EXPECT_THAT(run_tool({L"status"}).output, HasSubstr("Registered:      no\r\n"));
    expect_finding(check({launched()}), 120, "registration-absent", "it is not registered");

    const ToolRun registered = run_tool({L"register"});
    EXPECT_EQ(registered.exit_code, 0U);
    EXPECT_EQ(registered.output, profiler + " is registered.\r\n");
    EXPECT_EQ(run_tool({L"status"}).output,
              "Version:         " CORVANE_VERSION "\r\nProfiler:        " + profiler +
                  "\r\nManaged library: " + managed_library().string() +
                  "\r\nRegistered:      " + profiler + "\r\n");
    EXPECT_EQ(check({launched()}).exit_code, 0U);

    const std::wstring server =
        std::wstring(L"SOFTWARE\\Classes\\CLSID\\") + kClassId + L"\\InprocServer32";
    const fs::path other = folder() / "CorvaneProfiler.dll";
    fs::copy_file(library, other);
    set_values(server, {{L"", {REG_SZ, other.wstring() + L'\0'}}});
    expect_remark(check({launched()}), "registration-another",
                  "the registered file is another one than this tool's: " + other.string());
    fs::remove(other);
    expect_finding(check({launched()}), 121, "registration-stale", other.string());

    const ToolRun gone = run_tool({L"unregister"});
    EXPECT_EQ(gone.exit_code, 0U);
    EXPECT_EQ(gone.output, profiler + " is no longer registered.\r\n");
    expect_finding(check({launched()}), 120, "registration-absent", "it is not registered");
}

TEST_P(CorvaneCheck, TakesLongPaths) {
    const HMODULE file = LoadLibraryExW(tool.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(file, nullptr);
    const HRSRC manifest = FindResourceW(file, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));
    ASSERT_NE(manifest, nullptr);
    const std::string text(static_cast<const char*>(LockResource(LoadResource(file, manifest))),
                           SizeofResource(file, manifest));
    FreeLibrary(file);
    EXPECT_THAT(text, HasSubstr("WindowsSettings\">true</longPathAware>"));
}

// --- The rules in force

TEST_P(CorvaneCheck, ListsTheRules) {
    variables[L"CORVANE_METHODS"] = L"Shop.*";
    const ToolRun listed = run_tool({L"list"}, variables);
    EXPECT_EQ(listed.exit_code, 0U);
    EXPECT_THAT(listed.output, StartsWith("agent.config: " + (home / "agent.config").string() +
                                          "\r\nExecutables:\r\n  launched.exe: enabled\r\n"));
    EXPECT_THAT(listed.output, HasSubstr("  Shop.*\r\n"));
    EXPECT_EQ(run_tool({L"list", L"--config", home.wstring()}).output.substr(0, 60),
              listed.output.substr(0, 60));
    const ToolRun missing = run_tool({L"list", L"--config", L"C:\\nowhere"});
    EXPECT_EQ(missing.exit_code, 100U);
    EXPECT_EQ(missing.output,
              "corvane: there is no agent.config in C:\\nowhere that can be read\r\n");
    EXPECT_THAT(run_tool({L"list"}).output, StartsWith("agent.config: none, because"));
}

// --- Services and pools, which this machine does not have

// A list as the registry has it.
std::wstring listed(const Environment& variables) {
    std::wstring text;
    for (const auto& [name, value] : variables) {
        text += name + L'=' + value.value_or(L"") + L'\0';
    }
    return text + L'\0';
}

// A variable of the machine, while it lives.
class MachineVariable {
public:
    MachineVariable(const wchar_t* name, const std::wstring& value) : name_(name) {
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, name, REG_SZ, value.c_str(),
                        static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    }
    MachineVariable(const MachineVariable&) = delete;
    MachineVariable& operator=(const MachineVariable&) = delete;
    ~MachineVariable() { RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, name_); }

private:
    static constexpr wchar_t kKey[] =
        L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";

    const wchar_t* name_;
};

class OwnService {
public:
    explicit OwnService(std::wstring name) : name_(std::move(name)) { remove(); }
    OwnService(const OwnService&) = delete;
    OwnService& operator=(const OwnService&) = delete;
    ~OwnService() { remove(); }

    void set(const std::wstring& path, const Environment& variables) const {
        set_values(kServices + name_, {{L"ImagePath", {REG_EXPAND_SZ, path + L'\0'}},
                                       {L"Environment", {REG_MULTI_SZ, listed(variables)}}});
    }

private:
    void remove() const { RegDeleteTreeW(HKEY_LOCAL_MACHINE, (kServices + name_).c_str()); }

    std::wstring name_;
};

TEST_P(CorvaneCheck, ReadsTheVariablesOfAService) {
    const OwnService service(L"corvane test service");
    const std::wstring line = L'"' + launched() + L"\" --service";
    Environment own = variables;
    variables.clear(); // those of the console are not the service's
    expect_finding(check({L"--service", L"corvane test service"}), 150, "service-missing",
                   "no service corvane test");
    service.set(line, {});
    expect_finding(check({L"--service", L"corvane test service"}), 111, "variables-unset",
                   "is not 1");
    service.set(line, own);
    const ToolRun good = check({L"--service", L"corvane test service"});
    EXPECT_EQ(good.exit_code, 0U);
    EXPECT_EQ(good.output, "The service corvane test service would be profiled.\r\n");
    service.set(launched() + L" --service", own); // its blanks are not quoted
    EXPECT_EQ(check({L"--service", L"corvane test service"}).exit_code, 0U);
    own[L"CORECLR_PROFILER_PATH"] = L"CorvaneProfiler.dll";
    service.set(line, own);
    expect_finding(check({L"--service", L"corvane test service"}), 123, "profiler-missing",
                   "which is no full path");
    own[L"CORECLR_PROFILER_PATH"] = library.wstring();
    own[L"CORVANE_HOME_APM_DOTNET"] = L"C:\\nowhere";
    service.set(line, own);
    expect_finding(check({L"--service", L"corvane test service"}), 132, "config-missing",
                   "C:\\nowhere");
}

TEST_P(CorvaneCheck, TakesAnEmptyListForNothing) {
    const OwnService service(L"corvane test service");
    set_values(kServices + L"corvane test service",
               {{L"ImagePath", {REG_MULTI_SZ, std::wstring(1, L'\0')}},
                {L"Environment", {REG_MULTI_SZ, listed(variables)}}});
    const ToolRun result = check({L"--service", L"corvane test service"});
    EXPECT_EQ(result.exit_code, 0U);
    EXPECT_EQ(result.output, "The service corvane test service would be profiled.\r\n");
}

// Nobody may read the key, not even an administrator.
TEST_P(CorvaneCheck, SaysWhatOfTheRegistryMayNotBeRead) {
    const OwnService service(L"corvane test service");
    service.set(L'"' + launched() + L'"', variables);
    EXPECT_EQ(check({L"--service", L"corvane test service"}).exit_code, 0U);
    const std::wstring key = kServices + L"corvane test service";
    HKEY opened = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, WRITE_DAC, &opened), ERROR_SUCCESS);
    SECURITY_DESCRIPTOR descriptor{};
    ACL nobody{};
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    InitializeAcl(&nobody, sizeof(nobody), ACL_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, &nobody, FALSE);
    EXPECT_EQ(RegSetKeySecurity(opened, DACL_SECURITY_INFORMATION, &descriptor), ERROR_SUCCESS);
    expect_finding(
        check({L"--service", L"corvane test service"}), 152, "registry-unreadable",
        "cannot read the registry, SYSTEM\\CurrentControlSet\\Services\\corvane test service (");
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE); // everybody
    RegSetKeySecurity(opened, DACL_SECURITY_INFORMATION, &descriptor);
    RegCloseKey(opened);
}

// The folder of IIS, which this machine does not have.
class Server {
public:
    Server() {
        wchar_t system[MAX_PATH] = {};
        GetSystemDirectoryW(system, MAX_PATH);
        folder = fs::path(system) / "inetsrv";
        fs::remove_all(folder);
        fs::create_directories(folder / "config");
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() { fs::remove_all(folder); }

    fs::path folder;
};

TEST_P(CorvaneCheck, SaysThatThePoolsCannotBeRead) {
    const Server server;
    expect_finding(check({L"--pool", L"One"}), 151, "pool-missing", "no application pool One");
    const fs::path file = server.folder / "config" / "applicationHost.config";
    write_file(file, "<configuration>");
    expect_finding(check({L"--pool", L"One"}), 153, "pools-unreadable", file.string());
    fs::remove(file);
    fs::create_directory(file); // which may not be opened as a file
    expect_finding(check({L"--pool", L"One"}), 153, "pools-unreadable", file.string());
    EXPECT_THAT(check({L"--pool", L"One", L"--json"}).output,
                HasSubstr("\"id\": \"pools-unreadable\""));
}

TEST_P(CorvaneCheck, ReadsTheVariablesOfAPool) {
    const Server server;
    const fs::path& iis = server.folder;
    fs::copy_file(launched(), iis / "w3wp.exe");
    std::string entries;
    for (const auto& [name, value] : variables) {
        entries += "<add name='" + fs::path(name).string() + "' value='" +
                   fs::path(*value).string() + "'/>";
    }
    const auto host = [&](const std::string& attributes, const std::string& pool_variables) {
        write_file(iis / "config" / "applicationHost.config",
                   "<configuration><system.applicationHost><applicationPools><add name='One'" +
                       attributes + "><environmentVariables>" + pool_variables +
                       "</environmentVariables></add></applicationPools></system.applicationHost></"
                       "configuration>");
    };
    host("", entries + "<add name='APP_TYPE' value='TYPE_IIS'/>");
    expect_finding(check({L"--pool", L"Two"}), 151, "pool-missing", "no application pool Two");
    EXPECT_EQ(check({L"--pool", L"one"}).exit_code, 0U);
    host("", entries);
    expect_finding(check({L"--pool", L"One"}), 135, "config-entry", "does not list w3wp.exe");
    {
        const MachineVariable type(L"APP_TYPE", L"TYPE_IIS");
        EXPECT_EQ(check({L"--pool", L"One"}).exit_code, 0U);
    }
    host(" enable32BitAppOnWin64='true'", entries);
    expect_finding(check({L"--pool", L"One"}), 103, "program-architecture", "32-bit");
    host("", "<add name='APP_TYPE' value='TYPE_IIS'/>");
    expect_finding(check({L"--pool", L"One"}), 111, "variables-unset", "is not 1");
    for (const wchar_t* const starter : {L"WAS", L"W3SVC"}) {
        const OwnService service(starter);
        service.set(L"", variables);
        EXPECT_EQ(check({L"--pool", L"One"}).exit_code, 0U) << starter;
    }
    const OwnService service(L"WAS");
    service.set(L"", variables);
    configure("<configuration><appSettings><add key='Corvane' value='Disabled'/></appSettings>"
              "<instrumentation><applicationPools><applicationPool name='Ones'/>"
              "</applicationPools></instrumentation></configuration>");
    expect_finding(check({L"--pool", L"One"}), 137, "config-disabled",
                   "  Cure: write the pool's name, \"One\", for the entry's, \"Ones\".\r\n");
    configure("<configuration><instrumentation><applicationPools><applicationPool name='ONE' "
              "corvane='Disabled'/>"
              "</applicationPools></instrumentation></configuration>");
    expect_finding(check({L"--pool", L"One"}), 137, "config-disabled", "disables");
}

} // namespace
} // namespace corvane::testing
