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
        Assert.StartsWith($"[import];[parse];Type.F1;Type.F2 {count}\nother;Type.F1 ", folded.ToString());
        using var speedscope = new StringWriter();
        profile.WriteSpeedscope(speedscope, "all");
        Assert.Contains("""{"frames":[{"name":"[import]"},{"name":"[parse]"},{"name":"Type.F1"},{"name":"Type.F2"}]}""", speedscope.ToString());
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
        SampledOperation.Follow(null, Span("Shop.Serve"));
        var span = Span("activity");
        var request = SampledOperation.EnterRequest(span, "GET");
        SampledOperation.Follow(null, Span("Shop.Price"));
        Assert.Same(request, SampledOperation.Current);
        Assert.Null(request.Around);
        Assert.Equal("GET", Here);
        using (process.NewSampler().Region("import"))
        {
            span.Name = "GET /slow";
            SampledOperation.LeaveRequest(span);
            Assert.Null(Here);
        }
        Assert.Equal("GET /slow", request.Name);
        Assert.Null(Here);
    }

    [Fact]
    public void ARegionIsInsideOfTheSpanThatItIsIn()
    {
        using var sampler = process.NewSampler();
        var order = Span("Shop.Order");
        SampledOperation.Follow(null, order);
        var region = sampler.Region("import");
        Assert.Equal(["Shop.Order", "import"], SampledOperation.Current!.Path);
        region.Dispose();
        Assert.Equal(["Shop.Order"], SampledOperation.Current!.Path);
        SampledOperation.Follow(order, null);
        Assert.Null(Here);
    }

    [Fact]
    public void ASpanIsInsideOfTheRegionThatItIsIn()
    {
        using var sampler = process.NewSampler();
        using (sampler.Region("run"))
        {
            var order = Span("Shop.Order");
            SampledOperation.Follow(null, order);
            using (sampler.Region("import"))
            {
                SampledOperation.Follow(order, Span("Shop.Price"));
                Assert.Equal(["run", "Shop.Order", "import"], SampledOperation.Current!.Path);
            }
            SampledOperation.Follow(order, null);
            Assert.Equal("run", Here);
        }
    }

    // Whatever is left behind by an operation, such as a timer, goes on without it.
    [Fact]
    public void OneThatHasEndedIsNotThatOfTheFlowsItLeftBehind()
    {
        using var sampler = process.NewSampler();
        var order = Span("Shop.Order");
        SampledOperation.Follow(null, order);
        var ofSpan = ExecutionContext.Capture()!;
        var region = sampler.Region("import");
        var ofRegion = ExecutionContext.Capture()!;
        ExecutionContext.Run(ofRegion, _ => Assert.Equal("import", Here), null);
        region.Dispose();
        ExecutionContext.Run(ofRegion, _ => Assert.Equal("Shop.Order", Here), null);
        order.Ended = 1;
        ExecutionContext.Run(ofRegion, _ => Assert.Null(Here), null);
        ExecutionContext.Run(ofSpan, _ =>
        {
            Assert.Null(Here);
            Assert.Null(SampledOperation.Current);
            Assert.Null(SampledOperation.Enter("later").Around);
        }, null);
        SampledOperation.Follow(order, null);
    }

    // Whoever starts it.
    [Fact]
    public void SpansAreOperationsWhileSomebodySamples()
    {
        using var sampler = process.NewSampler();
        sampler.Start();
        var before = SpanFlow.Current;
        SpanFlow.Current = Span("Shop.Order");
        Assert.Equal("Shop.Order", Here);
        SpanFlow.Current = before;
        Assert.Null(Here);
    }

    [Fact]
    public void RegionsThatAreLeftOpenAreNotEndlesslyDeep()
    {
        using var sampler = process.NewSampler();
        var first = sampler.Region("first");
        for (var i = 0; i < 100_000; i++)
        {
            sampler.Region($"{i}");
        }
        Assert.Equal("99999", Here);
        Assert.Equal(["first", "0"], SampledOperation.Current!.Path.Take(2));
        Assert.Equal(100, SampledOperation.Current!.Path.Count);
        first.Dispose();
        Assert.Null(Here);
    }

    [Fact]
    public void NobodyPaysForOperationsWhenAllSamplersHaveEnded() =>
        Assert.Equal(["out", "False", "True", "True", "True", "False"], ChildProgram.Run(["two samplers"]).Output);

    [Fact]
    public void ANameThatIsEmptyIsShown()
    {
        using var sampler = process.NewSampler();
        using (sampler.Region(""))
        {
            Assert.Equal("(no name)", Here);
        }
    }

    private static SampledOperation[] Operations(params string[] names) => [.. names.Select(SampledOperation.Enter)];

    // Regions within each other, one of them with the name of a thread.
    [Fact]
    public void EachFormatHasAllLevels()
    {
        var operations = Operations("main", "parse");
        operations[0].Leave();
        var again = Operations("main", "parse");
        again[0].Leave();
        var profile = new Profiles().Thread(1, "main", "A", "A|B").Thread(2, "[main]", "A").ToProfile();
        var samples = profile.Threads[0].Samples;
        profile = new Profile(profile.Interval, [
            .. profile.Threads,
            new ThreadProfile(new SampledThread(3, "t"), [
                new Sample(0, samples[0].Stack, operation: operations[0]), new Sample(1, samples[1].Stack, operation: operations[1]),
                new Sample(2, samples[1].Stack, operation: again[1]),
            ]),
        ], new SamplingCost(), null);
        using var folded = new StringWriter { NewLine = "\n" };
        profile.WriteFolded(folded);
        Assert.Equal("(main];A 1\n[main];A 1\n[main];[parse];A;B 2\nmain;A 1\nmain;A;B 1\n", Sorted(folded.ToString()));
        using var speedscope = new StringWriter();
        profile.WriteSpeedscope(speedscope, "all");
        Assert.Contains("""{"name":"[main]"},{"name":"[parse]"}""", speedscope.ToString());
        Assert.Contains("[[2,0],[2,3,0,1],[2,3,0,1]]", speedscope.ToString());
        using var drawing = new StringWriter();
        profile.WriteFlameGraph(drawing, "all");
        Assert.Equal(2, drawing.ToString()[..drawing.ToString().IndexOf("timeline", StringComparison.Ordinal)].Split("<title>main\n").Length - 1);
        using var folder = new TemporaryFolder();
        using (var pprof = File.Create(folder["pprof.pb.gz"]))
        {
            profile.WritePprof(pprof);
        }
        var labels = Assert.Single(Export.Spans.RunReader("pprof.js", folder["pprof.pb.gz"])).GetProperty("samples").EnumerateArray()
            .Select(sample => string.Join(" ", sample.GetProperty("labels").EnumerateArray()));
        Assert.Equal(["thread=main", "thread=main", "thread=[main]", "thread=t operation=main", "thread=t operation=main operation=parse"], labels);

        // What was written can be compared.
        using var difference = new StringWriter();
        profile.WriteDifference(difference, "all", new StringReader(folded.ToString()));
        Assert.Contains("<title>parse\n", difference.ToString());
        Assert.DoesNotContain("hsl(6", difference.ToString());
    }

    private static string Sorted(string lines) => string.Concat(
        lines.TrimEnd('\n').Split('\n').Order(StringComparer.Ordinal).Select(line => line + "\n"));

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
