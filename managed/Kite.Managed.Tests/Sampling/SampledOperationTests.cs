using System;
using System.IO;
using System.Linq;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation.Spans;
using Corvane.Sampling;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class SampledOperationTests
{
    private readonly FakeProcess process = new();

    private static string? Here => SampledOperation.SlotOf(SampledOperation.ThreadId())?.Operation?.Name;

    private static Span Span(string name) => new(default, 1, 0, name, name, Corvane.Instrumentation.Spans.Span.CallScope);

    // As the sampler sees it: on the thread where the flow is at the moment.
    [Fact]
    public async Task ARegionFollowsTheFlow()
    {
        using var sampler = process.NewSampler();
        Assert.Null(Here);
        using (sampler.Region("import"))
        {
            Assert.Equal("import", Here);
            await Task.Yield();
            Assert.Equal("import", Here);
            Assert.Equal("import", await Task.Run(() => Here));
            using (sampler.Region("parse"))
            {
                await Task.Delay(1);
                Assert.Equal("parse", Here);
            }
            Assert.Equal("import", Here);
            var thread = new Thread(() => Assert.Equal("import", Here));
            thread.Start();
            thread.Join();
        }
        Assert.Null(Here);
        await Task.Yield();
        Assert.Null(Here);
    }

    [Fact]
    public void ARegionThatIsLeftOpenEndsWithTheOneAroundIt()
    {
        using var sampler = process.NewSampler();
        var outer = sampler.Region("outer");
        var inner = sampler.Region("inner");
        outer.Dispose();
        Assert.Null(Here);
        inner.Dispose();
        outer.Dispose();
        Assert.Null(Here);
        Assert.Throws<ArgumentNullException>(() => sampler.Region(null!));
    }

    [Fact]
    public void SamplesSayTheirRegionAndHaveItAsALevel()
    {
        using var sampler = process.NewSampler();
        using var inside = new ManualResetEventSlim();
        using var leave = new ManualResetEventSlim();
        var id = 0U;
        var worker = new Thread(() =>
        {
            id = SampledOperation.ThreadId();
            using (sampler.Region("import"))
            using (sampler.Region("parse"))
            {
                inside.Set();
                leave.Wait();
            }
        });
        worker.Start();
        inside.Wait();
        process.Add(id, "worker", 2, 1);
        process.Add(10, "other", 1);
        sampler.Start();
        process.WaitForRounds();
        var profile = sampler.Stop();
        leave.Set();
        worker.Join();
        Assert.Equal(["parse", null], profile.Threads.Select(thread => thread.Samples[0].Operation));
        using var folded = new StringWriter { NewLine = "\n" };
        profile.WriteFolded(folded);
        var count = profile.Threads[0].Samples.Count;
        Assert.StartsWith($"import;parse;Type.F1;Type.F2 {count}\nother;Type.F1 ", folded.ToString());
        using var speedscope = new StringWriter();
        profile.WriteSpeedscope(speedscope, "all");
        Assert.Contains("""{"frames":[{"name":"parse"},{"name":"Type.F1"},{"name":"Type.F2"}]}""", speedscope.ToString());
    }

    // The id of a thread that ended may be another one's.
    [Fact]
    public void AThreadThatEndedHasNone()
    {
        using var sampler = process.NewSampler();
        var id = 0U;
        var worker = new Thread(() =>
        {
            id = SampledOperation.ThreadId();
            sampler.Region("never left");
        });
        worker.Start();
        worker.Join();
        Assert.Null(SampledOperation.SlotOf(id));
        GC.KeepAlive(worker); // until then its id is no other one's
    }

    [Fact]
    public void TheOutermostSpanIsTheOperation()
    {
        var outer = Span("Shop.Order");
        SampledOperation.Follow(null, outer);
        Assert.Equal("Shop.Order", Here);
        SampledOperation.Follow(outer, Span("Shop.Price"));
        Assert.Equal("Shop.Order", Here);
        SampledOperation.Follow(outer, null);
        Assert.Null(Here);
    }

    [Fact]
    public void TheProgramAsAWholeIsNone()
    {
        foreach (var entry in new[] { Span("Program.Main"), Span("Program.<Main>$") })
        {
            SampledOperation.Follow(null, entry);
            Assert.Null(Here);
            SampledOperation.Follow(entry, Span("Shop.Order"));
            Assert.Equal("Shop.Order", Here);
            SampledOperation.Follow(Span("Shop.Order"), entry);
            Assert.Null(Here);
        }
    }

    [Fact]
    public void ARequestTakesThePlaceOfASpan()
    {
        SampledOperation.Follow(null, Span("Shop.Order"));
        var request = SampledOperation.Enter("GET");
        SampledOperation.Follow(null, Span("Shop.Price"));
        Assert.Same(request, SampledOperation.Current);
        Assert.Null(request.Around);
        request.Name = "GET /slow";
        Assert.Equal("GET /slow", Here);
        request.Leave();
        Assert.Null(Here);
    }

    // Of many threads that come and go those that are gone are forgotten.
    [Fact]
    public void ManyThreadsMayHaveOne()
    {
        using var sampler = process.NewSampler();
        for (var round = 0; round < 30; round++)
        {
            var threads = Enumerable.Range(0, 50).Select(_ => new Thread(() => sampler.Region("short"))).ToList();
            threads.ForEach(thread => thread.Start());
            threads.ForEach(thread => thread.Join());
        }
        using (sampler.Region("still"))
        {
            Assert.Equal("still", Here);
        }
    }
}
