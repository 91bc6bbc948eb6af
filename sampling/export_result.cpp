#include "sampling/export_result.h"

namespace corvane {

// In a file of its own, so that no destructor of the work comes into its frame.
std::int32_t finish_export(ExportResult result) {
    if (FAILED(result.error)) {
        raise_result(result.error);
    }
    return result.status;
}

} // namespace corvane
