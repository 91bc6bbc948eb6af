using System;
using System.Runtime.CompilerServices;
using System.Threading;

/// <summary>A thread to be sampled. Its code says when it has arrived where samples are to be taken, and
/// ends when it is told to.</summary>
internal sealed class Target : IDisposable
{
    private readonly Action<Target> code_;
    private readonly Thread thread_;

    /// <summary>Whether the code has to come to its end.</summary>
    public volatile bool IsToStop;

    /// <summary>Set by the code, itself: a sample never shows it on its way out of telling so.</summary>
    public volatile bool HasArrived;

    /// <summary>What the code has done so far, as it counts it.</summary>
    public long Progress;

    /// <summary>Starts the thread and waits until it has arrived.</summary>
    public Target(Action<Target> code)
    {
        code_ = code;
        thread_ = new Thread(Run, 64 << 20);
        thread_.Start();
        while (!HasArrived)
        {
            Thread.Sleep(1);
        }
    }

    /// <summary>The system's id.</summary>
    public uint Id { get; private set; }

    /// <summary>Set at the end of the code, so that nothing of the way there is left out of the stack.</summary>
    public bool Ended { get; private set; }

    /// <summary>For code of which no one sample is relied on.</summary>
    public void Arrive() => HasArrived = true;

    /// <summary>Waits until the thread waits in the runtime.</summary>
    public Target WhenBlocked()
    {
        while ((thread_.ThreadState & ThreadState.WaitSleepJoin) == 0)
        {
            Thread.Sleep(1);
        }
        Thread.Sleep(20);
        return this;
    }

    /// <summary>Ends its sleep.</summary>
    public void Wake() => thread_.Interrupt();

    /// <summary>Stops the thread and waits for its end.</summary>
    public void Dispose()
    {
        IsToStop = true;
        thread_.Join();
    }

    [MethodImpl(MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization)]
    private void Run()
    {
        Id = Platform.GetCurrentThreadId();
        code_(this);
        Ended = true;
    }
}
