// The failures of the exports: an error that is raised to the caller, which may be managed code.
// Towards managed code only a frame without anything to unwind may be left: the runtime unwinds it
// by itself, and a frame with destructors ends the process. So an export's work never throws, and
// the error is raised behind it.
#pragma once

#include "sampling/automation.h"

#include <boost/thread/exceptions.hpp>

#include <cstdint>

namespace corvane {

// Of an export: its status, or the error to raise.
struct ExportResult {
    std::int32_t status = 0;
    HRESULT error = S_OK;
};

// Want of memory is E_OUTOFMEMORY, a worker that cannot be started ERROR_MAX_THRDS_REACHED.
template <class Work>
ExportResult attempt_export(const Work& work) noexcept {
    try {
        return {.status = work()};
    } catch (const boost::thread_resource_error&) {
        return {.error = HRESULT_FROM_WIN32(ERROR_MAX_THRDS_REACHED)};
    } catch (const ResultError& error) {
        return {.error = error.result()};
    } catch (const std::exception&) {
        return {.error = E_OUTOFMEMORY};
    }
}

// Returns the status, or raises the error as a ResultError; a managed caller gets an
// ExternalException.
std::int32_t finish_export(ExportResult result);

} // namespace corvane
