// The answer of a process that is asked: "ok", "wait SECONDS" as often as it takes, parts of
// "part NAME LENGTH" and as many bytes, "end"; or "error REASON". A pure reader: it gets the bytes
// as they come.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::tool {

class ControlAnswer {
public:
    // Throws std::runtime_error if that is no answer.
    void add(std::string_view bytes);

    bool is_complete() const { return is_complete_; }

    // Why there are no parts.
    const std::optional<std::string>& refusal() const { return refusal_; }

    // The last number of seconds, once.
    std::optional<unsigned> take_wait();

    std::map<std::string, std::string>& parts() { return parts_; }

private:
    void read_line(const std::string& line);

    std::string unread_;
    bool is_accepted_ = false;
    bool is_complete_ = false;
    std::optional<std::string> refusal_;
    std::optional<unsigned> wait_;
    std::string part_; // whose bytes come next
    std::size_t missing_ = 0;
    std::map<std::string, std::string> parts_;
};

} // namespace corvane::tool
