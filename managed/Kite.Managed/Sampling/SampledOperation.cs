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

    // Further in one takes the place of another: regions may be left open in a loop.
    private const int MostLevels = 100;

    private static readonly AsyncLocal<SampledOperation?> current = new AsyncLocal<SampledOperation?>(OnChanged);
    private static readonly Dictionary<uint, Slot> slots = new Dictionary<uint, Slot>();

    [ThreadStatic]
    private static Slot? ownSlot;

    private static volatile bool isUsed;
    private static int samplers;

    private readonly Span? span;
    private readonly bool isFollowed;
    private readonly int level;
    private volatile string name;
    private volatile bool hasLeft;

    // That of a span ends with the span, if not before.
    private SampledOperation(string name, SampledOperation? around, Span? span = null, bool isFollowed = false)
    {
        this.name = name;
        this.span = span;
        this.isFollowed = isFollowed;
        Around = around is { level: MostLevels } ? around.Around : around;
        level = Around == null ? 1 : Around.level + 1;
    }

    // Whether spans are operations: while somebody samples.
    internal static bool IsWanted => Volatile.Read(ref samplers) > 0;

    internal static SampledOperation? Current => NotEnded(current.Value);

    // A request gets its route when it ends.
    internal string Name => name;

    internal SampledOperation? Around { get; }

    // The names from the outermost one on.
    internal IReadOnlyCollection<string> Path
    {
        get
        {
            var names = new Stack<string>();
            for (var operation = this; operation != null; operation = operation.Around)
            {
                names.Push(operation.Name);
            }
            return names;
        }
    }

    // With all that are around it.
    internal bool IsOver => HasEnded && Around is null or { IsOver: true };

    private bool HasEnded => hasLeft || span is { Ended: not 0 };

    internal static void BeginToSample() => Interlocked.Increment(ref samplers);

    internal static void EndToSample() => Interlocked.Decrement(ref samplers);

    // What the program names itself is inside of whatever it is in.
    internal static SampledOperation Enter(string name) =>
        Enter(new SampledOperation(name.Length == 0 ? SampledFunction.NoName : name, Current));

    // A request takes the place of the span that the server was started in.
    internal static SampledOperation EnterRequest(Span request, string name)
    {
        var around = Current;
        while (around is { isFollowed: true })
        {
            around = NotEnded(around.Around);
        }
        return Enter(new SampledOperation(name, around, request));
    }

    internal static void LeaveRequest(Span request)
    {
        if (InFlow(operation => operation.span == request) is { } operation)
        {
            operation.name = request.Name;
            operation.Leave();
        }
    }

    // Whatever began inside of it ends with it.
    internal void Leave()
    {
        hasLeft = true;
        if (InFlow(operation => operation == this) != null)
        {
            current.Value = Around;
        }
    }

    // The outermost span is an operation, unless it is part of a request. The whole program is none.
    internal static void Follow(Span? before, Span? now)
    {
        if (!IsOperation(now))
        {
            if (InFlow(operation => operation.isFollowed) is { } left)
            {
                current.Value = left.Around;
            }
        }
        else if (!IsOperation(before) && InFlow(operation => operation.span != null && !operation.HasEnded) == null)
        {
            Enter(new SampledOperation(now!.Name, Current, now, isFollowed: true));
        }
    }

    private static SampledOperation Enter(SampledOperation operation)
    {
        isUsed = true;
        current.Value = operation;
        return operation;
    }

    private static SampledOperation? InFlow(Predicate<SampledOperation> isMeant)
    {
        var operation = current.Value;
        while (operation != null && !isMeant(operation))
        {
            operation = operation.Around;
        }
        return operation;
    }

    // One that has ended lives on in the flows that began in it, such as that of a timer.
    private static SampledOperation? NotEnded(SampledOperation? operation)
    {
        while (operation is { HasEnded: true })
        {
            operation = operation.Around;
        }
        return operation;
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
            get => NotEnded(operation);
            set => operation = value;
        }
    }
}
