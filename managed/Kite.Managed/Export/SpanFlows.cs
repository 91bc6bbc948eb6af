using System;
using System.Collections.Generic;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// Finds the parents and children that are on different threads. Usually the child ends first. Only so many spans are
// remembered.
internal sealed class SpanFlows
{
    private const int Most = 8192;
    private static readonly List<Flow> none = new List<Flow>();

    private readonly Dictionary<ulong, Slice> ended = new Dictionary<ulong, Slice>();
    private readonly Dictionary<ulong, List<Slice>> waiting = new Dictionary<ulong, List<Slice>>();
    private readonly Queue<ulong> endedInOrder = new Queue<ulong>();
    private readonly Queue<ulong> waitingInOrder = new Queue<ulong>();

    // What is known with this span and was not before.
    internal List<Flow> Add(in SpanRecord span, long end)
    {
        var slice = new Slice(span.Id, span.ThreadId, span.Started, end);
        var found = none;
        if (waiting.TryGetValue(span.Id, out var children))
        {
            waiting.Remove(span.Id);
            foreach (var child in children)
            {
                Connect(slice, child, ref found);
            }
        }
        if (span.ParentId != 0)
        {
            if (ended.TryGetValue(span.ParentId, out var parent))
            {
                Connect(parent, slice, ref found);
            }
            else
            {
                Wait(span.ParentId, slice);
            }
        }
        Remember(slice);
        return found;
    }

    private static void Connect(Slice parent, Slice child, ref List<Flow> found)
    {
        if (parent.Thread != child.Thread)
        {
            found = found == none ? new List<Flow>() : found;
            // The arrow begins within the parent, although the child may begin after its end.
            var from = Math.Max(parent.Started, Math.Min(child.Started, parent.Ended));
            found.Add(new Flow(child.Id, parent.Thread, from, child.Thread, child.Started));
        }
    }

    private void Wait(ulong parent, Slice child)
    {
        if (!waiting.TryGetValue(parent, out var children))
        {
            waiting.Add(parent, children = new List<Slice>(1));
        }
        if (children.Count < Most)
        {
            children.Add(child);
        }
        waitingInOrder.Enqueue(parent);
        if (waitingInOrder.Count > Most)
        {
            waiting.Remove(waitingInOrder.Dequeue());
        }
    }

    private void Remember(Slice slice)
    {
        if (!ended.ContainsKey(slice.Id))
        {
            endedInOrder.Enqueue(slice.Id);
        }
        ended[slice.Id] = slice;
        if (endedInOrder.Count > Most)
        {
            ended.Remove(endedInOrder.Dequeue());
        }
    }

    internal readonly struct Flow
    {
        internal Flow(ulong id, int fromThread, long from, int toThread, long to)
        {
            Id = id;
            FromThread = fromThread;
            From = from;
            ToThread = toThread;
            To = to;
        }

        internal ulong Id { get; }

        internal int FromThread { get; }

        internal long From { get; }

        internal int ToThread { get; }

        internal long To { get; }
    }

    private readonly struct Slice
    {
        internal Slice(ulong id, int thread, long started, long ended)
        {
            Id = id;
            Thread = thread;
            Started = started;
            Ended = ended;
        }

        internal ulong Id { get; }

        internal int Thread { get; }

        internal long Started { get; }

        internal long Ended { get; }
    }
}
