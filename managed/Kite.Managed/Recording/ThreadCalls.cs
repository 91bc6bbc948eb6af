using System.Collections.Generic;
using System.Text;
using Corvane.Instrumentation.Observing;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Recording;

// The calls of one thread. Their tree is written by the thread and read by whoever prints, both under the
// gate, and no code of the program runs under it. The rest is the thread's alone.
internal sealed class ThreadCalls
{
    // More calls than any stack holds: ends are missing, and what is oldest will not end any more.
    internal const int MaxOpen = 1 << 20;

    private static readonly MethodSignature none = MethodSignature.Of(0, null);

    private readonly List<OpenCall> open = new List<OpenCall>();

    // The call that the last operation ended for its note.
    private OpenCall? failed;

    // Observed calls and calls with spans of which no end was seen, innermost first; null if there are none.
    private List<OpenCall>? lost;

    internal object Gate { get; } = new object();

    // Stands for no call: its children are the thread's outermost ones.
    internal Call Root { get; } = new Call(none, "");

    // Threads are counted from 1 in the order of their first calls; 0 until then.
    internal int Number { get; set; }

    internal string? Name { get; set; }

    internal StringBuilder Text { get; } = new StringBuilder();

    internal Call Innermost => (open.Count == 0 ? null : open[open.Count - 1].Call) ?? Root;

    internal bool IsIdle => open.Count == 0;

    internal bool IsInnermostNoted => open.Count > 0 && open[open.Count - 1].Note != null;

    // A call that is not recorded is null, and is open all the same, so that its end is known from others.
    internal void Open(uint index, Call? call)
    {
        failed = null;
        if (open.Count == MaxOpen)
        {
            Lose(0, MaxOpen / 2);
        }
        open.Add(new OpenCall { Index = index, Call = call });
    }

    internal void Observe(ObservedCall[] observed)
    {
        var call = open[open.Count - 1];
        call.Observed = observed;
        open[open.Count - 1] = call;
    }

    internal List<OpenCall>? TakeLost()
    {
        var taken = lost;
        lost = null;
        return taken;
    }

    // The innermost call begins now.
    internal void Start(long now, in OpenSpan span)
    {
        var call = open[open.Count - 1];
        call.Started = now;
        call.Span = span;
        open[open.Count - 1] = call;
        call.Call?.Start(now);
    }

    // Takes the innermost open call of a method. What was opened in it never ends: its end was not seen. A call
    // that was just ended for its note is the one, if it is of that method: the note was of an exception that gave
    // way to another one, which the method then caught.
    internal bool Close(uint index, out OpenCall call)
    {
        var last = failed;
        failed = null;
        if (last is { } ended && ended.Index == index)
        {
            call = ended;
            return true;
        }
        for (var position = open.Count - 1; position >= 0; position--)
        {
            if (open[position].Index == index)
            {
                call = open[position];
                call.Note = null;
                Lose(position + 1, open.Count - position - 1);
                open.RemoveAt(position);
                return true;
            }
        }
        call = default;
        return false;
    }

    // Takes note of an exception at the innermost open call that has no note of this one: it may pass through
    // many calls before the first of them ends. How many it has passed is kept at the innermost one, for calls
    // come and go above that in the meantime.
    internal bool Note(object exception, out OpenCall call)
    {
        failed = null;
        var top = open.Count - 1;
        var position = top;
        while (position >= 0 && open[position].Note == exception)
        {
            position -= open[position].Noted;
        }
        if (position < 0)
        {
            call = default;
            return false;
        }
        var noted = call = open[position];
        noted.Note = exception;
        noted.Noted = 1;
        open[position] = noted;
        var innermost = open[top];
        innermost.Noted = top - position + 1;
        open[top] = innermost;
        return true;
    }

    // Takes the innermost open call if it has a note.
    internal bool CloseNoted(out OpenCall call)
    {
        var top = open.Count - 1;
        if (top < 0 || open[top].Note == null)
        {
            failed = null;
            call = default;
            return false;
        }
        call = open[top];
        open.RemoveAt(top);
        failed = new OpenCall
        {
            Index = call.Index, Call = call.Call, Span = call.Span, Started = call.Started, HasFailed = true,
        };
        return true;
    }

    private void Lose(int first, int count)
    {
        for (var position = first + count - 1; position >= first; position--)
        {
            if (open[position] is { Observed: not null } or { Span.Span: not null })
            {
                lost ??= new List<OpenCall>();
                lost.Add(open[position]);
            }
        }
        open.RemoveRange(first, count);
    }

    internal struct OpenCall
    {
        internal uint Index;
        internal Call? Call;
        internal ObservedCall[]? Observed;
        internal OpenSpan Span;
        internal long Started;  // in timestamps
        internal bool HasFailed; // it was ended as one that an exception left
        internal object? Note;  // the exception; kept no longer than the call is open
        internal int Noted;     // so many calls from this one outwards have the same note, as far as known
    }
}
