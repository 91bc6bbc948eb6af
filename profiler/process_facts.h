// Reads what the process gate needs to know of this process.
#pragma once

#include "profiler/process_gate.h"

namespace corvane {

ProcessFacts read_process_facts();

} // namespace corvane
