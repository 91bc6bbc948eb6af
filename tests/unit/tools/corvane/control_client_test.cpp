// How long the pipe of a process is waited for, by a clock that goes on while the client rests.
#include "tests/support/patched_import.h"
#include "tools/corvane/command.h"
#include "tools/corvane/control_client.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace corvane::tool {
namespace {

using ::testing::HasSubstr;
using testing::PatchedImport;

struct Pipe {
    ULONGLONG until; // milliseconds
    DWORD error;
};

std::vector<Pipe> pipes;
ULONGLONG now = 0;

ULONGLONG WINAPI fake_clock() {
    return now;
}

void WINAPI fake_sleep(DWORD milliseconds) {
    now += milliseconds;
}

HANDLE WINAPI fake_open(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    for (const Pipe& pipe : pipes) {
        if (now < pipe.until) {
            SetLastError(pipe.error);
            break;
        }
    }
    return INVALID_HANDLE_VALUE;
}

constexpr ULONGLONG kForEver = ~0ULL;

class ControlClient : public ::testing::Test {
protected:
    // Why it gave up, for a process that is there.
    static std::string failure(std::vector<Pipe> known) {
        pipes = std::move(known);
        now = 0;
        try {
            ask(GetCurrentProcessId(), "summary\n", 1, [](unsigned) {});
        } catch (const Failure& failure) {
            return failure.what();
        }
        return "";
    }

    static constexpr char kUncontrolled[] = " was started without CORVANE_CONTROL=1";
    static constexpr char kBusy[] = " is answering somebody else; try again later";
    static constexpr char kDenied[] = " belongs to another user";

private:
    PatchedImport<ULONGLONG WINAPI()> clock_{"GetTickCount64", fake_clock};
    PatchedImport<void WINAPI(DWORD)> sleep_{"Sleep", fake_sleep};
    PatchedImport<std::remove_pointer_t<decltype(&CreateFileW)>> open_{"CreateFileW", fake_open};
};

TEST_F(ControlClient, GivesAProcessHalfASecondToMakeItsFirstPipe) {
    EXPECT_THAT(failure({{kForEver, ERROR_FILE_NOT_FOUND}}), HasSubstr(kUncontrolled));
    EXPECT_EQ(now, 500U);
    EXPECT_THAT(failure({{400, ERROR_FILE_NOT_FOUND}, {kForEver, ERROR_ACCESS_DENIED}}),
                HasSubstr(kDenied));
    EXPECT_EQ(now, 400U);
}

TEST_F(ControlClient, WaitsWhileAProcessAnswersSomebodyElse) {
    EXPECT_THAT(failure({{kForEver, ERROR_PIPE_BUSY}}), HasSubstr(kBusy));
    EXPECT_EQ(now, 15'000U);
}

// The thread that makes the pipe of the next client may get no processor for a while.
TEST_F(ControlClient, WaitsForThePipeOfTheNextClient) {
    EXPECT_THAT(failure({{6'000, ERROR_PIPE_BUSY},
                         {10'000, ERROR_FILE_NOT_FOUND},
                         {11'000, ERROR_PIPE_BUSY},
                         {15'000, ERROR_FILE_NOT_FOUND},
                         {kForEver, ERROR_ACCESS_DENIED}}),
                HasSubstr(kDenied));
    EXPECT_THAT(failure({{6'000, ERROR_PIPE_BUSY}, {kForEver, ERROR_FILE_NOT_FOUND}}),
                HasSubstr(kUncontrolled));
    EXPECT_NEAR(static_cast<double>(now), 11'000, 40);
}

} // namespace
} // namespace corvane::tool
