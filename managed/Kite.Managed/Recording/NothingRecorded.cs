using System;
using System.Globalization;
using System.Runtime.CompilerServices;
using Corvane.Sampling.Platform;

namespace Corvane.Instrumentation.Recording;

// Why nothing was recorded of a process although it was asked for, and the cure.
internal sealed class NothingRecorded
{
    private const string Begin = "nothing was recorded: ";
    private const string LeftOut = "all traces were left out, as OTEL_TRACES_SAMPLER or the callers of the process decided.";

    private NothingRecorded(string why, bool isServed)
    {
        Text = Begin + why;
        IsServed = isServed;
    }

    internal string Text { get; }

    // The profiler is in the process.
    internal bool IsServed { get; }

    // Without it a process may have nothing but the variables from another one, whose files it is to leave alone.
    internal static bool IsProfilerHere()
    {
        try
        {
            return FindProfiler();
        }
        catch (Exception)
        {
            return false;
        }
    }

    // leftOut: there were traces that the sampler did not choose.
    internal static NothingRecorded Reason(MethodTable methods, bool leftOut)
    {
        try
        {
            return Find(methods, leftOut);
        }
        catch (Exception exception)
        {
            // A program that was trimmed may lack what finds out about it.
            return new NothingRecorded($"whether {ProfilerFacts.Library} is in this process cannot be found out: {exception.Message}", false);
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static bool FindProfiler() => ProfilerExports.FindOrNull(out _) != null;

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static NothingRecorded Find(MethodTable methods, bool leftOut)
    {
        return ProfilerExports.FindOrNull(out var whyNot) is { } profiler
            ? new NothingRecorded(Why(!methods.IsEmpty, leftOut, profiler.GetInstrumentationOutcome()), true)
            : new NothingRecorded(whyNot, false);
    }

    // Of spans alone, where calls were recorded.
    internal static string NoSpan(bool leftOut) => Begin + (leftOut ? LeftOut : "no call that has a span was made.");

    internal static string Why(bool wasCalled, bool leftOut, InstrumentationOutcome? outcome)
    {
        if (leftOut)
        {
            return LeftOut;
        }
        if (wasCalled)
        {
            return "no call of an instrumented method had ended.";
        }
        if (outcome == null)
        {
            return "no instrumented method was called.";
        }
        if (outcome.Instrumented > 0)
        {
            return $"none of the instrumented methods ({Number(outcome.Instrumented)}) was called.{Left(outcome)}";
        }
        return outcome.Left > 0
            ? $"no method was instrumented.{Left(outcome)}"
            : "no method was chosen. Methods are chosen for their names, their trace attribute or CORVANE_METHODS, when " +
              "they are compiled. Without CORVANE_STRICT_IL=1 a method that is inlined or precompiled is not seen.";
    }

    private static string Left(InstrumentationOutcome outcome)
    {
        if (outcome.Left == 0)
        {
            return "";
        }
        var some = outcome.LeftForReason == outcome.Left ? "" : $", {Number(outcome.LeftForReason)} of them for this reason";
        return $" Chosen methods that were left unchanged: {Number(outcome.Left)}{some}: {outcome.Reason}. " +
            "The profiler's log (CORVANE_LOG_FILE) names them.";
    }

    private static string Number(long number) => number.ToString(CultureInfo.InvariantCulture);
}
