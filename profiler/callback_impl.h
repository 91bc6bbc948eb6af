// The callback table in which every callback returns S_OK; CClrProfiler overrides those that it
// serves.
#pragma once

#include "clr/cor_profiler.h"

namespace corvane {

class CorvaneCorProfilerCallbackImpl : public ICorProfilerCallback3 {
public:
#define CORVANE_ANSWER_OK(slot, name, parameters)                                                  \
    HRESULT STDMETHODCALLTYPE name parameters override {                                           \
        return S_OK;                                                                               \
    }
    CLR_PROFILER_CALLBACK_METHODS(CORVANE_ANSWER_OK)
    CLR_PROFILER_CALLBACK2_METHODS(CORVANE_ANSWER_OK)
    CLR_PROFILER_CALLBACK3_METHODS(CORVANE_ANSWER_OK)
#undef CORVANE_ANSWER_OK
};

} // namespace corvane
