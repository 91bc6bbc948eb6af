// The parser reports the begin and the end of every type; the part between them is the type.

#include "rewrite/shape/method_signature.h"

#include "il/byte_reader.h"
#include "il/element_type.h"
#include "il/sig_parser.h"
#include "il/token_compression.h"

namespace corvane {

namespace {

using Bytes = std::span<const std::uint8_t>;

// The kind of a signature, in its first byte (ECMA-335 II.23.2): a method's, or else that of a
// field, a property or locals, which may hold a function pointer's signature.
bool is_method(Bytes blob) {
    return !blob.empty() && (blob[0] & 0x0F) <= 0x05;
}

SignatureType strip(Bytes blob) {
    ByteReader behind_modifiers(blob);
    auto mark = std::uint8_t{0};
    for (ByteReader ahead = behind_modifiers;;) {
        mark = ahead.read<std::uint8_t>().value_or(0);
        if ((mark != kElementCModReqd && mark != kElementCModOpt) || !ahead.read_compressed()) {
            break;
        }
        behind_modifiers = ahead;
    }
    SignatureType type;
    type.by_ref = mark == kElementByRef;
    type.blob = blob.subspan(behind_modifiers.position() + (type.by_ref ? 1 : 0));
    return type;
}

// A function pointer among the types is a method signature of its own, whose types are not the
// method's.
class SignatureReader final : public SigParser {
public:
    explicit SignatureReader(MethodSignature& signature) : signature_(signature) {}

private:
    void on_begin_method(std::uint8_t) override { ++depth_; }
    void on_end_method() override { --depth_; }
    void on_begin_return_type() override { begin(); }
    void on_end_return_type() override {
        if (depth_ == 1) {
            signature_.result = strip(type());
        }
    }
    void on_begin_param() override { begin(); }
    void on_end_param() override {
        if (depth_ == 1) {
            signature_.parameters.push_back(strip(type()));
        }
    }

    void begin() {
        if (depth_ == 1) {
            start_ = cursor;
        }
    }
    [[nodiscard]] Bytes type() const { return {start_, cursor}; }

    MethodSignature& signature_;
    unsigned depth_ = 0;
    const std::uint8_t* start_ = nullptr;
};

} // namespace

Passing SignatureType::passing() const {
    switch (element_type()) {
    case kElementString:
    case kElementClass:
    case kElementObject:
        return Passing::kReference;
    case kElementArray:
    case kElementSzArray:
        return Passing::kOtherReference;
    case kElementGenericInst:
        return blob[1] == kElementClass ? Passing::kOtherReference : Passing::kGenericValueType;
    case kElementValueType:
        return Passing::kValueType;
    case kElementBoolean:
    case kElementChar:
    case kElementI1:
    case kElementU1:
    case kElementI2:
    case kElementU2:
    case kElementI4:
    case kElementU4:
    case kElementI8:
    case kElementU8:
    case kElementR4:
    case kElementR8:
    case kElementI:
    case kElementU:
        return Passing::kPrimitive;
    default:
        return Passing::kNotAtAll;
    }
}

std::optional<std::uint32_t> SignatureType::token() const {
    const std::uint8_t type = element_type();
    if (type != kElementClass && type != kElementValueType && type != kElementGenericInst) {
        return std::nullopt;
    }
    ByteReader reader(blob.subspan(type == kElementGenericInst ? 2 : 1));
    const auto coded = reader.read_compressed();
    return coded ? type_token(*coded) : std::nullopt;
}

std::optional<MethodSignature> read_method_signature(Bytes blob) {
    MethodSignature signature;
    SignatureReader reader(signature);
    if (!is_method(blob) || !reader.Parse(blob.data(), static_cast<std::uint32_t>(blob.size())) ||
        reader.cursor != reader.sigEnd) {
        return std::nullopt;
    }
    signature.has_this = reader.hasThis != 0;
    return signature;
}

} // namespace corvane
