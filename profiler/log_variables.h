// The variables about the log, from the environment of the process.
#pragma once

#include "base/log_settings.h"

namespace corvane {

LogVariables read_log_variables();

} // namespace corvane
