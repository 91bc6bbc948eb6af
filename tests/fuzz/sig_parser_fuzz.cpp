// Any bytes as a signature. Besides what the sanitizers watch, the parser keeps these promises:
// what begins ends in order, nesting and lists are bounded by the limit and by the blob, the
// outcome depends on the bytes that were consumed and on all of them, and what the summary points
// to lies inside the blob.
#include "il/element_type.h"
#include "il/sig_parser.h"
#include "tests/fuzz/require.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane {
namespace {

class Tracer : public SigParser {
public:
    std::vector<char> open; // what has begun and not ended: one letter each
    std::size_t type_depth = 0;
    std::size_t method_params = 0;
    bool function_pointer_met = false;

protected:
    void on_begin_method(std::uint8_t /*convention*/) override { begin('m'); }
    void on_end_method() override { end('m'); }
    void on_begin_return_type() override { begin('r'); }
    void on_end_return_type() override { end('r'); }
    void on_begin_param() override { begin('p'); }
    void on_end_param() override {
        end('p');
        method_params += open.back() == 'm' ? 1 : 0;
    }
    void on_begin_field(std::uint8_t /*kind*/) override { begin('f'); }
    void on_end_field() override { end('f'); }
    void on_begin_locals(std::uint8_t /*kind*/) override { begin('v'); }
    void on_end_locals() override { end('v'); }
    void on_begin_local() override { begin('l'); }
    void on_end_local() override { end('l'); }
    void on_begin_property(std::uint8_t /*kind*/) override { begin('y'); }
    void on_end_property() override { end('y'); }
    void on_begin_array_shape() override { begin('s'); }
    void on_end_array_shape() override { end('s'); }
    void on_begin_type() override {
        begin('t');
        ++type_depth;
        require(type_depth <= kMaxTypeDepth, "types nest no deeper than the limit");
    }
    void on_end_type() override {
        end('t');
        --type_depth;
    }
    void on_function_pointer(std::uint8_t /*type*/) override { function_pointer_met = true; }

private:
    void begin(char what) { open.push_back(what); }
    void end(char what) {
        require(!open.empty() && open.back() == what, "what ends is what began last");
        open.pop_back();
    }
};

void check_type(const SigTypeInfo& info, const Tracer& tracer) {
    require(info.isByRef <= 1 && info.isArray <= 1 && info.isGenericInst <= 1, "flags are 0 or 1");
    require(info.tokenTable <= 3, "a table tag has two bits");
    // A function pointer's signature takes copies of the type that is still being read around it.
    if (info.isGenericInst != 0 && !tracer.function_pointer_met) {
        require(info.genericStart >= tracer.sigStart && info.genericStart < tracer.cursor &&
                    info.genericLength <=
                        static_cast<std::size_t>(tracer.cursor - info.genericStart),
                "an instantiation lies within what was read");
        require(info.genericLength >= 4 && info.genericStart[0] == kElementGenericInst &&
                    info.genericStart[1] == info.genericKind,
                "an instantiation begins with its element type and kind");
    }
}

bool same_outcome(const SigParser& a, const SigParser& b) {
    return a.cursor == b.cursor && a.hasThis == b.hasThis && a.params == b.params &&
           a.current == b.current && a.returnType == b.returnType;
}

void check(const std::uint8_t* data, std::uint32_t size) {
    Tracer tracer;
    const bool parsed = tracer.Parse(data, size);
    require(tracer.sigStart == data && tracer.sigEnd == data + size, "the range is the blob");
    require(tracer.cursor >= tracer.sigStart && tracer.cursor <= tracer.sigEnd,
            "the cursor stays inside");
    require(tracer.params.size() == tracer.method_params,
            "each ended parameter of a method is listed");
    require(tracer.params.size() <= size, "a parameter takes a byte at least");
    require(!parsed || tracer.open.empty(), "after success everything has ended");
    check_type(tracer.returnType, tracer);
    for (const SigTypeInfo& info : tracer.params) {
        check_type(info, tracer);
    }

    SigParser again;
    require(again.Parse(data, size) == parsed && same_outcome(again, tracer),
            "the outcome repeats");

    if (parsed) {
        const auto consumed = static_cast<std::uint32_t>(tracer.cursor - data);
        SigParser exact;
        require(exact.Parse(data, consumed) && same_outcome(exact, tracer),
                "what follows the signature does not matter");
        SigParser truncated;
        require(!truncated.Parse(data, consumed - 1), "the last byte consumed was needed");
    }
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(data, static_cast<std::uint32_t>(size));
    return 0;
}
