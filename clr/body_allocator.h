// BodyAllocator: the memory for one method body at a time that whoever stands in for the runtime
// hands out.
#pragma once

#include "clr/cor_profiler.h"

#include <cstdint>
#include <vector>

namespace corvane {

class BodyAllocator final : public IMethodMalloc {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; } // belongs to whoever made it
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    PVOID STDMETHODCALLTYPE Alloc(ULONG size) override {
        memory.assign(size, 0);
        return memory.data();
    }

    std::vector<std::uint8_t> memory;
};

} // namespace corvane
