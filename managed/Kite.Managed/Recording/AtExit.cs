using System;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// Runs something once when the process ends: by returning from Main, by Environment.Exit or by an exception
// that nothing handles, for which the runtime has an event of its own.
internal static class AtExit
{
    internal static void Run(Action action)
    {
        var done = 0;
        void RunOnce()
        {
            if (Interlocked.Exchange(ref done, 1) == 0)
            {
                action();
            }
        }
        AppDomain.CurrentDomain.ProcessExit += (_, _) => RunOnce();
        AppDomain.CurrentDomain.UnhandledException += (_, happened) =>
        {
            if (happened.IsTerminating)
            {
                RunOnce();
            }
        };
    }
}
