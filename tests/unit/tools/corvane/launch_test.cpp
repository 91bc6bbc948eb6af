#include "tools/corvane/launch.h"

#include "base/owned_handle.h"
#include "tests/support/patched_import.h"
#include "tools/corvane/command.h"
#include "tools/corvane/program.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace corvane::tool {
namespace {

BOOL WINAPI refuse_to_assign(HANDLE, HANDLE) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

template <DWORD kError>
BOOL WINAPI fail_to_create(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                           DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION) {
    SetLastError(kError);
    return FALSE;
}

// What is written to standard error meanwhile.
template <class Call>
std::string errors_of(const Call& call) {
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    CreatePipe(&read, &write, nullptr, 0);
    const OwnedHandle reader(read);
    OwnedHandle writer(write);
    const HANDLE before = GetStdHandle(STD_ERROR_HANDLE);
    SetStdHandle(STD_ERROR_HANDLE, write);
    call();
    SetStdHandle(STD_ERROR_HANDLE, before);
    writer.reset();
    std::array<char, 1'000> text{};
    DWORD length = 0;
    ReadFile(reader.get(), text.data(), static_cast<DWORD>(text.size()), &length, nullptr);
    return {text.data(), length};
}

TEST(Launch, SaysThatAProgramIsInNoJobAndRunsIt) {
    const Environment own = own_environment();
    const Program program = find_program({L"cmd", L"/c", L"exit 7"}, own);
    ASSERT_FALSE(program.file.empty());
    const ::corvane::testing::PatchedImport refusal("AssignProcessToJobObject", &refuse_to_assign);
    Ended ended;
    const std::string errors = errors_of([&] { ended = launch(program, own, {false, true}); });
    EXPECT_EQ(ended.exit_code, 7U);
    EXPECT_TRUE(errors.starts_with("corvane: the program cannot be put into a job, ")) << errors;
}

TEST(Launch, SaysHowAProgramThatIsForAdministratorsIsStarted) {
    const Environment own = own_environment();
    const Program program = find_program({L"cmd"}, own);
    const auto failure = [&](auto* create) {
        const ::corvane::testing::PatchedImport failing("CreateProcessW", create);
        try {
            launch(program, own, {});
        } catch (const Failure& thrown) {
            EXPECT_EQ(thrown.code, kFailed);
            return std::string(thrown.what());
        }
        return std::string();
    };
    constexpr DWORD kElevationRequired = 740;
    EXPECT_EQ(failure(&fail_to_create<kElevationRequired>),
              program.file.string() +
                  " wants to be started as administrator: start corvane from a console that is run "
                  "as administrator");
    const std::string other = failure(&fail_to_create<ERROR_BAD_EXE_FORMAT>);
    EXPECT_TRUE(other.starts_with("cannot start " + program.file.string() + ": ")) << other;
}

} // namespace
} // namespace corvane::tool
