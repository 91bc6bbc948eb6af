namespace Corvane.Instrumentation.Spans;

// Whether the spans of a trace are recorded. Asked where a trace enters this process.
// parentIsSampled: what the one says that the trace comes from; null where it begins here.
internal delegate bool RootSampler(TraceId trace, bool? parentIsSampled);
