using System;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// A thread of the library. Nothing that runs on it is recorded, nothing of the program flows into it, it keeps no
// process alive, and what fails on it ends nothing.
internal static class OwnThread
{
    private const string Names = "Corvane ";

    // Whether a thread of this name is one of these.
    internal static bool IsCalled(string? name) => name?.StartsWith(Names, StringComparison.Ordinal) == true;

    internal static void Start(string name, Action run, Action<Exception> fail)
    {
        var thread = new Thread(() => Run(run, fail)) { IsBackground = true, Name = Names + name };
        var isFlowing = !ExecutionContext.IsFlowSuppressed();
        var flow = isFlowing ? ExecutionContext.SuppressFlow() : default;
        try
        {
            thread.Start();
        }
        finally
        {
            if (isFlowing)
            {
                flow.Undo();
            }
        }
    }

    private static void Run(Action run, Action<Exception> fail)
    {
        Recorder.PassOverThisThread();
        OwnWork.Begin();
        try
        {
            run();
        }
        catch (Exception exception)
        {
            fail(exception);
        }
    }
}
