// Observers in a real runtime: a program that refers to the managed library sees its own calls.
#include "tests/support/runtime_test.h"

#include <gtest/gtest.h>

namespace corvane::testing {
namespace {

class Observed : public EachRuntimeTest {};
INSTANTIATE_TEST_SUITE_P(Runtimes, Observed, ::testing::ValuesIn(kRuntimes), runtime_name);

// Four threads go through 250 rounds of ten calls; after them nobody observes.
TEST_P(Observed, SeeEachCallBeginAndEnd) {
    configure("<configuration><instrumentation><applications>"
              "<application name='profiled.exe' corvane='Enabled'/>"
              "</applications></instrumentation></configuration>");
    program = L"profiled";
    for (const wchar_t* const strict : {L"0", L"1"}) {
        watch({.executable = L"profiled.exe",
               .arguments = {L"observed"},
               .environment = {{L"CORVANE_METHODS", L"ObservedCalls.*"},
                               {L"CORVANE_STRICT_IL", strict}},
               .with_witness = false,
               .with_debugger = false,
               .exit_code = 3,
               .remark = "begun 10000, ended 6000, failed 4000, wrong 0\r\n"});
    }
}

} // namespace
} // namespace corvane::testing
