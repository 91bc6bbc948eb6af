#include "tests/support/thread_stacks.h"

#include "base/owned_handle.h"

#include <dbghelp.h>
#include <tlhelp32.h>

#include <array>
#include <cstdint>
#include <cstdio>

namespace corvane::testing {
namespace {

constexpr std::size_t kWords = 1024;
constexpr int kMost = 60; // lines of a thread

// "module!function+0x..", or nothing for what is in no module.
std::string place_of(HANDLE process, std::uint64_t address) {
    IMAGEHLP_MODULE64 module = {};
    module.SizeOfStruct = sizeof module;
    if (SymGetModuleInfo64(process, address, &module) == FALSE) {
        return {};
    }
    alignas(SYMBOL_INFO) std::array<std::byte, sizeof(SYMBOL_INFO) + 512> room{};
    auto& symbol = *reinterpret_cast<SYMBOL_INFO*>(room.data());
    symbol.SizeOfStruct = sizeof symbol;
    symbol.MaxNameLen = 500;
    DWORD64 distance = address - module.BaseOfImage;
    std::string place = module.ModuleName;
    if (SymFromAddr(process, address, &distance, &symbol) != FALSE) {
        place += '!';
        place += symbol.Name;
    }
    std::array<char, 24> offset{};
    static_cast<void>(std::snprintf(offset.data(), offset.size(), "+0x%llx",
                                    static_cast<unsigned long long>(distance)));
    return place + offset.data();
}

std::string stack_of(HANDLE process, HANDLE thread) {
    alignas(16) CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    if (SuspendThread(thread) == static_cast<DWORD>(-1) ||
        GetThreadContext(thread, &context) == FALSE) {
        return "  cannot be looked at\n";
    }
    const std::string place = place_of(process, context.Rip);
    std::string text = "  " + (place.empty() ? "code of no module" : place) + '\n';
    std::array<std::uint64_t, kWords> words{};
    SIZE_T read = 0;
    // The stack may end before.
    for (std::size_t bytes = sizeof words; bytes > 0 && read == 0; bytes /= 2) {
        ReadProcessMemory(process, reinterpret_cast<const void*>(context.Rsp), words.data(), bytes,
                          &read);
    }
    int lines = 0;
    for (std::size_t i = 0; i < read / sizeof words[0] && lines < kMost; ++i) {
        if (const std::string word = place_of(process, words[i]); !word.empty()) {
            text += "  " + word + '\n';
            ++lines;
        }
    }
    return text;
}

} // namespace

std::string stacks_of(HANDLE process) {
    SymSetOptions(SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS);
    if (SymInitialize(process, nullptr, TRUE) == FALSE) {
        return "no modules\n";
    }
    const OwnedHandle threads(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    const DWORD id = GetProcessId(process);
    std::string text;
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(threads.get(), &entry); more != FALSE;
         more = Thread32Next(threads.get(), &entry)) {
        if (entry.th32OwnerProcessID == id) {
            const OwnedHandle thread(
                OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, entry.th32ThreadID));
            text += "thread " + std::to_string(entry.th32ThreadID) + '\n';
            text += stack_of(process, thread.get());
        }
    }
    SymCleanup(process);
    return text;
}

} // namespace corvane::testing
