// Reads the facts about this process that the process gate needs.
#pragma once

#include "profiler/process_gate.h"

namespace corvane {

ProcessFacts read_process_facts();

} // namespace corvane
