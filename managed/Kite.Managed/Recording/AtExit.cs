using System;
using System.Collections.Generic;
using System.Runtime.CompilerServices;
#if NET
using System.Runtime.InteropServices;
#endif
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// Runs something once when the process ends: by returning from Main, by Environment.Exit, by an exception that
// nothing handles, for which the runtime has an event of its own, or by a signal, such as Ctrl+C, that the program lets
// end it. The .NET Framework may also unload the domain alone. Disposing takes it back.
internal sealed class AtExit : IDisposable
{
    private readonly List<IDisposable> signals = new List<IDisposable>();
    private Action? action;

    private AtExit(Action action) => this.action = action;

    internal static AtExit Run(Action action)
    {
        var exit = new AtExit(action);
        AppDomain.CurrentDomain.ProcessExit += exit.OnEnd;
        AppDomain.CurrentDomain.DomainUnload += exit.OnEnd;
        AppDomain.CurrentDomain.UnhandledException += exit.OnEnd;
        try
        {
            exit.TakeSignals();
        }
        catch (Exception)
        {
            // A program that was trimmed may have no signals. What was written before the end is there without them.
        }
        return exit;
    }

    // There are hosts in which an exception that nothing handles ends nothing.
    internal void OnEnd(object? sender, EventArgs happened)
    {
        if (happened is not UnhandledExceptionEventArgs { IsTerminating: false })
        {
            End();
        }
    }

    public void Dispose()
    {
        AppDomain.CurrentDomain.ProcessExit -= OnEnd;
        AppDomain.CurrentDomain.DomainUnload -= OnEnd;
        AppDomain.CurrentDomain.UnhandledException -= OnEnd;
        signals.ForEach(signal => signal.Dispose());
    }

    private void End() => Interlocked.Exchange(ref action, null)?.Invoke();

#if NET
    // Handlers run in the reverse order of their registration, so that this one comes after those of the program and
    // sees what they decided. It decides nothing itself. Up to .NET 9 the runtime ends the process in an orderly way
    // when it is asked to stop or its console is closed.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private void TakeSignals()
    {
        var ending = Environment.Version.Major < 10
            ? new[] { PosixSignal.SIGINT, PosixSignal.SIGQUIT }
            : new[] { PosixSignal.SIGINT, PosixSignal.SIGQUIT, PosixSignal.SIGTERM, PosixSignal.SIGHUP };
        foreach (var signal in ending)
        {
            signals.Add(PosixSignalRegistration.Create(signal, OnSignal));
        }
    }

    private void OnSignal(PosixSignalContext context)
    {
        if (!context.Cancel)
        {
            End();
        }
    }
#else
    private void TakeSignals()
    {
    }
#endif
}
