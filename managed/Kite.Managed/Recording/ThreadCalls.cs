using System.Collections.Generic;
using System.Text;

namespace Corvane.Instrumentation.Recording;

// The calls of one thread. Their tree is written by the thread and read by whoever prints, both under the
// gate, and no code of the program runs under it. The rest is the thread's alone.
internal sealed class ThreadCalls
{
    // More calls than any stack holds: ends are missing, and what is oldest will not end any more.
    internal const int MaxOpen = 1 << 20;

    private static readonly MethodSignature none = MethodSignature.Of(0, null);

    private readonly List<KeyValuePair<uint, Call?>> open = new List<KeyValuePair<uint, Call?>>();

    internal object Gate { get; } = new object();

    // Stands for no call: its children are the thread's outermost ones.
    internal Call Root { get; } = new Call(none, "");

    // Threads are counted from 1 in the order of their first calls; 0 until then.
    internal int Number { get; set; }

    internal string? Name { get; set; }

    internal StringBuilder Text { get; } = new StringBuilder();

    internal Call Innermost => (open.Count == 0 ? null : open[open.Count - 1].Value) ?? Root;

    // A call that is not recorded is null, and is open all the same, so that its end is known from others.
    internal void Open(uint index, Call? call)
    {
        if (open.Count == MaxOpen)
        {
            open.RemoveRange(0, MaxOpen / 2);
        }
        open.Add(new KeyValuePair<uint, Call?>(index, call));
    }

    // Takes the innermost open call of a method. What was opened in it never ends: its end was not seen.
    internal bool Close(uint index, out Call? call)
    {
        for (var position = open.Count - 1; position >= 0; position--)
        {
            if (open[position].Key == index)
            {
                call = open[position].Value;
                open.RemoveRange(position, open.Count - position);
                return true;
            }
        }
        call = null;
        return false;
    }

    internal bool CloseInnermost(out Call? call)
    {
        call = null;
        return open.Count > 0 && Close(open[open.Count - 1].Key, out call);
    }
}
