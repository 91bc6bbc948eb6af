using System.Collections.Generic;

namespace Corvane.Instrumentation.Export;

// The outermost slices of one thread. Slices of a thread lie beside or within each other.
internal sealed class ThreadSlices
{
    private const int Most = 1024;

    private readonly List<(long Started, long Ended)> outermost = new List<(long, long)>();

    // Whether it fits. They come in the order of their ends: one covers others, lies behind all, or crosses one.
    internal bool Take(long started, long ended)
    {
        var kept = outermost.Count;
        while (kept > 0 && outermost[kept - 1].Started >= started && outermost[kept - 1].Ended <= ended)
        {
            kept--;
        }
        if (kept > 0 && outermost[kept - 1].Ended > started)
        {
            return false;
        }
        outermost.RemoveRange(kept, outermost.Count - kept);
        outermost.Add((started, ended));
        if (outermost.Count > Most)
        {
            outermost.RemoveRange(0, Most / 2);
        }
        return true;
    }
}
