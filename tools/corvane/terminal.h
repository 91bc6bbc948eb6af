// What only a console shows: colours, and progress.
#pragma once

#include <string>
#include <string_view>

namespace corvane::tool {

// Whether standard output shows colours from now on. Not if NO_COLOR is set.
bool enable_colours();

// A line on standard error that takes the place of the one before, where that is a console.
class ProgressLine {
public:
    ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine(); // leaves nothing behind

    // Shows it if the last one was long enough ago.
    void show(std::string_view text);

private:
    bool is_shown_;
    unsigned long long last_ = 0;
    std::size_t length_ = 0;
};

enum class Colour { kPlain, kGood, kWarning, kBad, kFaint };

// Text in that colour, or as it stands.
std::string coloured(std::string_view text, Colour colour, bool has_colours);

} // namespace corvane::tool
