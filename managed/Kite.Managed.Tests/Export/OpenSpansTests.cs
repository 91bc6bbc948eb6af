// What somebody sees of a thread's open spans while the thread goes on.
using System.Linq;
using System.Threading;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class OpenSpansTests
{
    private const int Rounds = 20_000;

    private static readonly Span ended = Spans.Of(1);

    static OpenSpansTests() => ended.IsQueued = true;

    // It moves within the list when room is made for others, several times.
    [Fact]
    public void ASpanIsSeenOnceWheneverSomebodyLooks()
    {
        OpenSpans? shown = null;
        var isOver = false;
        var (looks, wrong) = (0, 0);
        var looking = new Thread(() =>
        {
            while (!Volatile.Read(ref isOver))
            {
                if (Volatile.Read(ref shown)?.Spans().Count(span => span.Id == 2) is { } count)
                {
                    looks++;
                    wrong += count == 1 ? 0 : 1;
                }
            }
        });
        looking.Start();
        for (var round = 0; round < Rounds || Volatile.Read(ref looks) < Rounds; round++)
        {
            var open = new OpenSpans();
            var others = Enumerable.Range(0, 12).Select(_ => Spans.Of(3)).ToArray();
            foreach (var other in others)
            {
                open.Add(other);
            }
            open.Add(Spans.Of(2));
            Volatile.Write(ref shown, open);
            foreach (var other in others)
            {
                other.IsQueued = true;
                for (var count = 0; count < 16; count++)
                {
                    open.Add(ended);
                }
            }
        }
        Volatile.Write(ref isOver, true);
        looking.Join();
        Assert.Equal(0, wrong);
    }
}
