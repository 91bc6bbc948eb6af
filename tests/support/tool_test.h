// ToolTest: runs corvane.exe on programs in the real runtimes.
#pragma once

#include "base/local_memory.h"
#include "tests/support/debuggee.h"
#include "tests/support/runtime_test.h"
#include "tools/corvane/utf8.h"

#include <nlohmann/json.hpp>

#include <sddl.h>

#include <fstream>
#include <iterator>

namespace corvane::testing {

struct ToolRun {
    DWORD exit_code = 0;
    std::string output; // and errors, where they are not asked for apart
};

class ToolTest : public EachRuntimeTest {
protected:
    // Beside this program, with what belongs to it.
    std::filesystem::path tool = built_file(L"corvane.exe");

    static std::string text_of(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    // Who may do what, as text.
    static std::wstring rights_in(PSECURITY_DESCRIPTOR descriptor) {
        LPWSTR text = nullptr;
        EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
        const LocalMemory<wchar_t> owned(text);
        return text == nullptr ? std::wstring() : text;
    }

    // A copy of the watched program under this name.
    std::filesystem::path program_as(const std::wstring& name) const {
        const std::filesystem::path copy = program_folder() / name;
        if (!exists(copy)) {
            copy_file(built_file(L"managed") / program / (program + L".exe"), copy);
        }
        return copy;
    }

    DebuggeeOptions tool_options(const std::vector<std::wstring>& arguments,
                                 const Environment& environment = {}) const {
        DebuggeeOptions options;
        options.program = tool.wstring();
        options.arguments = arguments;
        options.environment = environment;
        options.environment.merge(clean_environment());
        options.environment[L"TMP"] = temporary().wstring();
        options.environment[L"TEMP"] = temporary().wstring();
        options.directory = folder().wstring();
        options.output_file = (folder() / "output.txt").wstring();
        return options;
    }

    ToolRun run_tool(const std::vector<std::wstring>& arguments,
                     const Environment& environment = {}) const {
        const DebuggeeOptions options = tool_options(arguments, environment);
        const DebuggeeResult result = run_debuggee(options);
        EXPECT_FALSE(result.timed_out);
        return {result.exit_code, text_of(options.output_file)};
    }

    // What "corvane run" would set with these options, for a program that a test starts itself.
    Environment printed_variables(std::vector<std::wstring> options,
                                  const Environment& environment = {}) const {
        options.insert(options.begin(), {L"run", L"--env-only", L"json"});
        const ToolRun printed = run_tool(options, environment);
        EXPECT_EQ(printed.exit_code, 0U) << printed.output;
        const auto json = nlohmann::json::parse(printed.output);
        Environment variables;
        for (const auto& [name, value] : json.items()) {
            variables[tool::to_wide(name)] = tool::to_wide(value.get<std::string>());
        }
        return variables;
    }

    // The folder for temporary files, which has nothing in it when a command has ended.
    std::filesystem::path temporary() const {
        std::filesystem::create_directories(folder() / "temporary");
        return folder() / "temporary";
    }
};

} // namespace corvane::testing
