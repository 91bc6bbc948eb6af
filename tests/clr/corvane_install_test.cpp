// corvane install and uninstall: on this machine's registry, with a service's settings and the file
// of IIS. The machine is left as it was found.
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <aclapi.h>

#include <algorithm>
#include <array>
#include <map>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr wchar_t kService[] = L"corvane install test";
const std::wstring kServiceKey = std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\") + kService;
constexpr wchar_t kServer[] = L"CLSID\\{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}\\InprocServer32";

// Of a list as the registry has it, with "|" for the zeros; "none" if there is none.
std::wstring value_of(HKEY root, const std::wstring& key, const wchar_t* name) {
    std::wstring text(16384, L'\0');
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    if (RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ | RRF_RT_REG_MULTI_SZ, nullptr,
                     text.data(), &size) != ERROR_SUCCESS) {
        return L"none";
    }
    text.resize(size / sizeof(wchar_t));
    while (!text.empty() && text.back() == L'\0') {
        text.pop_back();
    }
    std::ranges::replace(text, L'\0', L'|');
    return text;
}

class CorvaneInstall : public ToolTest {
protected:
    CorvaneInstall() { program = L"launched"; }

    void SetUp() override {
        ToolTest::SetUp();
        target = folder() / "Program Files" / "Corvane";
        std::array<wchar_t, MAX_PATH> system{};
        GetSystemDirectoryW(system.data(), MAX_PATH);
        iis = fs::path(system.data()) / "inetsrv";
        ASSERT_FALSE(fs::exists(iis));
        ASSERT_EQ(registered(), L"none");
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey.c_str());
    }

    void TearDown() override {
        if (!IsSkipped()) {
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey.c_str());
            fs::remove_all(iis);
            if (registered() != L"none") {
                run_tool({L"unregister"});
            }
        }
    }

    static std::wstring registered() { return value_of(HKEY_CLASSES_ROOT, kServer, L""); }
    static std::wstring environment() {
        return value_of(HKEY_LOCAL_MACHINE, kServiceKey, L"Environment");
    }

    static void set_value(const wchar_t* name, DWORD type, const std::wstring& text) {
        ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kServiceKey.c_str(), name, type, text.data(),
                                  static_cast<DWORD>(text.size() * sizeof(wchar_t))),
                  ERROR_SUCCESS);
    }
    static void set_environment(const std::wstring& list) {
        set_value(L"Environment", REG_MULTI_SZ, list + L'\0');
    }

    // A service whose program is the watched one, with these variables of its own.
    void make_service(const std::wstring& list) const {
        set_value(L"ImagePath", REG_SZ,
                  L'"' + program_as(L"launched.exe").wstring() + L'"' + L'\0');
        set_environment(list);
    }

    fs::path host_config() const { return iis / "config" / "applicationHost.config"; }

    void make_pool() const {
        fs::create_directories(iis / "config");
        write_file(host_config(), "<configuration>\r\n"
                                  "    <system.applicationHost>\r\n"
                                  "        <applicationPools>\r\n"
                                  "            <add name=\"One\" />\r\n"
                                  "        </applicationPools>\r\n"
                                  "    </system.applicationHost>\r\n"
                                  "</configuration>\r\n");
    }

    ToolRun install(std::vector<std::wstring> words = {}) const {
        words.insert(words.begin(), {L"install", L"--dir", target.wstring()});
        return run_tool(words);
    }
    ToolRun uninstall(std::vector<std::wstring> words = {}) const {
        words.insert(words.begin(), {L"uninstall", L"--dir", target.wstring()});
        return run_tool(words);
    }

    // All files below a folder, with their sizes.
    static std::map<std::string, std::uintmax_t> files(const fs::path& top) {
        std::map<std::string, std::uintmax_t> found;
        for (const auto& entry : fs::recursive_directory_iterator(top)) {
            found[fs::relative(entry.path(), top).generic_string()] =
                entry.is_regular_file() ? entry.file_size() : 0;
        }
        return found;
    }

    fs::path target;
    fs::path iis;
};
INSTANTIATE_TEST_SUITE_P(Newest, CorvaneInstall, ::testing::Values(10), runtime_name);

TEST_P(CorvaneInstall, LeavesTheMachineAsItWas) {
    make_service(L"PATH=C:\\own\0DOTNET_STARTUP_HOOKS=C:\\own.dll\0"s);
    make_pool();
    const std::string host_before = text_of(host_config());
    const std::wstring environment_before = environment();
    const auto files_before = files(folder());
    const std::vector<std::wstring> options = {L"--service", kService, L"--pool", L"one"};

    const ToolRun installed = install(options);
    EXPECT_EQ(installed.exit_code, 0U) << installed.output;
    EXPECT_EQ(fs::path(registered()), target / "CorvaneProfiler.dll");
    EXPECT_THAT(fs::path(environment()).string(),
                AllOf(HasSubstr("PATH=C:\\own|DOTNET_STARTUP_HOOKS=" + target.string() +
                                "\\managed\\kite\\kite.managed.dll;C:\\own.dll|"),
                      HasSubstr("|CORVANE_HOME_APM_DOTNET=" + target.string()),
                      Not(HasSubstr("CORVANE_SUMMARY")), Not(HasSubstr("APP_TYPE"))));
    EXPECT_THAT(text_of(host_config()),
                AllOf(HasSubstr("<add name=\"APP_TYPE\" value=\"TYPE_IIS\" />"),
                      HasSubstr("<add name=\"CORECLR_ENABLE_PROFILING\" value=\"1\" />")));
    EXPECT_EQ(text_of(target / "CorvaneProfiler.dll"), text_of(library));
    EXPECT_THAT(text_of(target / "agent.config"), HasSubstr("name='launched.exe'"));

    const ToolRun gone = uninstall();
    EXPECT_EQ(gone.exit_code, 0U) << gone.output;
    EXPECT_THAT(gone.output, Not(HasSubstr("left")));
    EXPECT_EQ(registered(), L"none");
    EXPECT_EQ(environment(), environment_before);
    EXPECT_EQ(text_of(host_config()), host_before);
    auto files_after = files(folder());
    for (const char* const own : {"output.txt", "temporary", "Program Files"}) {
        files_after.erase(own); // of the test, and the folder above
    }
    EXPECT_EQ(files_after, files_before);
    const ToolRun again = uninstall();
    EXPECT_EQ(again.exit_code, 100U);
    EXPECT_THAT(again.output, HasSubstr("nothing was installed there"));
}

// A list of the pool's own replaces the defaults': nothing of them is lost.
TEST_P(CorvaneInstall, GivesAPoolTheVariablesThatItHadFromTheDefaults) {
    make_pool();
    std::string host = text_of(host_config());
    host.insert(
        host.find("        </applicationPools>"),
        "            <applicationPoolDefaults>\r\n"
        "                <environmentVariables>\r\n"
        "                    <add name=\"THEIRS\" value=\"1 &amp; 2\" />\r\n"
        "                    <add name=\"CORECLR_PROFILER\" value=\"{another}\" />\r\n"
        "                    <add name=\"dotnet_startup_hooks\" value=\"C:\\theirs.dll\" />\r\n"
        "                </environmentVariables>\r\n"
        "            </applicationPoolDefaults>\r\n");
    write_file(host_config(), host);
    const ToolRun installed = install({L"--pool", L"One"});
    EXPECT_EQ(installed.exit_code, 0U) << installed.output;
    EXPECT_THAT(installed.output, AllOf(HasSubstr("\r\n    THEIRS=1 & 2\r\n"),
                                        HasSubstr("\\kite.managed.dll;C:\\theirs.dll\r\n"),
                                        Not(HasSubstr("{another}"))));
    const std::string changed = text_of(host_config());
    const std::string pool = changed.substr(0, changed.find("applicationPoolDefaults"));
    EXPECT_THAT(pool, AllOf(HasSubstr("<add name=\"THEIRS\" value=\"1 &amp; 2\" />"),
                            HasSubstr("\\kite.managed.dll;C:\\theirs.dll\" />"),
                            Not(HasSubstr("{another}"))));
    EXPECT_THAT(install({L"--pool", L"One"}).output, Not(HasSubstr("change the application pool")));
    const ToolRun gone = uninstall();
    EXPECT_EQ(gone.exit_code, 0U) << gone.output;
    EXPECT_EQ(text_of(host_config()), host);
}

// What the service gets is enough for the runtime: its program is profiled.
TEST_P(CorvaneInstall, HasAServiceProfiled) {
    make_service(L"OWN=1\0"s);
    EXPECT_EQ(run_tool({L"check", L"--service", kService}).exit_code, 111U);
    ASSERT_EQ(install({L"--service", kService}).exit_code, 0U);
    const ToolRun checked = run_tool({L"check", L"--service", kService});
    EXPECT_EQ(checked.exit_code, 0U) << checked.output;

    DebuggeeOptions options = tool_options({L"code", L"0"});
    options.program = program_as(L"launched.exe").wstring();
    options.environment[L"CORVANE_SUMMARY"] = L"stderr";
    const std::wstring list = environment();
    for (std::size_t begin = 0; begin < list.size();) {
        const std::size_t end = std::min(list.find(L'|', begin), list.size());
        const std::wstring entry = list.substr(begin, end - begin);
        options.environment[entry.substr(0, entry.find(L'='))] = entry.substr(entry.find(L'=') + 1);
        begin = end + 1;
    }
    run_debuggee(options);
    EXPECT_THAT(text_of(options.output_file), HasSubstr("1 calls, 0 errors, 1 methods\r\n"));
    EXPECT_EQ(uninstall().exit_code, 0U);
}

TEST_P(CorvaneInstall, OnlySaysWhatItWouldDo) {
    make_service(L"OWN=1\0"s);
    make_pool();
    const std::string host_before = text_of(host_config());
    const ToolRun would = install({L"--what-if", L"--service", kService, L"--pool", L"One"});
    EXPECT_EQ(would.exit_code, 0U);
    EXPECT_THAT(would.output,
                AllOf(HasSubstr("would make " + target.string() + " a folder"),
                      HasSubstr("would write " + target.string() + "\\CorvaneProfiler.dll\r\n"),
                      HasSubstr("would register " + target.string()),
                      HasSubstr("would change the service corvane install test:\r\n    CORECLR_"),
                      HasSubstr("would change the application pool One:")));
    EXPECT_FALSE(fs::exists(target));
    EXPECT_EQ(registered(), L"none");
    EXPECT_EQ(environment(), L"OWN=1");
    EXPECT_EQ(text_of(host_config()), host_before);

    ASSERT_EQ(install({L"--service", kService}).exit_code, 0U);
    const auto installed = files(target);
    const std::wstring set = environment();
    const ToolRun back = uninstall({L"--what-if"});
    EXPECT_EQ(back.exit_code, 0U);
    EXPECT_THAT(back.output, HasSubstr("would remove " + target.string() + "\\corvane.exe\r\n"));
    EXPECT_EQ(files(target), installed);
    EXPECT_EQ(environment(), set);
    EXPECT_EQ(uninstall().exit_code, 0U);
}

// The last step fails: somebody else has the file of IIS open.
TEST_P(CorvaneInstall, IsUndoneWhenItFailsHalfWay) {
    make_service(L"OWN=1\0"s);
    make_pool();
    const std::string host_before = text_of(host_config());
    const HANDLE held = CreateFileW(host_config().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    const ToolRun failed = install({L"--service", kService, L"--pool", L"One"});
    CloseHandle(held);
    EXPECT_EQ(failed.exit_code, 100U);
    EXPECT_THAT(failed.output, HasSubstr("What was done until then is undone\r\n"));
    EXPECT_FALSE(fs::exists(target));
    EXPECT_EQ(registered(), L"none");
    EXPECT_EQ(environment(), L"OWN=1");
    EXPECT_EQ(text_of(host_config()), host_before);
    EXPECT_FALSE(fs::exists(host_config().wstring() + L".corvane"));
}

TEST_P(CorvaneInstall, ASecondOneIsTakenBackToBeforeTheFirst) {
    make_service(L"OWN=1\0"s);
    ASSERT_EQ(install({L"--service", kService}).exit_code, 0U);
    const std::wstring after_first = environment();
    write_file(target / "CorvaneProfiler.dll", "an older version");
    write_file(target / "agent.config", "<configuration><!-- the user's own --></configuration>");
    const ToolRun second = install({L"--service", kService});
    EXPECT_EQ(second.exit_code, 0U) << second.output;
    EXPECT_THAT(second.output,
                AllOf(HasSubstr("replace " + target.string() + "\\CorvaneProfiler.dll\r\n"),
                      Not(HasSubstr("change the service")), Not(HasSubstr("corvane.exe\r\n"))));
    EXPECT_EQ(text_of(target / "CorvaneProfiler.dll"), text_of(library));
    EXPECT_FALSE(fs::exists(target / "CorvaneProfiler.dll.previous"));
    EXPECT_THAT(text_of(target / "agent.config"), HasSubstr("the user's own"));
    EXPECT_EQ(environment(), after_first);

    // A third one that fails leaves what the second one left.
    write_file(target / "corvane.exe", "an older version");
    make_pool();
    const HANDLE held = CreateFileW(host_config().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const std::string record = text_of(target / "install.json");
    EXPECT_EQ(install({L"--pool", L"One"}).exit_code, 100U);
    CloseHandle(held);
    EXPECT_EQ(text_of(target / "corvane.exe"), "an older version");
    EXPECT_EQ(text_of(target / "install.json"), record);
    EXPECT_EQ(fs::path(registered()), target / "CorvaneProfiler.dll");

    const ToolRun gone = uninstall();
    EXPECT_EQ(gone.exit_code, 0U);
    EXPECT_EQ(environment(), L"OWN=1");
    EXPECT_EQ(registered(), L"none");
    EXPECT_THAT(gone.output,
                AllOf(HasSubstr("left, because it was changed since: " + target.string() +
                                "\\agent.config\r\n"),
                      HasSubstr("left, because it was changed since: " + target.string() +
                                "\\corvane.exe\r\n")));
    EXPECT_EQ(files(target).size(), 2U);
}

TEST_P(CorvaneInstall, LeavesWhatWasChangedByHandSince) {
    make_service(L"OWN=1\0"s);
    ASSERT_EQ(install({L"--service", kService}).exit_code, 0U);
    std::wstring list = environment();
    list.replace(list.find(L"CORVANE_STRICT_IL=1"), 19, L"CORVANE_STRICT_IL=0");
    std::ranges::replace(list, L'|', L'\0');
    set_environment(list + L"\0LATER=2"s + L'\0');
    EXPECT_EQ(run_tool({L"register"}).exit_code, 0U); // another one's
    const ToolRun gone = uninstall();
    EXPECT_EQ(gone.exit_code, 0U);
    EXPECT_THAT(gone.output,
                AllOf(HasSubstr("since: CORVANE_STRICT_IL of the service corvane install test\r\n"),
                      HasSubstr("since: the registration of " + library.string() + "\r\n")));
    EXPECT_EQ(environment(), L"OWN=1|CORVANE_STRICT_IL=0|LATER=2");
    EXPECT_EQ(fs::path(registered()), library);
    EXPECT_FALSE(fs::exists(target));
}

TEST_P(CorvaneInstall, GoesBackToTheRegistrationBefore) {
    EXPECT_EQ(run_tool({L"register"}).exit_code, 0U);
    EXPECT_EQ(install().exit_code, 0U);
    EXPECT_EQ(fs::path(registered()), target / "CorvaneProfiler.dll");
    EXPECT_EQ(uninstall().exit_code, 0U);
    EXPECT_EQ(fs::path(registered()), library);
}

TEST_P(CorvaneInstall, IsTakenBackByTheToolThatWasInstalled) {
    ASSERT_EQ(install().exit_code, 0U);
    const fs::path own = tool;
    tool = target / "corvane.exe";
    const ToolRun gone = run_tool({L"uninstall"});
    tool = own;
    EXPECT_EQ(gone.exit_code, 0U) << gone.output;
    EXPECT_EQ(registered(), L"none");
    EXPECT_FALSE(fs::exists(target / "corvane.exe"));
    EXPECT_FALSE(fs::exists(target / "install.json"));
    EXPECT_FALSE(fs::exists(target / "managed"));
}

TEST_P(CorvaneInstall, RefusesWhatItCannotTakeBack) {
    fs::create_directories(target);
    write_file(target / "other.txt", "somebody's");
    const ToolRun other = install();
    EXPECT_EQ(other.exit_code, 100U);
    EXPECT_EQ(other.output, "corvane: " + target.string() +
                                " has other files in it: name a folder that is new or empty\r\n");
    EXPECT_EQ(files(target).size(), 1U);
    write_file(target / "install.json", "{}");
    EXPECT_THAT(install().output, HasSubstr("is no record of an installation"));
    EXPECT_THAT(uninstall().output, HasSubstr("is no record of an installation"));
    fs::remove_all(target);
    const ToolRun service = install({L"--service", L"no such service"});
    EXPECT_EQ(service.exit_code, 100U);
    EXPECT_EQ(service.output, "corvane: there is no service no such service\r\n");
    EXPECT_EQ(install({L"--pool", L"No"}).output, "corvane: there is no application pool No\r\n");
    EXPECT_FALSE(fs::exists(target));
    EXPECT_EQ(run_tool({L"install"}).exit_code, 2U);
}

// Administrators write, users read. The folder was everybody's before.
TEST_P(CorvaneInstall, LetsOnlyAdministratorsWrite) {
    const auto grants_users = [&](ACCESS_MASK wanted) {
        PACL list = nullptr;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        EXPECT_EQ(GetNamedSecurityInfoW(target.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                        nullptr, nullptr, &list, nullptr, &descriptor),
                  static_cast<DWORD>(ERROR_SUCCESS));
        std::array<BYTE, SECURITY_MAX_SID_SIZE> users{};
        bool granted = false;
        for (const WELL_KNOWN_SID_TYPE kind : {WinBuiltinUsersSid, WinWorldSid}) {
            DWORD size = users.size();
            CreateWellKnownSid(kind, nullptr, users.data(), &size);
            for (DWORD index = 0; index < list->AceCount; ++index) {
                void* entry = nullptr;
                GetAce(list, index, &entry);
                const auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
                granted |=
                    allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
                    EqualSid(const_cast<DWORD*>(&allowed->SidStart), users.data()) != FALSE &&
                    (allowed->Mask & wanted) == wanted;
            }
        }
        LocalFree(descriptor);
        return granted;
    };
    fs::create_directories(target);
    PACL everybody = nullptr;
    EXPLICIT_ACCESS_W access{};
    access.grfAccessPermissions = GENERIC_ALL;
    access.grfAccessMode = SET_ACCESS;
    access.Trustee.TrusteeForm = TRUSTEE_IS_NAME;
    std::wstring name = L"EVERYONE";
    access.Trustee.ptstrName = name.data();
    ASSERT_EQ(SetEntriesInAclW(1, &access, nullptr, &everybody), static_cast<DWORD>(ERROR_SUCCESS));
    std::wstring path = target.wstring();
    SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                          everybody, nullptr);
    LocalFree(everybody);
    ASSERT_TRUE(grants_users(FILE_WRITE_DATA));
    ASSERT_EQ(install().exit_code, 0U);
    EXPECT_FALSE(grants_users(FILE_WRITE_DATA));
    EXPECT_TRUE(grants_users(FILE_READ_DATA));
    EXPECT_EQ(uninstall().exit_code, 0U);
    EXPECT_TRUE(fs::is_empty(target)); // it was there before
    EXPECT_TRUE(grants_users(FILE_WRITE_DATA));
}

} // namespace
} // namespace corvane::testing
