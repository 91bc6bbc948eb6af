// The commands of the documentation, typed: each block "cmd" of its pages is a batch file of its
// own, in a folder with the programs that the pages speak of. Behind the name of the language a
// block says how its commands end, if not with 0: "ends=111".
#include "tests/support/markdown.h"
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <regex>
#include <thread>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// What is not run here, and why.
const std::map<std::string, const char*> kExceptions = {
    {"corvane watch", "goes on until Ctrl+C; CorvaneWatch runs it for some seconds"},
    {"corvane check --pool PoolOne", "needs IIS; CorvaneCheck runs it with the files of a pool"},
};

std::vector<MarkdownBlock> command_blocks() {
    std::vector<MarkdownBlock> blocks;
    for (const auto& [name, page] : read_documentation(CORVANE_SOURCES)) {
        std::ranges::copy_if(page.blocks, std::back_inserter(blocks),
                             [](const MarkdownBlock& block) { return block.language == "cmd"; });
    }
    return blocks;
}

bool sets_variable(const std::string& line) {
    return line.starts_with("set ");
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (auto at = text.find(what); at != text.npos; at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
    return text;
}

// The service that the pages speak of; the registry is left as it was found.
class OwnService {
public:
    explicit OwnService(const fs::path& exe) {
        const std::wstring image = L'"' + exe.wstring() + L'"';
        HKEY key = nullptr;
        EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, REG_OPTION_VOLATILE,
                                  KEY_ALL_ACCESS, nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        RegSetValueExW(key, L"ImagePath", 0, REG_EXPAND_SZ,
                       reinterpret_cast<const BYTE*>(image.c_str()),
                       static_cast<DWORD>((image.size() + 1) * sizeof(wchar_t)));
        RegCloseKey(key);
    }
    OwnService(const OwnService&) = delete;
    OwnService& operator=(const OwnService&) = delete;
    ~OwnService() { RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey); }

private:
    static constexpr const wchar_t* kKey = L"SYSTEM\\CurrentControlSet\\Services\\MyService";
};

class DocumentedCommands : public ToolTest {
protected:
    DocumentedCommands() { program = L"console"; }

    void SetUp() override {
        ToolTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        for (const fs::path& place : {hook_.parent_path(), logs_, work_}) {
            fs::create_directories(place);
        }
        fs::copy_file(built_file(L"corvane.exe"), installed_ / "corvane.exe");
        fs::copy_file(library, installed_ / library.filename());
        fs::copy_file(managed_library(), hook_);
        write_file(installed_ / "agent.config", documented_config());
        for (const auto& file : fs::directory_iterator(program_folder())) {
            fs::copy_file(file.path(), work_ / file.path().filename());
        }
        fs::copy_file(program_as(L"console.exe"), work_ / "MyService.exe");
        fs::copy_file(work_ / "console.dll", work_ / "MyService.dll");
        fs::copy_file(work_ / "console.dll", work_ / "Shop.dll");
        // It runs the same assembly, whatever it is given.
        fs::copy_file(program_as(L"console.exe"), work_ / "dotnet.exe");
    }

    void TearDown() override { stop_the_process_that_is_asked(); }

    // The first one of the README.
    static std::string documented_config() {
        std::string text;
        for (const MarkdownBlock& block : read_markdown(CORVANE_SOURCES, "README.md").blocks) {
            if (block.language == "xml") {
                for (const std::string& line : block.lines) {
                    text += line + '\n';
                }
                break;
            }
        }
        return text;
    }

    DebuggeeOptions batch_options(const fs::path& batch) const {
        DebuggeeOptions options = tool_options({L"/c", batch.wstring()});
        options.program = L"C:\\windows\\system32\\cmd.exe";
        options.directory = work_.wstring();
        options.environment[L"PATH"] =
            installed_.wstring() + L';' + work_.wstring() + L";C:\\windows\\system32;C:\\windows";
        options.timeout = std::chrono::minutes(4);
        return options;
    }

    // What the lines of a page are here.
    std::string here(std::string line) const {
        line = replaced(line, "C:\\Program Files\\Corvane", installed_.string());
        line = replaced(line, "C:\\Logs", logs_.string());
        line = replaced(line, "--pid 1234", "--pid " + std::to_string(running_.id));
        return line;
    }

    // The exit codes of the block's commands, and what they wrote. A block that only sets variables
    // ends with a run of the program that it sets them for.
    std::pair<std::vector<int>, std::string> run_block(const MarkdownBlock& block) const {
        std::vector<std::string> lines = block.lines;
        if (std::ranges::all_of(lines, sets_variable)) {
            lines.emplace_back("corvane run -- MyService.exe");
        }
        std::string batch = "@echo off\r\n";
        for (const std::string& line : lines) {
            if (!kExceptions.contains(line)) {
                batch += here(line) + "\r\n";
                batch += sets_variable(line) ? "" : "echo [ended with %errorlevel%]\r\n";
            }
        }
        const fs::path file = folder() / "block.cmd";
        write_file(file, batch);
        const DebuggeeOptions options = batch_options(file);
        EXPECT_FALSE(run_debuggee(options).timed_out) << block.where;
        const std::string output = text_of(options.output_file);
        std::vector<int> codes;
        static const std::regex end(R"(\[ended with (-?\d+)\])");
        for (std::sregex_iterator found(output.begin(), output.end(), end), none; found != none;
             ++found) {
            codes.push_back(std::stoi((*found)[1]));
        }
        EXPECT_EQ(codes.size(), static_cast<std::size_t>(std::ranges::count_if(
                                    lines,
                                    [](const std::string& line) {
                                        return !sets_variable(line) && !kExceptions.contains(line);
                                    })))
            << block.where << '\n'
            << output;
        return {codes, output};
    }

    // A process that may be asked, as the one of the pages.
    void start_the_process_that_is_asked() {
        DebuggeeOptions options = tool_options({L"600"});
        options.program = (work_ / "MyService.exe").wstring();
        options.directory = work_.wstring();
        options.output_file = (folder() / "asked.txt").wstring();
        options.environment[L"CORECLR_ENABLE_PROFILING"] = L"1";
        options.environment[L"CORECLR_PROFILER"] = L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";
        options.environment[L"CORECLR_PROFILER_PATH"] = (installed_ / library.filename()).wstring();
        options.environment[L"CORVANE_HOME_APM_DOTNET"] = installed_.wstring();
        options.environment[L"DOTNET_STARTUP_HOOKS"] = hook_.wstring();
        options.environment[L"CORVANE_CONTROL"] = L"1";
        options.environment[L"CORVANE_SUMMARY"] = (folder() / "asked summary.txt").wstring();
        running_ = start_program(options);
        for (int i = 0; i < 1000; ++i) {
            if (run_tool({L"flush", L"--pid", std::to_wstring(running_.id)}).exit_code == 0) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
        ADD_FAILURE() << text_of(options.output_file);
    }

    void stop_the_process_that_is_asked() {
        if (running_.process) {
            TerminateProcess(running_.process.get(), 0);
            WaitForSingleObject(running_.process.get(), INFINITE);
            running_ = {};
        }
    }

    static bool asks_a_process(const MarkdownBlock& block) {
        return std::ranges::any_of(block.lines, [](const std::string& line) {
            return line.find("--pid 1234") != line.npos;
        });
    }

    static int expected_end(const MarkdownBlock& block) {
        if (block.remark.empty()) {
            return 0;
        }
        EXPECT_TRUE(block.remark.starts_with("ends=")) << block.where;
        return std::stoi(block.remark.substr(5));
    }

    const fs::path installed_ = folder() / "Program Files" / "Corvane";
    const fs::path hook_ = installed_ / "managed" / "kite" / "kite.managed.dll";
    const fs::path logs_ = folder() / "Logs";
    const fs::path work_ = folder() / "work";
    RunningProgram running_;
};
INSTANTIATE_TEST_SUITE_P(Newest, DocumentedCommands, ::testing::Values(10), runtime_name);

TEST_P(DocumentedCommands, DoWhatTheyAreThereFor) {
    const OwnService service(work_ / "MyService.exe");
    const std::vector<MarkdownBlock> blocks = command_blocks();
    EXPECT_GT(blocks.size(), 10U);
    for (const MarkdownBlock& block : blocks) {
        SCOPED_TRACE(block.where);
        if (asks_a_process(block)) {
            start_the_process_that_is_asked();
        }
        const auto [codes, output] = run_block(block);
        stop_the_process_that_is_asked();
        EXPECT_THAT(codes, ::testing::Each(expected_end(block))) << output;
        for (const char* const failure :
             {"corvane: there is no ", "nothing was recorded", "no samples are taken"}) {
            EXPECT_THAT(output, Not(HasSubstr(failure)));
        }
    }
}

TEST_P(DocumentedCommands, AreRunButForAFew) {
    const std::vector<MarkdownBlock> blocks = command_blocks();
    for (const auto& [command, reason] : kExceptions) {
        EXPECT_TRUE(std::ranges::any_of(blocks,
                                        [&](const MarkdownBlock& block) {
                                            return std::ranges::find(block.lines, command) !=
                                                   block.lines.end();
                                        }))
            << command << " stands on no page any more";
    }
    EXPECT_LE(kExceptions.size(), 8U);
}

TEST_P(DocumentedCommands, FailWhereAPageIsWrong) {
    const MarkdownBlock wrong{
        "a page",
        "cmd",
        "",
        {"corvane run --no-such-option -- MyService.exe", "corvane check MyService.exe"}};
    EXPECT_EQ(run_block(wrong).first, (std::vector<int>{2, 111}));
}

} // namespace
} // namespace corvane::testing
