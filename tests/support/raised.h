// What an export raised to a native caller.
#pragma once

#include "sampling/export_result.h"

namespace corvane::testing {

inline constexpr HRESULT kNoThread = static_cast<HRESULT>(0x800700A4); // ERROR_MAX_THRDS_REACHED

// The code of the error that the call raised, S_OK without one.
template <class Call>
HRESULT raised_by(const Call& call) {
    try {
        call();
    } catch (const ResultError& error) {
        return error.result();
    }
    return S_OK;
}

} // namespace corvane::testing
