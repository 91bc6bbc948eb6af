#include "tests/clr/program_run.h"

#include "profiler/owned_handle.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

// Changes this process's environment for the length of a start.
class ScopedEnvironment {
public:
    explicit ScopedEnvironment(const Environment& environment) {
        for (const auto& [name, value] : environment) {
            before_[name] = read(name);
            write(name, value);
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() {
        for (const auto& [name, value] : before_) {
            write(name, value);
        }
    }

private:
    static std::optional<std::wstring> read(const std::wstring& name) {
        std::wstring value(32767, L'\0');
        SetLastError(ERROR_SUCCESS);
        value.resize(
            GetEnvironmentVariableW(name.c_str(), value.data(), static_cast<DWORD>(value.size())));
        return GetLastError() == ERROR_ENVVAR_NOT_FOUND ? std::nullopt : std::optional(value);
    }
    static void write(const std::wstring& name, const std::optional<std::wstring>& value) {
        SetEnvironmentVariableW(name.c_str(), value ? value->c_str() : nullptr);
    }

    Environment before_;
};

} // namespace

ProgramRun run_program(const fs::path& program, const std::wstring& arguments,
                       const Environment& environment, std::chrono::seconds timeout) {
    const OwnFolder folder;
    const fs::path output_file = folder.path() / "output.txt";
    SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    OwnedHandle output(CreateFileW(output_file.c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                   &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.get();
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    std::wstring command_line = L"\"" + program.wstring() + L"\" " + arguments;
    PROCESS_INFORMATION created = {};
    {
        const ScopedEnvironment scope(environment);
        if (CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                           nullptr, &startup, &created) == FALSE) {
            throw std::runtime_error("cannot start " + program.string());
        }
    }
    const OwnedHandle process(created.hProcess);
    const OwnedHandle thread(created.hThread);
    output.reset();

    ProgramRun run;
    const std::chrono::milliseconds limit = timeout;
    if (WaitForSingleObject(process.get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
        run.timed_out = true;
        TerminateProcess(process.get(), 1);
        WaitForSingleObject(process.get(), INFINITE);
    }
    GetExitCodeProcess(process.get(), &run.exit_code);
    std::ifstream stream(output_file, std::ios::binary);
    run.output.assign(std::istreambuf_iterator<char>(stream), {});
    return run;
}

} // namespace corvane::testing
