#include "tools/corvane/control_answer.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace corvane::tool {
namespace {

constexpr std::size_t kLongestLine = 4096;
constexpr std::size_t kLargestPart = std::size_t{1} << 30;

[[noreturn]] void refuse() {
    throw std::runtime_error("what answered is not the managed library");
}

std::size_t number(std::string_view text, std::size_t most) {
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > most) {
        refuse();
    }
    return value;
}

} // namespace

void ControlAnswer::add(std::string_view bytes) {
    unread_ += bytes;
    std::size_t read = 0;
    while (read < unread_.size() && !is_complete_) {
        if (missing_ > 0) {
            const std::size_t count = std::min(missing_, unread_.size() - read);
            parts_[part_].append(unread_, read, count);
            missing_ -= count;
            read += count;
            continue;
        }
        const std::size_t end = unread_.find('\n', read);
        if (end == std::string::npos) {
            if (unread_.size() - read > kLongestLine) {
                refuse();
            }
            break;
        }
        read_line(unread_.substr(read, end - read));
        read = end + 1;
    }
    unread_.erase(0, read);
}

std::optional<unsigned> ControlAnswer::take_wait() {
    return std::exchange(wait_, std::nullopt);
}

void ControlAnswer::read_line(const std::string& line) {
    constexpr std::string_view kError = "error ";
    constexpr std::string_view kWait = "wait ";
    constexpr std::string_view kPart = "part ";
    if (!is_accepted_) {
        if (line.starts_with(kError)) {
            refusal_ = line.substr(kError.size());
            is_complete_ = true;
        } else if (line != "ok") {
            refuse();
        }
        is_accepted_ = true;
    } else if (line == "end") {
        is_complete_ = true;
    } else if (line.starts_with(kWait)) {
        wait_ = static_cast<unsigned>(number(std::string_view(line).substr(kWait.size()), 86'400));
    } else if (line.starts_with(kPart)) {
        const std::size_t blank = line.rfind(' ');
        part_ = line.substr(kPart.size(), std::max(blank, kPart.size()) - kPart.size());
        missing_ = number(std::string_view(line).substr(blank + 1), kLargestPart);
        parts_[part_].clear();
    } else {
        refuse();
    }
}

} // namespace corvane::tool
