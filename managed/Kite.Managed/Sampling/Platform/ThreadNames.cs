using System;

namespace Corvane.Sampling.Platform;

// The names that the system has for threads. A Windows that names none is asked once: each question of what is
// missing is an exception. The sampler's thread only.
internal sealed class ThreadNames
{
    private readonly Func<IntPtr, string?> describe;
    private bool areMissing;

    internal ThreadNames(Func<IntPtr, string?> describe) => this.describe = describe;

    internal string? Of(IntPtr thread)
    {
        if (areMissing)
        {
            return null;
        }
        try
        {
            return describe(thread);
        }
        catch (EntryPointNotFoundException)
        {
            areMissing = true;
            return null;
        }
    }
}
