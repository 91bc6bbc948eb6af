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

    // The innermost one is the last of so many. The objects are used again and again, and made when they are first needed.
    private OpenCall?[] open = new OpenCall?[16];
    private int count;

    // The call that the last operation ended for its note, if it did.
    private OpenCall failed = new OpenCall();
    private bool hasFailed;

    // Observed calls and calls with spans of which no end was seen, innermost first; null if there are none.
    private List<OpenCall>? lost;

    internal ThreadCalls(object? owner = null) => Owner = owner;

    // Which recorder they are of.
    internal object? Owner { get; }

    internal object Gate { get; } = new object();

    // Stands for no call: its children are the thread's outermost ones.
    internal Call Root { get; } = new Call(none, "");

    // Threads are counted from 1 in the order of their first calls; 0 until then.
    internal int Number { get; set; }

    internal string? Name { get; set; }

    internal StringBuilder Text { get; } = new StringBuilder();

    internal Call Innermost => (count == 0 ? null : open[count - 1]!.Call) ?? Root;

    internal bool IsIdle => count == 0;

    internal bool IsInnermostNoted => count > 0 && open[count - 1]!.Note != null;

    // Whether the end of a method's own code is to be told of.
    internal bool AwaitsFinish => hasFailed || IsInnermostNoted;

    internal bool HasLost => lost != null;

    // A call that is not recorded is null, and is open all the same, so that its end is known from others.
    internal OpenCall Open(uint index, Call? call, bool isSecret = false)
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
        var opened = open[count] ??= new OpenCall();
        opened.Clear(); // whoever took it last may have failed before that
        opened.Index = index;
        opened.Call = call;
        opened.IsSecret = isSecret;
        count++;
        return opened;
    }

    internal List<OpenCall> TakeLost()
    {
        var taken = lost!;
        lost = null;
        return taken;
    }

    // Takes the innermost open call of a method; null if there is none. What was opened in it never ends: its end was
    // not seen. A call that was just ended for its note is the one, if it is of that method: the note was of an exception
    // that gave way to another one, which the method then caught. Whoever takes a call clears it when it is told of.
    internal OpenCall? Close(uint index)
    {
        if (hasFailed)
        {
            hasFailed = false;
            if (failed.Index == index)
            {
                return failed;
            }
        }
        for (var position = count - 1; position >= 0; position--)
        {
            if (open[position]!.Index == index)
            {
                Lose(position + 1, count - position - 1);
                return open[--count];
            }
        }
        return null;
    }

    // Takes note of an exception at the innermost open call that has no note of this one, and shows it; null if there is
    // none. It may pass through many calls before the first of them ends. How many it has passed is kept at the innermost
    // one, for calls come and go above that in the meantime.
    internal OpenCall? Note(object exception)
    {
        hasFailed = false;
        var top = count - 1;
        var position = top;
        while (position >= 0 && open[position]!.Note == exception)
        {
            position -= open[position]!.Noted;
        }
        if (position < 0)
        {
            return null;
        }
        var noted = open[position]!;
        noted.Note = exception;
        noted.Noted = 1;
        open[top]!.Noted = top - position + 1;
        return noted;
    }

    // Takes the innermost open call if it has a note.
    internal OpenCall? CloseNoted()
    {
        hasFailed = IsInnermostNoted;
        if (!hasFailed)
        {
            return null;
        }
        var call = open[--count]!;
        failed.Clear();
        failed.Index = call.Index;
        failed.Call = call.Call;
        failed.Span.Span = call.Span.Span;
        failed.Started = call.Started;
        failed.HasFailed = true;
        return call;
    }

    private void Lose(int first, int many)
    {
        if (many == 0)
        {
            return;
        }
        for (var position = first + many - 1; position >= first; position--)
        {
            if (open[position]! is { Observed: not null } or { Span.Span: not null })
            {
                lost ??= new List<OpenCall>();
                lost.Add(open[position]!);
            }
        }
        Array.Copy(open, first + many, open, first, count - first - many);
        Array.Clear(open, count - many, many);
        count -= many;
    }

    internal sealed class OpenCall
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

        // It begins now.
        internal void Start(long now)
        {
            Started = now;
            Call?.Start(now);
            if (Span.Span != null)
            {
                Span.Span.Started = now;
            }
        }

        // Nothing that it had is kept alive.
        internal void Clear()
        {
            Call = null;
            Observed = null;
            Span = default;
            Started = 0;
            HasFailed = false;
            Note = null;
            Noted = 0;
        }
    }
}
