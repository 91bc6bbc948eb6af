// The log texts of injected code. A text is the prefix, the method's class, a ".", its name, "::",
// the label and the suffix. Misspellings are part of the texts: people search for them.
#pragma once

#include "rewrite/emit/emission.h"

namespace corvane {

inline constexpr const wchar_t* kInjectedCodeFailed =
    L"Failed while attempting to invoke the emitted IL within the instruemented method's body. ";
inline constexpr const wchar_t* kRethrowPrefix = L"[EmitRethrowErrorBlock] ";
inline constexpr const wchar_t* kRethrowLabel = L"Catch N' Throw";

inline constexpr TraceText kBeforeError = {kRethrowPrefix, kRethrowLabel,
                                           L" About to invoke Kite.Managed.span.Error()"};
inline constexpr TraceText kErrorFailed = {kRethrowPrefix, kRethrowLabel,
                                           L" Failed while invoking Kite.Managed.span.Error"};
inline constexpr TraceText kFinally = {L"[Finally] ", L"Finally;"};
inline constexpr TraceText kPrologueFailed = {kInjectedCodeFailed, L"Prologue();"};
inline constexpr TraceText kEpilogueFailed = {kInjectedCodeFailed, L"Epilogue();"};

} // namespace corvane
