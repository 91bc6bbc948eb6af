// A body is complete before the runtime sees any part of it: every failure comes before the one
// call that installs.

#include "rewrite/body/method_rewriter.h"

#include "base/log_output.h"
#include "il/listing.h"
#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "rewrite/body/il_disassembler.h"

#include <algorithm>
#include <new>
#include <vector>

namespace corvane {

namespace {

constexpr std::int32_t kDumpLevel = 3;

HRESULT as_hresult(BodyResult result) {
    return static_cast<HRESULT>(result);
}

} // namespace

HRESULT MethodRewriter::Read(MethodBody& body) noexcept {
    LPCBYTE header = nullptr;
    // The body itself says how long it is. It is asked for all the same, so that a body that lies
    // about it is not followed out of the memory that is its own.
    ULONG size = 0;
    const HRESULT hr = info_->GetILFunctionBody(module_, method_, &header, &size);
    if (FAILED(hr)) {
        return hr;
    }
    return as_hresult(read_body({header, size}, body));
}

HRESULT MethodRewriter::Write(MethodBody& body) noexcept {
    try {
        std::vector<std::uint8_t> bytes;
        const BodyResult result = write_body(body, bytes);
        if (result != BodyResult::kOk) {
            return as_hresult(result);
        }
        return control_ != nullptr ? install_through_control(bytes) : install_in_module(bytes);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void MethodRewriter::show(Bytes bytes) const {
    if (!log_is_read()) {
        return;
    }
    const auto size = static_cast<std::uint32_t>(bytes.size());
    if (log_level() >= kDumpLevel) {
        send_to_log((title + dumpBody(bytes.data(), size)).c_str());
    }
    il_disassembler(bytes, listing_threshold).listing();
}

// The memory is the module's and goes with it; the runtime has no way to give any back.
HRESULT MethodRewriter::install_in_module(Bytes bytes) const {
    ComPtr<IMethodMalloc> allocator;
    if (FAILED(info_->GetILFunctionBodyAllocator(module_, allocator.put()))) {
        return E_OUTOFMEMORY;
    }
    auto* const memory = static_cast<BYTE*>(allocator->Alloc(static_cast<ULONG>(bytes.size())));
    if (memory == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::copy(bytes.begin(), bytes.end(), memory);
    show(bytes);
    return info_->SetILFunctionBody(module_, method_, memory);
}

// The runtime takes a copy.
HRESULT MethodRewriter::install_through_control(Bytes bytes) const {
    show(bytes);
    return control_->SetILFunctionBody(static_cast<ULONG>(bytes.size()), bytes.data());
}

} // namespace corvane
