using System;
using System.Runtime.CompilerServices;
using Corvane.Sampling.Platform;

namespace Corvane.Instrumentation.Recording;

// Why nothing was recorded of a process although it was asked for, and the cure.
internal sealed class NothingRecorded
{
    private NothingRecorded(string why, bool isServed)
    {
        Text = $"nothing was recorded: {why}";
        IsServed = isServed;
    }

    internal string Text { get; }

    // The profiler is in the process.
    internal bool IsServed { get; }

    internal static NothingRecorded Reason(MethodTable methods)
    {
        try
        {
            return Find(methods);
        }
        catch (Exception exception)
        {
            // A program that was trimmed may lack what finds out about it.
            return new NothingRecorded($"whether {ProfilerFacts.Library} is in this process cannot be found out: {exception.Message}", false);
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static NothingRecorded Find(MethodTable methods)
    {
        if (ProfilerExports.FindOrNull(out var whyNot) == null)
        {
            return new NothingRecorded(whyNot, false);
        }
        return new NothingRecorded(
            methods.IsEmpty
                ? "no instrumented method was called. Methods are instrumented for their names, their trace attribute " +
                  "or CORVANE_METHODS; the profiler's log (CORVANE_LOG_FILE) names those that were left unchanged, and why."
                : "no call of an instrumented method had ended.",
            true);
    }
}
