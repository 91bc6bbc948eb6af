using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;
using System.Threading;
using Corvane.Instrumentation.Spans;
using Corvane.Sampling.Platform;

namespace Corvane.Sampling;

// What a thread is busy with, for whoever samples it: a request, a call that begins a trace, or a region that the program
// named. It follows the program's logical flow. Each thread has a slot with its own, which the sampler reads.
internal sealed class SampledOperation
{
    private const uint ElsewhereFrom = 1 << 30;

    private static readonly AsyncLocal<SampledOperation?> current = new AsyncLocal<SampledOperation?>(OnChanged);
    private static readonly Dictionary<uint, Slot> slots = new Dictionary<uint, Slot>();

    [ThreadStatic]
    private static Slot? ownSlot;

    private static volatile bool isUsed;

    private volatile string name;

    private SampledOperation(string name, SampledOperation? around, bool isOfSpan)
    {
        this.name = name;
        Around = around;
        IsOfSpan = isOfSpan;
    }

    // Whether spans are operations.
    internal static bool IsWanted { get; set; }

    internal static SampledOperation? Current => current.Value;

    // A request gets its route when it ends.
    internal string Name
    {
        get => name;
        set => name = value;
    }

    internal SampledOperation? Around { get; }

    private bool IsOfSpan { get; }

    internal static SampledOperation Enter(string name)
    {
        var operation = new SampledOperation(name, current.Value is { IsOfSpan: false } around ? around : null, isOfSpan: false);
        isUsed = true;
        current.Value = operation;
        return operation;
    }

    // Whatever began inside of it ends with it.
    internal void Leave()
    {
        for (var operation = current.Value; operation != null; operation = operation.Around)
        {
            if (operation == this)
            {
                current.Value = Around;
                return;
            }
        }
    }

    // The outermost span is the operation, unless there is another one. The whole program is none.
    internal static void Follow(Span? before, Span? now)
    {
        if (!IsOperation(now))
        {
            if (current.Value is { IsOfSpan: true })
            {
                current.Value = null;
            }
        }
        else if (!IsOperation(before) && current.Value == null)
        {
            isUsed = true;
            current.Value = new SampledOperation(now!.Name, null, isOfSpan: true);
        }
    }

    // Null as long as the thread has had none.
    internal static Slot? SlotOf(uint thread)
    {
        if (!isUsed)
        {
            return null;
        }
        lock (slots)
        {
            return slots.TryGetValue(thread, out var slot) && slot.IsAlive ? slot : null;
        }
    }

    private static bool IsOperation(Span? span) =>
        span is { Name.Length: > 0 } && span.Method?.EndsWith(".Main", StringComparison.Ordinal) != true &&
        span.Method?.EndsWith("$", StringComparison.Ordinal) != true;

    // In the midst of the program, at each change of the flow.
    private static void OnChanged(AsyncLocalValueChangedArgs<SampledOperation?> change)
    {
        try
        {
            (ownSlot ??= NewSlot()).Operation = change.CurrentValue;
        }
        catch (Exception)
        {
            // Without memory the thread's samples have no operation.
        }
    }

    private static Slot NewSlot()
    {
        var slot = new Slot(Thread.CurrentThread);
        lock (slots)
        {
            if (slots.Count > 1000)
            {
                foreach (var old in new List<KeyValuePair<uint, Slot>>(slots))
                {
                    if (!old.Value.IsAlive)
                    {
                        slots.Remove(old.Key);
                    }
                }
            }
            slots[ThreadId()] = slot;
        }
        return slot;
    }

    // There is no sampler elsewhere, but for tests.
    internal static uint ThreadId() => RuntimeInformation.IsOSPlatform(OSPlatform.Windows)
        ? WindowsThreads.GetCurrentThreadId()
        : ElsewhereFrom + (uint)Environment.CurrentManagedThreadId;

    internal sealed class Slot
    {
        private readonly Thread thread;
        private volatile SampledOperation? operation;

        internal Slot(Thread thread) => this.thread = thread;

        // Its thread's id may be another one's by now.
        internal bool IsAlive => thread.IsAlive;

        internal SampledOperation? Operation
        {
            get => operation;
            set => operation = value;
        }
    }
}
