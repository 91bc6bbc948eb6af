// The text behind every "(%s)" of a failure message.
#pragma once

#include "base/debug_log.h"
#include "base/local_memory.h"

#include <utility>

namespace corvane {

// Owns the text; lives as long as the log call that it is an argument of.
class HresultText {
public:
    explicit HresultText(LocalMemory<wchar_t> text) noexcept : text_(std::move(text)) {}
    const wchar_t* c_str() const noexcept { return text_ ? text_.get() : L""; }

private:
    LocalMemory<wchar_t> text_;
};

// The system's message for `hr` without its line end. Codes that the system does not know are
// named by number: "IDispatch error #N" in the range that dispatch interfaces define their own
// errors in, else "Unknown error 0xN".
HresultText hresult_text(HRESULT hr) noexcept;

// Logs `message`, which ends in "(%s)" or "%s", with the text of `hr`, which is looked up only if
// the line is written.
void log_result(const DebugLog& log, const wchar_t* message, HRESULT hr,
                std::int32_t level = 1) noexcept;

} // namespace corvane
