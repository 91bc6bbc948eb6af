// The reason for leaving a method unchanged: one line for its log.
#pragma once

#include "clr/cor_profiler.h"

#include <string>
#include <utility>

namespace corvane {

// One rewriting has one; the first reason stays.
class Refusal {
public:
    // Returns the result, so that whoever refuses can pass it on at once.
    HRESULT refuse(std::wstring reason, HRESULT result = E_FAIL) {
        if (reason_.empty()) {
            reason_ = std::move(reason);
        }
        return result;
    }

    // Empty where the result says it all.
    [[nodiscard]] const std::wstring& reason() const { return reason_; }

private:
    std::wstring reason_;
};

} // namespace corvane
