using System;
using System.Threading;

namespace Corvane.Instrumentation.Export;

// Blocks to be used again, up to a limit. Any thread; none waits for another. Each begins to look at a place of its own.
internal sealed class SpanBlocks
{
    private readonly SpanBlock?[] free = new SpanBlock?[SpanQueue.MaxOfFull / SpanBlock.Size];

    private int First => Environment.CurrentManagedThreadId * 16 % free.Length;

    internal SpanBlock Take()
    {
        for (int count = 0, place = First; count < free.Length; count++, place = (place + 1) % free.Length)
        {
            if (Volatile.Read(ref free[place]) != null && Interlocked.Exchange(ref free[place], null) is { } block)
            {
                return block;
            }
        }
        return new SpanBlock();
    }

    // One that there is no place for is garbage.
    internal void Give(SpanBlock block)
    {
        block.Clear();
        for (int count = 0, place = First; count < free.Length; count++, place = (place + 1) % free.Length)
        {
            if (Volatile.Read(ref free[place]) == null && Interlocked.CompareExchange(ref free[place], block, null) == null)
            {
                return;
            }
        }
    }
}
