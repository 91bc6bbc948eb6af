namespace Corvane.Sampling.Platform;

// The two exports of the profiler that serve sampling, with their statuses.
internal interface IProfilerExports
{
    // The functions on the stack of a thread, innermost first, in the first `count` elements of the array,
    // which is replaced by a larger one as need be, and the time in microseconds since 1970. Only a status
    // of 0 gives any. Throws where the profiler runs out of memory or threads.
    int TakeSnapshot(uint thread, ref double[] functions, out int count, out ulong microseconds);

    // The names of as many functions. One that no snapshot has reported, or whose assembly was unloaded, has none.
    // Throws where the profiler runs out of memory or threads.
    FunctionNames[] GetFunctionNames(double[] functions);
}

// What became of the methods that the profiler chose.
internal sealed class InstrumentationOutcome
{
    internal long Instrumented { get; set; }

    internal long Left { get; set; }

    // For the commonest reason, and what that is.
    internal long LeftForReason { get; set; }

    internal string Reason { get; set; } = "";
}

// Null where they could not be read.
internal readonly struct FunctionNames
{
    internal FunctionNames(string? type, string? method)
    {
        Type = type;
        Method = method;
    }

    internal string? Type { get; }

    internal string? Method { get; }
}
