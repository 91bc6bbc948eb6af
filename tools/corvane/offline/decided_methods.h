// What becomes of all methods of an assembly: their list, a choice of it, their bodies, and sums.
#pragma once

#include "tools/corvane/offline/explain_report.h"
#include "tools/corvane/offline/explanation.h"
#include "tools/corvane/offline/metadata_names.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace corvane::tool {

struct Decided {
    mdMethodDef token = mdMethodDefNil;
    MethodFate fate;
};

// In the order of the metadata. Progress hears how many of how many are done.
std::vector<Decided> decide_all(Explanation& explanation,
                                const std::function<void(std::size_t, std::size_t)>& progress);

// Those whose full names match; without patterns those that are chosen. The methods are borrowed.
std::vector<const Decided*> selected(const std::vector<Decided>& all,
                                     const std::optional<MethodPatterns>& patterns,
                                     MetadataNames& names);

struct Bodies {
    IlText before;
    std::optional<IlText> after; // of an instrumented method
};

Bodies bodies_of(const Decided& method, Explanation& explanation, MetadataNames& names);

Totals totals_of(const std::vector<Decided>& all);

} // namespace corvane::tool
