#if NET
using System;
using System.Runtime.InteropServices;
using System.Runtime.Versioning;
using System.Threading;
using Corvane.Instrumentation.Export;
using Microsoft.Win32.SafeHandles;

namespace Corvane.Instrumentation.Control;

// Has the system end what the thread that made it waits for, where that takes too long. That is seen by another thread,
// which ends with this.
internal sealed class LimitedWait : IDisposable
{
    private const int Again = 20; // milliseconds: the thread may have been about to wait
    private const uint Terminate = 1;

    private readonly object gate = new();
    private readonly Action end;
    private long due = long.MaxValue; // milliseconds of the system
    private bool isOver;

    [SupportedOSPlatform("windows")]
    internal LimitedWait()
        : this(EndOfThisThread())
    {
    }

    internal LimitedWait(Action end)
    {
        this.end = end;
        OwnThread.Start("control limit", Watch, _ => { });
    }

    public void Dispose()
    {
        lock (gate)
        {
            isOver = true;
            Monitor.Pulse(gate);
        }
    }

    // What is ended throws.
    internal void For(TimeSpan limit, Action run)
    {
        SetDue(Environment.TickCount64 + (long)limit.TotalMilliseconds);
        try
        {
            run();
        }
        finally
        {
            SetDue(long.MaxValue);
        }
    }

    private void SetDue(long time)
    {
        lock (gate)
        {
            due = time;
            Monitor.Pulse(gate);
        }
    }

    private void Watch()
    {
        lock (gate)
        {
            while (!isOver)
            {
                var rest = due - Environment.TickCount64;
                if (rest <= 0)
                {
                    end();
                }
                Monitor.Wait(gate, rest <= 0 ? Again : (int)Math.Min(rest, int.MaxValue));
            }
        }
    }

    [SupportedOSPlatform("windows")]
    private static Action EndOfThisThread()
    {
        var thread = OpenThread(Terminate, false, GetCurrentThreadId());
        return () => CancelSynchronousIo(thread);
    }

    [DllImport("kernel32")]
    private static extern uint GetCurrentThreadId();

    [DllImport("kernel32")]
    private static extern SafeWaitHandle OpenThread(uint access, bool inherits, uint thread);

    [DllImport("kernel32")]
    private static extern bool CancelSynchronousIo(SafeWaitHandle thread);
}
#endif
