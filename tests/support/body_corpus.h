// Every method body of a real runtime, as il_reader.cs extracted them into one file.
#pragma once

#include "il/byte_reader.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

struct CorpusBody {
    std::string_view assembly;
    std::uint32_t token;
    std::span<const std::uint8_t> bytes;
};

class BodyCorpus {
public:
    // Throws std::runtime_error if the file is missing or not whole.
    explicit BodyCorpus(const std::string& path) {
        std::ifstream stream(path, std::ios::binary);
        file_.assign(std::istreambuf_iterator<char>(stream), {});
        ByteReader reader({reinterpret_cast<const std::uint8_t*>(file_.data()), file_.size()});
        while (reader.remaining() != 0) {
            const auto name = take(reader);
            const auto token = reader.read<std::uint32_t>();
            const auto bytes = take(reader);
            if (!name || !token || !bytes) {
                throw std::runtime_error(path + " is cut off");
            }
            bodies_.push_back(
                {{reinterpret_cast<const char*>(name->data()), name->size()}, *token, *bytes});
        }
        if (bodies_.empty()) {
            throw std::runtime_error(path + " holds no bodies");
        }
    }
    BodyCorpus(const BodyCorpus&) = delete;
    BodyCorpus& operator=(const BodyCorpus&) = delete;

    [[nodiscard]] const std::vector<CorpusBody>& bodies() const { return bodies_; }

private:
    static std::optional<std::span<const std::uint8_t>> take(ByteReader& reader) {
        const auto size = reader.read<std::uint32_t>();
        const std::uint8_t* const bytes = reader.cursor();
        return size && reader.skip(*size) ? std::optional(std::span(bytes, *size)) : std::nullopt;
    }

    std::string file_;
    std::vector<CorpusBody> bodies_;
};

} // namespace corvane
