using System;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// Runs something once when the process ends: by returning from Main, by Environment.Exit or by an exception
// that nothing handles, for which the runtime has an event of its own. Disposing takes it back.
internal sealed class AtExit : IDisposable
{
    private Action? action;

    private AtExit(Action action) => this.action = action;

    internal static AtExit Run(Action action)
    {
        var exit = new AtExit(action);
        AppDomain.CurrentDomain.ProcessExit += exit.OnEnd;
        AppDomain.CurrentDomain.UnhandledException += exit.OnEnd;
        return exit;
    }

    // There are hosts in which an exception that nothing handles ends nothing.
    internal void OnEnd(object? sender, EventArgs happened)
    {
        if (happened is not UnhandledExceptionEventArgs { IsTerminating: false })
        {
            Interlocked.Exchange(ref action, null)?.Invoke();
        }
    }

    public void Dispose()
    {
        AppDomain.CurrentDomain.ProcessExit -= OnEnd;
        AppDomain.CurrentDomain.UnhandledException -= OnEnd;
    }
}
