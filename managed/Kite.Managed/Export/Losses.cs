using System;
using System.Globalization;
using System.Threading;
using Corvane.Instrumentation.Recording;

namespace Corvane.Instrumentation.Export;

// The spans that did not get to where they belong, and why. The first loss is said when it happens, for nobody knows how
// the process will end; the sum is for its end, if there were more. Any thread.
internal sealed class Losses
{
    private readonly object gate = new object();
    private readonly string where;
    private long said;
    private long spans;
    private string why = "";

    // where: as in "not written to x".
    internal Losses(string where) => this.where = where;

    internal long Spans
    {
        get
        {
            lock (gate)
            {
                return spans;
            }
        }
    }

    internal void Add(long count, Exception exception) => Add(count, exception.Message);

    internal void Add(long count, string reason)
    {
        if (Count(count, reason))
        {
            Say(count, reason);
        }
    }

    // Whether it is the first loss, and to be said. Until it has been, the end says it.
    internal bool Count(long count, string reason)
    {
        lock (gate)
        {
            var isFirst = spans == 0;
            spans += count;
            why = reason;
            return isFirst;
        }
    }

    internal void Say(long count, string reason)
    {
        Complaint.Write(First(count, reason));
        lock (gate)
        {
            said += count;
        }
    }

    // Null if nothing was lost that was not said.
    internal string? AtEnd()
    {
        lock (gate)
        {
            return spans == said ? null : $"{Number(spans)} {where} ({Brief(why)})";
        }
    }

    private string First(long count, string reason) =>
        $"spans are {where}: {Brief(reason)}{(count > 0 ? $" ({Number(count)} so far)" : "")}";

    private static string Brief(string reason) => reason.TrimEnd('.');

    private static string Number(long number) => number.ToString(CultureInfo.InvariantCulture);
}
