// The way of one method's body from the runtime into its model and back: the calls of the runtime
// and their order. The bytes are the work of body_reader.h and body_writer.h. A caller owns one
// rewriter for each method, on one thread, for as long as the body.
#pragma once

#include "base/debug_log.h"
#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "rewrite/body/method_body.h"

#include <cstdint>
#include <span>
#include <string>

namespace corvane {

class MethodRewriter {
public:
    // The interfaces are borrowed. With `control` the body goes to the compilation that it stands
    // for, without it to the method.
    MethodRewriter(ICorProfilerInfo* info, ModuleID module, mdMethodDef method,
                   ICorProfilerFunctionControl* control = nullptr)
        : info_(info), control_(control), module_(module), method_(method) {}

    // Fills an empty body. Fails with what the runtime answers, 0x8013153A for malformed code, or
    // E_OUTOFMEMORY; the body is of no use then.
    HRESULT Read(MethodBody& body) noexcept;

    // Lays the body out, shows it in the debugger output and installs it. Fails with E_FAIL for a
    // body that cannot have the tiny header that it asks for, 0x8013153A for a model that no bytes
    // stand for, E_OUTOFMEMORY where there is no memory for the new body, or what the runtime
    // answers to it; the method keeps its body then.
    HRESULT Write(MethodBody& body) noexcept;

    // Of the listing's channel.
    LogThreshold listing_threshold;

    // What the dump begins with.
    std::wstring title;

private:
    using Bytes = std::span<const std::uint8_t>;
    void show(Bytes bytes) const;
    HRESULT install_in_module(Bytes bytes) const;
    HRESULT install_through_control(Bytes bytes) const;

    ICorProfilerInfo* info_;
    ICorProfilerFunctionControl* control_;
    ModuleID module_;
    mdMethodDef method_;
};

} // namespace corvane
