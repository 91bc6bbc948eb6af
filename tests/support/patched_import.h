// PatchedImport: puts a test's function in the place of one that an image imports, while it lives.
// For failures that the platform does not give on demand, and for watching what is asked of it.
// Every call of the image goes there, on any thread; one patch a function at a time.
#pragma once

#include <windows.h>

namespace corvane::testing {

// Where the image keeps the address of a function that it imports from any library. Throws
// std::runtime_error when it imports none of that name.
void** import_slot(HMODULE image, const char* function);

void write_import(void** slot, void* function);

template <class Function>
class PatchedImport {
public:
    // Without an image: this program.
    PatchedImport(const char* name, Function* replacement, HMODULE image = nullptr)
        : slot_(import_slot(image != nullptr ? image : GetModuleHandleW(nullptr), name)),
          original_(reinterpret_cast<Function*>(*slot_)) {
        write_import(slot_, reinterpret_cast<void*>(replacement));
    }
    PatchedImport(const PatchedImport&) = delete;
    PatchedImport& operator=(const PatchedImport&) = delete;
    ~PatchedImport() { write_import(slot_, reinterpret_cast<void*>(original_)); }

    Function* original() const { return original_; }

private:
    void** slot_;
    Function* original_;
};

} // namespace corvane::testing
