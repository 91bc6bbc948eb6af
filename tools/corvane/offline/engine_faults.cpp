#include "tools/corvane/offline/engine_faults.h"

#include <windows.h>

#include <utility>

namespace corvane::tool {
namespace {

struct End {
    std::string line;
    int exit_code = 0;
};

// Outlives whatever fails.
End& end() {
    static auto& only = *new End();
    return only;
}

bool is_in_engine(const void* address) {
    HMODULE module = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                  GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              static_cast<const wchar_t*>(address), &module) != FALSE &&
           module == GetModuleHandleW(L"coreclr.dll");
}

// Takes no memory and no lock: whoever failed may hold any.
LONG CALLBACK end_process(EXCEPTION_POINTERS* pointers) {
    if (!is_in_engine(pointers->ExceptionRecord->ExceptionAddress)) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), end().line.data(),
              static_cast<DWORD>(end().line.size()), &written, nullptr);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(end().exit_code));
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

void end_on_engine_fault(std::string line, int exit_code) {
    line += "\r\n";
    end() = {std::move(line), exit_code};
    ULONG room = 0x8000; // for the filter, where the engine has used up the stack
    SetThreadStackGuarantee(&room);
    SetUnhandledExceptionFilter(&end_process);
}

} // namespace corvane::tool
