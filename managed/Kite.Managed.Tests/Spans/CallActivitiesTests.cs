// Calls as activities, as somebody who listens sees them: a listener of the platform's own, which is what
// OpenTelemetry is, too.
using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Net.Http;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;
using Kite.Managed.Tests.Conventions;
using Xunit;

namespace Kite.Managed.Tests.Spans;

[Collection(nameof(WholeProcess))]
public sealed class CallActivitiesTests : IDisposable
{
    private const string Ours = "Corvane.Instrumentation";

    private readonly ActivitySource program = new("Kite.Managed.Tests");
    private readonly ConcurrentQueue<Activity> stopped = new();
    private readonly List<ActivityListener> listeners = [];
    private readonly RecordedSpans spans = new();

    public void Dispose()
    {
        listeners.ForEach(listener => listener.Dispose());
        program.Dispose();
        Assert.Null(Activity.Current);
        Assert.Null(SpanFlow.Current);
    }

    // No sink of ours, but a program that records its own traces: what it calls is to record them, too.
    [Fact]
    public void WhatTheProgramRecordsIsSaidToBeSo()
    {
        using var activity = new Activity("of a call");
        activity.SetIdFormat(ActivityIdFormat.W3C);
        activity.ActivityTraceFlags = ActivityTraceFlags.Recorded;
        var message = new HttpRequestMessage(HttpMethod.Get, "http://localhost/");
        var span = KnownCall.NewSpan();
        span.IsSampled = false;
        span.Activity = activity;
        span.OwnsActivity = true;
        KnownCall.Convention(typeof(HttpClientHandler), "SendAsync")!.Begin(span, null, [message]);
        Assert.EndsWith("-01", Assert.Single(message.Headers.GetValues("traceparent")));
    }

    [Fact]
    public void ACallIsAnActivityWhereSomebodyListens()
    {
        spans.Call("Do", () => Assert.Null(Activity.Current));
        Listen(Ours);
        Assert.Equal(3, spans.Call("Add", [1, 2], () =>
        {
            Assert.Equal(Ours, Activity.Current?.Source.Name);
            return 3;
        }));
        var activity = Assert.Single(stopped);
        Assert.Equal("Kite.Managed.Tests.Spans.Work.Add", activity.OperationName);
        Assert.Equal(ActivityStatusCode.Unset, activity.Status);
        Assert.Equal([new("code.function.name", "Kite.Managed.Tests.Spans.Work.Add")], activity.TagObjects);
        AssertSame(spans.Only("Add"), activity);
        Assert.Equal(0ul, spans.Only("Add").ParentId);
    }

    [Fact]
    public void ActivitiesAreMadeWithoutAnySink()
    {
        var recorded = new RecordedSpans(hasSink: false);
        recorded.Call("Outer", () => { });
        Listen(Ours);
        recorded.Call("Outer", () => recorded.Call("Inner", () => { }));
        Assert.Equal(["Inner", "Outer"], stopped.Select(activity => activity.OperationName.Split('.').Last()));
        Assert.Same(stopped.Last(), stopped.First().Parent);
        Assert.Empty(recorded.Ended);
    }

    [Fact]
    public void TheProgramsActivitiesAreParentsAndChildren()
    {
        Listen(Ours, program.Name);
        using (var around = program.StartActivity("around"))
        {
            spans.Call("Outer", () =>
            {
                using var inside = program.StartActivity("inside")!;
                Assert.Equal(Ours, inside.Parent?.Source.Name);
                spans.Call("Inner", () => { });
                Assert.Same(inside, Activity.Current);
            });
            Assert.Same(around, Activity.Current);
        }
        Assert.Equal(["Inner", "inside", "Outer", "around"], stopped.Select(activity => activity.OperationName.Split('.').Last()));
        var all = stopped.ToArray();
        for (var position = 0; position < 3; position++)
        {
            Assert.Same(all[position + 1], all[position].Parent);
        }
        AssertSame(spans.Only("Inner"), all[0]);
        AssertSame(spans.Only("Outer"), all[2]);
    }

    // Nobody listens to ours.
    [Fact]
    public void TheProgramsActivitiesAreParentsOfSpans()
    {
        Listen(program.Name);
        using var around = program.StartActivity("around")!;
        spans.Call("Outer", () =>
        {
            spans.Call("Do", () => { });
            using var inside = program.StartActivity("inside")!;
            spans.Call("Inner", () => { });
            Assert.Equal(Number(inside.SpanId), spans.Only("Inner").ParentId);
            inside.Stop();
            spans.Call("Add", () => 0);
        });
        Assert.Equal(Number(around.SpanId), spans.Only("Outer").ParentId);
        spans.AssertParent("Outer", "Do");
        spans.AssertParent("Outer", "Add");
        Assert.All(spans.Ended, span => Assert.Equal(around.TraceId.ToHexString(), span.Trace.ToString()));
    }

    // What the program ends in a call was around the call.
    [Fact]
    public void AnActivityThatEndsInACallIsNoLongerAParent()
    {
        Listen(program.Name);
        using var outermost = program.StartActivity("outermost")!;
        using var around = program.StartActivity("around")!;
        spans.Call("Outer", () =>
        {
            around.Stop();
            Assert.Same(outermost, Activity.Current);
            spans.Call("Inner", () => { });
        });
        spans.AssertParent("Outer", "Inner");
    }

    [Fact]
    public void WhoBeginsToListenInACallSeesTheCallsInsideAsItsChildren()
    {
        spans.Call("Outer", () =>
        {
            Listen(Ours);
            spans.Call("Inner", () => spans.Call("Do", () => { }));
        });
        spans.AssertParent("Outer", "Inner");
        spans.AssertParent("Inner", "Do");
        Assert.Equal(2, stopped.Count);
        AssertSame(spans.Only("Inner"), stopped.Last());
        Assert.Equal(spans.Only("Outer").Id, Number(stopped.Last().ParentSpanId));
    }

    [Fact]
    public async Task AnActivityLastsAsLongAsTheTask()
    {
        Listen(Ours, program.Name);
        var source = new TaskCompletionSource();
        var task = spans.Call("Later", async () =>
        {
            spans.Call("Do", () => { });
            await source.Task;
            using var inside = program.StartActivity("inside");
            spans.Call("Inner", () => { });
            throw new FormatException();
        });
        Assert.Null(Activity.Current);
        Assert.Single(stopped);
        using (var other = program.StartActivity("other"))
        {
            source.SetResult();
            Assert.Same(other, Activity.Current);
        }
        await Assert.ThrowsAsync<FormatException>(() => task);
        spans.Wait(3);
        Assert.True(SpinWait.SpinUntil(() => stopped.Count == 5, TimeSpan.FromSeconds(30)));
        Assert.All(new[] { "Do", "Inner", "Later" }, name =>
            AssertSame(spans.Only(name), stopped.Single(activity => activity.OperationName.EndsWith("." + name, StringComparison.Ordinal))));
        spans.AssertParent("Later", "Do");
        var ended = stopped.Single(activity => activity.OperationName.EndsWith(".Later", StringComparison.Ordinal));
        Assert.Equal(ended.SpanId, stopped.Single(activity => activity.OperationName == "inside").ParentSpanId);
        Assert.Equal(ActivityStatusCode.Error, ended.Status);
        Assert.Equal("System.FormatException", ended.GetTagItem("error.type"));
    }

    [Fact]
    public void AnErrorIsDescribed()
    {
        var recorded = new RecordedSpans(RecordedValues.All);
        Listen(Ours);
        Assert.Throws<FormatException>(() => recorded.Call("Do", () => throw new FormatException("wrong")));
        var activity = Assert.Single(stopped);
        Assert.Equal((ActivityStatusCode.Error, "wrong"), (activity.Status, activity.StatusDescription));
        Assert.Equal("System.FormatException", activity.GetTagItem("error.type"));
        var happened = Assert.Single(activity.Events);
        Assert.Equal("exception", happened.Name);
        Assert.Equal([new("exception.type", "System.FormatException"), new("exception.message", "wrong")], happened.Tags);
    }

    [Fact]
    public void WhatAListenerDoesNotSampleIsASpanAllTheSame()
    {
        Listen(ActivitySamplingResult.None, Ours);
        spans.Call("Outer", () => spans.Call("Inner", () => Assert.Null(Activity.Current)));
        Assert.Empty(stopped);
        spans.AssertParent("Outer", "Inner");
    }

    // --- Programs that use the current activity wrongly

    // A method that begins an activity for its caller.
    [Fact]
    public void WhatAMethodLeavesAsCurrentStaysSo()
    {
        Listen(Ours, program.Name);
        using (var around = program.StartActivity("around"))
        {
            Activity? begun = null;
            spans.Call("Outer", () => begun = program.StartActivity("begun"));
            Assert.Same(begun, Activity.Current);
            spans.Call("Inner", () => { });
            Assert.Equal(Number(begun!.SpanId), spans.Only("Inner").ParentId);
            begun.Stop();
            // The platform makes current what was so when it began, which has ended since.
            spans.Call("Do", () => { });
            Assert.Equal(Number(around!.SpanId), spans.Only("Do").ParentId);
            Assert.Same(around, Activity.Current);
        }
    }

    [Fact]
    public void AMethodMayClearTheCurrentActivity()
    {
        Listen(Ours, program.Name);
        using var around = program.StartActivity("around");
        spans.Call("Outer", () =>
        {
            Activity.Current = null;
            spans.Call("Inner", () => { });
        });
        spans.AssertParent("Outer", "Inner");
        Assert.Null(Activity.Current);
    }

    [Fact]
    public void AnActivityThatIsNeverStoppedDoesNotConfuseTheSpans()
    {
        Listen(Ours, program.Name);
        spans.Call("Outer", () =>
        {
            program.StartActivity("forgotten");
            spans.Call("Inner", () => { });
        });
        Assert.Equal("forgotten", Activity.Current?.OperationName);
        Activity.Current = null;
        spans.Call("Do", () => { });
        Assert.Equal(0ul, spans.Only("Do").ParentId);
        Assert.NotEqual(spans.Only("Outer").Trace, spans.Only("Do").Trace);
    }

    [Fact]
    public void AnActivityOfTheOlderFormIsNoParent()
    {
        Listen(Ours);
        var older = new Activity("older").SetIdFormat(ActivityIdFormat.Hierarchical).Start();
        spans.Call("Outer", () => spans.Call("Inner", () => { }));
        Assert.Same(older, Activity.Current);
        older.Stop();
        spans.AssertParent("Outer", "Inner");
        Assert.Equal(0ul, spans.Only("Outer").ParentId);
        Assert.False(spans.Only("Outer").Trace.IsNone);
    }

    [Fact]
    public void AListenerThatThrowsIsCountedAndTheProgramGoesOn()
    {
        Listen(Ours);
        Listen(ActivitySamplingResult.AllData, [Ours], _ => throw new InvalidOperationException());
        Assert.Equal(5, spans.Call("Outer", () => spans.Call("Inner", () => 5)));
        spans.AssertParent("Outer", "Inner");
        Assert.Equal(4, spans.Recorder.Failures);
    }

    [Fact]
    public void WhatAListenerCallsIsNotRecorded()
    {
        Listen(ActivitySamplingResult.AllData, [Ours], _ => spans.Call("Inner", () => { }));
        spans.Call("Outer", () => { });
        Assert.Single(spans.Ended);
    }

    [Fact]
    public void ACallWhoseEndIsNotSeenIsStopped()
    {
        Listen(Ours);
        spans.Call("Outer", () => spans.Recorder.Enter(2, null, [], new InstrumentationDirectives()));
        Assert.Equal(["Inner", "Outer"], stopped.Select(activity => activity.OperationName.Split('.').Last()));
        Assert.Equal(true, stopped.First().GetTagItem("corvane.unfinished"));
    }

    [Fact]
    public void SixteenThreadsLoseNothing()
    {
        const int Threads = 16;
        const int Calls = 2000;
        Listen(Ours);
        var threads = Enumerable.Range(0, Threads).Select(_ => new Thread(() =>
        {
            for (var call = 0; call < Calls; call++)
            {
                spans.Call("Outer", () => spans.Call("Inner", () => { }));
            }
        })).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        Assert.Equal(2 * Threads * Calls, stopped.Count);
        Assert.Equal(
            stopped.Select(activity => (Number(activity.SpanId), Number(activity.ParentSpanId))).Order(),
            spans.Ended.Select(span => (span.Id, span.ParentId)).Order());
    }

    private static void AssertSame(Span span, Activity activity)
    {
        Assert.Equal(activity.TraceId.ToHexString(), span.Trace.ToString());
        Assert.Equal(activity.SpanId.ToHexString(), SpanId.Text(span.Id));
        Assert.Equal(Number(activity.ParentSpanId), span.ParentId);
    }

    private static ulong Number(ActivitySpanId id) =>
        ulong.Parse(id.ToHexString(), System.Globalization.NumberStyles.HexNumber, System.Globalization.CultureInfo.InvariantCulture);

    private void Listen(params string[] sources) => Listen(ActivitySamplingResult.AllDataAndRecorded, sources);

    private void Listen(ActivitySamplingResult result, params string[] sources) => Listen(result, sources, stopped.Enqueue);

    private void Listen(ActivitySamplingResult result, string[] sources, Action<Activity> told)
    {
        var listener = new ActivityListener
        {
            ShouldListenTo = source => sources.Contains(source.Name),
            Sample = (ref ActivityCreationOptions<ActivityContext> _) => result,
            ActivityStopped = told,
            ActivityStarted = activity =>
            {
                if (told != stopped.Enqueue)
                {
                    told(activity);
                }
            },
        };
        listeners.Add(listener);
        ActivitySource.AddActivityListener(listener);
    }
}
