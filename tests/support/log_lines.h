// Collects what a LogSink is told, a line each: level, blank, message.
#pragma once

#include "base/log_sink.h"

#include <string>

namespace corvane::testing {

class LogLines {
public:
    LogSink sink() {
        return [this](int level, const wchar_t* message) {
            text_ += std::to_wstring(level) + L' ' + message + L'\n';
        };
    }
    const std::wstring& text() const { return text_; }

private:
    std::wstring text_;
};

} // namespace corvane::testing
