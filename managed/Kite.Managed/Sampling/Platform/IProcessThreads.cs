using System;
using System.Collections.Generic;

namespace Corvane.Sampling.Platform;

// The threads of this process.
internal interface IProcessThreads
{
    uint CurrentId { get; }

    // Of those that run now, more or less; null if they cannot be listed just now.
    List<uint>? Ids();

    // Null if it has ended, or is not one of this process.
    IOpenThread? Open(uint id);

    // While it is open waits end when they should, not at the next tick of a slow clock.
    IDisposable? SharpenClock();

    ProcessorClock ProcessorClock { get; }
}

// As long as it is open its id stands for this thread and for no later one.
internal interface IOpenThread : IDisposable
{
    bool HasEnded { get; }

    string? Name { get; }

    // What it has used of the processors so far, as the clock counts it; null if it has ended, or the system does not say.
    ulong? ProcessorTime { get; }

    // The same as a time, which may be coarse.
    TimeSpan? Used { get; }
}

// How the system counts what threads use of the processors.
internal readonly struct ProcessorClock
{
    internal ProcessorClock(ulong noise, TimeSpan grain)
    {
        Noise = noise;
        Grain = grain;
    }

    // So much a thread uses by being stopped: it has not run for that.
    internal ulong Noise { get; }

    // So long a thread may run without a change of its time.
    internal TimeSpan Grain { get; }
}
