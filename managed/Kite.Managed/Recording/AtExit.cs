using System;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// Runs something once when the process ends: by returning from Main, by Environment.Exit, by an exception that
// nothing handles, for which the runtime has an event of its own, or by what the console tells of, such as Ctrl+C. The
// .NET Framework may also unload the domain alone. Disposing takes it back.
internal sealed class AtExit : IDisposable
{
    private const uint CtrlC = 0;
    private const uint CtrlBreak = 1;
    private const uint Close = 2;
    private const uint Shutdown = 6;

    // Until then the runtime itself makes an orderly end of a closed console and of a shutdown.
    private const int RuntimeThatLeavesCloseAlone = 10;

    private static readonly TimeSpan MostWaiting = TimeSpan.FromSeconds(10);

    private readonly object gate = new object();
    private readonly ConsoleHandler handler; // kept, because the system calls it
    private Action? action;

    private AtExit(Action action)
    {
        this.action = action;
        handler = happened => OnConsole(happened, Environment.Version.Major);
    }

    private delegate bool ConsoleHandler(uint happened);

    // The runtime has not registered its own handler of the console yet.
    internal static bool IsBeforeMain { get; set; }

    internal static AtExit Run(Action action)
    {
        var exit = new AtExit(action);
        AppDomain.CurrentDomain.ProcessExit += exit.OnEnd;
        AppDomain.CurrentDomain.DomainUnload += exit.OnEnd;
        AppDomain.CurrentDomain.UnhandledException += exit.OnEnd;
        if (IsBeforeMain)
        {
            exit.HearConsole(true);
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

    // The system asks the handlers in the reverse order of their registration, up to the first that takes what
    // happened. This one is registered before the runtime's, which the program's are behind. So it is asked when
    // nobody has kept the process from ending. It takes nothing. Where the library is first used later, there is none: it
    // would be asked before the program, which may go on.
    internal bool OnConsole(uint happened, int runtime)
    {
        if (happened is CtrlC or CtrlBreak || (happened is Close or Shutdown && runtime >= RuntimeThatLeavesCloseAlone))
        {
            End();
        }
        return false;
    }

    public void Dispose()
    {
        AppDomain.CurrentDomain.ProcessExit -= OnEnd;
        AppDomain.CurrentDomain.DomainUnload -= OnEnd;
        AppDomain.CurrentDomain.UnhandledException -= OnEnd;
        HearConsole(false);
    }

    // Two threads may end the process. The second one would cut the first one short.
    private void End()
    {
        var isMine = Monitor.TryEnter(gate, MostWaiting);
        try
        {
            Interlocked.Exchange(ref action, null)?.Invoke();
        }
        finally
        {
            if (isMine)
            {
                Monitor.Exit(gate);
            }
        }
    }

    // There is no such thing on other systems, and what a trimmed program lacks is done without.
    private void HearConsole(bool begins)
    {
        try
        {
            if (RuntimeInformation.IsOSPlatform(OSPlatform.Windows))
            {
                SetHandler(begins);
            }
        }
        catch (Exception)
        {
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private void SetHandler(bool begins) => SetConsoleCtrlHandler(handler, begins);

    [DllImport("kernel32")]
    private static extern bool SetConsoleCtrlHandler(ConsoleHandler handler, bool add);
}
