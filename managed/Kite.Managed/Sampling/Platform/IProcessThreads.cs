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
}

// As long as it is open its id stands for this thread and for no later one.
internal interface IOpenThread : IDisposable
{
    bool HasEnded { get; }

    string? Name { get; }
}
