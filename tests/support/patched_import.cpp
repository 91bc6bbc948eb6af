#include "tests/support/patched_import.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace corvane::testing {

void** import_slot(HMODULE image, const char* function) {
    auto* const base = reinterpret_cast<char*>(image);
    const auto at = [base](auto address, auto* type) {
        return reinterpret_cast<decltype(type)>(base + address);
    };
    const auto* const headers = at(reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew,
                                   static_cast<const IMAGE_NT_HEADERS64*>(nullptr));
    const DWORD imports =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (const auto* library = at(imports, static_cast<const IMAGE_IMPORT_DESCRIPTOR*>(nullptr));
         library->Name != 0; ++library) {
        const auto* const names =
            at(library->OriginalFirstThunk, static_cast<const std::uint64_t*>(nullptr));
        for (std::size_t i = 0; names[i] != 0; ++i) {
            constexpr std::uint64_t kByNumber = std::uint64_t(1) << 63;
            if ((names[i] & kByNumber) == 0 &&
                std::strcmp(at(names[i], static_cast<const IMAGE_IMPORT_BY_NAME*>(nullptr))->Name,
                            function) == 0) {
                return at(library->FirstThunk, static_cast<void**>(nullptr)) + i;
            }
        }
    }
    throw std::runtime_error(std::string(function) + " is not imported");
}

void write_import(void** slot, void* function) {
    DWORD protection = 0;
    if (VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection) == FALSE) {
        throw std::runtime_error("the import cannot be written");
    }
    *slot = function;
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
}

} // namespace corvane::testing
