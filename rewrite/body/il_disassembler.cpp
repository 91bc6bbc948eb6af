// Pieces of the listing arrive as finished text, short enough never to be cut. So all of them leave
// by the channel's unformatted form.

#include "rewrite/body/il_disassembler.h"

#include "il/listing.h"

namespace corvane {

il_disassembler::il_disassembler(std::span<const std::uint8_t> method, LogThreshold threshold)
    : method_(method), log_(make_prefix("", "il_disassembler", ""), threshold) {}

void il_disassembler::listing() const {
    // Asked once for all pieces: those that are not written are not formatted either.
    if (log_.writes(NarrowDebugLog::kLineLevel)) {
        list_body(method_, [this](const std::string& piece) { log_.log_line_narrow(piece); });
    }
}

} // namespace corvane
