using System;
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

    // The innermost one is the last of so many.
    private OpenCall[] open = new OpenCall[16];
    private int count;

    // The call that the last operation ended for its note, if it did.
    private OpenCall failed;
    private bool hasFailed;

    // Observed calls and calls with spans of which no end was seen, innermost first; null if there are none.
    private List<OpenCall>? lost;

    internal object Gate { get; } = new object();

    // Stands for no call: its children are the thread's outermost ones.
    internal Call Root { get; } = new Call(none, "");

    // Threads are counted from 1 in the order of their first calls; 0 until then.
    internal int Number { get; set; }

    internal string? Name { get; set; }

    internal StringBuilder Text { get; } = new StringBuilder();

    internal Call Innermost => (count == 0 ? null : open[count - 1].Call) ?? Root;

    internal bool IsIdle => count == 0;

    internal bool IsInnermostNoted => count > 0 && open[count - 1].Note != null;

    // A call that is not recorded is null, and is open all the same, so that its end is known from others.
    internal void Open(uint index, Call? call, bool isSecret = false)
    {
        hasFailed = false;
        if (count == MaxOpen)
        {
            Lose(0, MaxOpen / 2);
        }
        if (count == open.Length)
        {
            Array.Resize(ref open, 2 * count);
        }
        ref var opened = ref open[count++];
        opened.Index = index;
        opened.Call = call;
        opened.IsSecret = isSecret;
    }

    internal void Observe(ObservedCall[] observed) => open[count - 1].Observed = observed;

    internal List<OpenCall>? TakeLost()
    {
        var taken = lost;
        lost = null;
        return taken;
    }

    // The innermost call begins now.
    internal void Start(long now, in OpenSpan span)
    {
        ref var call = ref open[count - 1];
        call.Started = now;
        call.Span = span;
        call.Call?.Start(now);
    }

    // Takes the innermost open call of a method. What was opened in it never ends: its end was not seen. A call
    // that was just ended for its note is the one, if it is of that method: the note was of an exception that gave
    // way to another one, which the method then caught.
    internal bool Close(uint index, out OpenCall call)
    {
        if (hasFailed)
        {
            hasFailed = false;
            if (failed.Index == index)
            {
                call = failed;
                return true;
            }
        }
        for (var position = count - 1; position >= 0; position--)
        {
            if (open[position].Index == index)
            {
                Lose(position + 1, count - position - 1);
                call = TakeInnermost();
                call.Note = null;
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
        hasFailed = false;
        var top = count - 1;
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
        ref var noted = ref open[position];
        call = noted;
        noted.Note = exception;
        noted.Noted = 1;
        open[top].Noted = top - position + 1;
        return true;
    }

    // Takes the innermost open call if it has a note.
    internal bool CloseNoted(out OpenCall call)
    {
        if (!IsInnermostNoted)
        {
            hasFailed = false;
            call = default;
            return false;
        }
        call = TakeInnermost();
        failed = new OpenCall
        {
            Index = call.Index, Call = call.Call, Span = new OpenSpan { Span = call.Span.Span }, Started = call.Started, HasFailed = true,
        };
        hasFailed = true;
        return true;
    }

    // Nothing that it had is kept alive.
    private OpenCall TakeInnermost()
    {
        var call = open[--count];
        open[count] = default;
        return call;
    }

    private void Lose(int first, int many)
    {
        for (var position = first + many - 1; position >= first; position--)
        {
            if (open[position] is { Observed: not null } or { Span.Span: not null })
            {
                lost ??= new List<OpenCall>();
                lost.Add(open[position]);
            }
        }
        Array.Copy(open, first + many, open, first, count - first - many);
        Array.Clear(open, count - many, many);
        count -= many;
    }

    internal struct OpenCall
    {
        internal uint Index;
        internal Call? Call;
        internal ObservedCall[]? Observed;
        internal OpenSpan Span;
        internal long Started;  // in timestamps
        internal bool IsSecret; // a text that the call got names a secret
        internal bool HasFailed; // it was ended as one that an exception left
        internal object? Note;  // the exception; kept no longer than the call is open
        internal int Noted;     // so many calls from this one outwards have the same note, as far as known
    }
}
