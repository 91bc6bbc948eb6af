// Activities of other sources as spans, among the spans of calls.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Net.Http;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;
using Kite.Managed.Tests.Export;
using Xunit;

namespace Kite.Managed.Tests.Spans;

[Collection(nameof(WholeProcess))]
public sealed class ActivitySpansTests : IDisposable
{
    private readonly ActivitySource program = new("Kite.Managed.Tests");
    private readonly RecordedSpans spans = new();
    private readonly List<IDisposable> listening = [];

    public void Dispose()
    {
        listening.ForEach(one => one.Dispose());
        program.Dispose();
        Assert.Null(Activity.Current);
        Assert.Null(SpanFlow.Current);
        Assert.Null(Activity.TraceIdGenerator);
    }

    [Fact]
    public void AnActivityIsASpan()
    {
        Listen();
        using (var activity = program.StartActivity("work", ActivityKind.Client)!)
        {
            activity.DisplayName = "GET";
            activity.SetTag("http.request.method", "GET").SetTag("customer.name", "planted").SetTag("server.port", 80);
            activity.SetStatus(ActivityStatusCode.Error, "planted").SetTag("error.type", "timeout");
            Thread.Sleep(5);
        }
        var span = Assert.Single(spans.Ended);
        Assert.Equal(("GET", SpanKind.Client, "Kite.Managed.Tests", null), (span.Name, span.Kind, span.Scope, span.Method));
        Assert.Equal(
            [new("http.request.method", "GET"), new("server.port", 80L), new KeyValuePair<string, object>("error.type", "timeout")], span.Attributes);
        Assert.Equal((true, "timeout", null), (span.HasError, span.ErrorType, span.ErrorMessage));
        Assert.True(Stopwatch.GetElapsedTime(span.Started, span.Ended) >= TimeSpan.FromMilliseconds(5));
        Assert.Equal(Environment.CurrentManagedThreadId, span.ThreadId);
    }

    // The one for people goes first; a program may set it before the activity starts or while it goes on.
    [Theory]
    [InlineData(null, null, "work")]
    [InlineData("early", null, "early")]
    [InlineData(null, "late", "late")]
    [InlineData("early", "late", "late")]
    public void ASpanHasTheNameOfItsActivity(string? early, string? late, string expected)
    {
        Listen();
        using (var activity = program.CreateActivity("work", ActivityKind.Producer)!)
        {
            activity.DisplayName = early ?? activity.DisplayName;
            activity.Start();
            activity.DisplayName = late ?? activity.DisplayName;
        }
        Assert.Equal(expected, Assert.Single(spans.Ended).Name);
    }

    // Whoever writes the files of a process that ends sees the first name.
    [Fact]
    public void ASpansNameHasNoValues()
    {
        Listen();
        using (var activity = program.CreateActivity("work", ActivityKind.Server)!)
        {
            activity.DisplayName = "GET /first?token=planted";
            activity.Start();
            Assert.Equal("GET /first?token=***", ActivitySpans.Of(activity)!.Name);
            activity.DisplayName = "/login?token=planted";
        }
        Assert.Equal("/login?token=***", Assert.Single(spans.Ended).Name);
    }

    [Fact]
    public void ARequestIsNamedByWhatThePlatformSays()
    {
        Listen("Shop");
        using var platform = new ActivitySource("Microsoft.AspNetCore");
        using var events = new DiagnosticListener("Microsoft.AspNetCore");
        using (var activity = platform.StartActivity("Microsoft.AspNetCore.Hosting.HttpRequestIn", ActivityKind.Server)!)
        {
            activity.DisplayName = "/login/planted";
            events.Write(
                "Microsoft.AspNetCore.Hosting.HttpRequestIn.Stop",
                new { Request = new { Method = "GET", Path = "/login/planted" }, Response = new { StatusCode = 200 } });
        }
        Assert.Equal("GET", Assert.Single(spans.Ended).Name);
    }

    [Theory]
    [InlineData("ERROR", true)]
    [InlineData("OK", false)]
    public void AStatusMayBeATag(string status, bool isError)
    {
        var recorded = new RecordedSpans();
        Listen(recorded, RecordedValues.All);
        program.StartActivity("work")!.SetTag("otel.status_code", status).SetTag("otel.status_description", "no password=planted").Dispose();
        var span = Assert.Single(recorded.Ended);
        Assert.Equal((isError, isError ? "no password=***" : null), (span.HasError, span.ErrorMessage));
    }

    [Theory]
    [InlineData("redis", null)]
    [InlineData("mysql", "SET session:? planted")]
    public void AnActivitySaysWhichDatabaseItIsAbout(string system, string? query)
    {
        Listen();
        program.StartActivity("work")!.SetTag("db.statement", "SET session:42 planted").SetTag("db.system", system).Dispose();
        Assert.Equal(query, Value(Assert.Single(spans.Ended), "db.statement"));
    }

    [Fact]
    public void ActivitiesOfOtherSourcesAreNone()
    {
        Listen("Another");
        Assert.Null(program.StartActivity("work"));
        spans.Call("Do", () => { });
        Assert.Single(spans.Ended);
    }

    [Fact]
    public void ActivitiesAndCallsAreInOneTree()
    {
        Listen();
        using (var around = program.StartActivity("around"))
        {
            spans.Call("Outer", () =>
            {
                using var inside = program.StartActivity("inside")!;
                Assert.Same(around, inside.Parent);
                spans.Call("Inner", () => program.StartActivity("innermost")!.Stop());
            });
        }
        AssertChain("around", "Outer", "inside", "Inner", "innermost");
    }

    [Fact]
    public void ACallThatIsATraceOfItsOwnGivesItsTraceToActivities()
    {
        Listen();
        spans.Call("Outer", () => spans.Call("Inner", () => program.StartActivity("inside")!.Stop()));
        AssertChain("Outer", "Inner", "inside");
        Assert.Equal(0ul, spans.Ended.Single(span => span.Name.EndsWith("Outer", StringComparison.Ordinal)).ParentId);
    }

    [Fact]
    public void AnActivityWithAGivenParentKeepsIt()
    {
        Listen();
        var given = new ActivityContext(ActivityTraceId.CreateRandom(), ActivitySpanId.CreateRandom(), ActivityTraceFlags.Recorded, isRemote: true);
        spans.Call("Outer", () => program.StartActivity("inside", ActivityKind.Server, given)!.Stop());
        var inside = spans.Ended.Single(span => span.Name == "inside");
        Assert.Equal((given.TraceId.ToHexString(), given.SpanId.ToHexString()), (inside.Trace.ToString(), SpanId.Text(inside.ParentId)));
        Assert.NotEqual(inside.Trace, spans.Only("Outer").Trace);
    }

    [Fact]
    public void TheProgramsOwnGeneratorOfIdsStays()
    {
        var trace = ActivityTraceId.CreateRandom();
        Func<ActivityTraceId> own = () => trace;
        Activity.TraceIdGenerator = own;
        try
        {
            Listen();
            Assert.Same(own, Activity.TraceIdGenerator);
            spans.Call("Outer", () => program.StartActivity("inside")!.Stop());
            listening.ForEach(one => one.Dispose());
            Assert.Same(own, Activity.TraceIdGenerator);
        }
        finally
        {
            Activity.TraceIdGenerator = null;
        }
        Assert.Equal(0ul, spans.Ended.Single(span => span.Name == "inside").ParentId);
    }

    // A program may make activities by itself, which nobody is asked about. What comes from elsewhere was decided there.
    [Theory]
    [InlineData(null, true)]
    [InlineData("00-0102030405060708090a0b0c0d0e0f10-3333333333333333-00", false)]
    [InlineData("00-0102030405060708090a0b0c0d0e0f10-3333333333333333-01", true)]
    public void AnActivityThatNobodyWasAskedAboutDecidesNothing(string? parent, bool expected)
    {
        var recorded = new RecordedSpans(sampler: (_, parentIsSampled) => parentIsSampled ?? true);
        using (var around = new Activity("of the program"))
        {
            around.SetIdFormat(ActivityIdFormat.W3C);
            if (parent != null)
            {
                around.SetParentId(parent);
            }
            around.Start();
            recorded.Call("Outer", () => { });
            Listen(recorded);
            using var inner = new Activity("inside").Start();
            recorded.Call("Do", () => { });
            program.StartActivity("work")?.Stop();
        }
        Assert.Equal(expected ? ["Kite.Managed.Tests.Spans.Work.Outer", "Kite.Managed.Tests.Spans.Work.Do", "work"] : [], recorded.Ended.Select(span => span.Name));
    }

    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void TheSamplerDecidesForActivitiesToo(bool isSampled)
    {
        var asked = new List<bool?>();
        var recorded = new RecordedSpans(sampler: (_, parent) =>
        {
            asked.Add(parent);
            return isSampled;
        });
        Listen(recorded);
        using (var around = program.StartActivity("around"))
        {
            Assert.Equal(isSampled, around!.Recorded);
            recorded.Call("Outer", () => program.StartActivity("inside")?.Stop());
        }
        Assert.Equal(isSampled ? 3 : 0, recorded.Ended.Length);
        Assert.Null(asked[0]);
        Assert.All(asked.Skip(1), parent => Assert.True(parent is null || parent == isSampled));
    }

    // A program with OpenTelemetry of its own that records all, beside a sampler of ours that does not.
    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void WhatOthersRecordIsNotOurDecision(bool isSampled)
    {
        using var another = new ActivitySource("Another");
        var recorded = new RecordedSpans(sampler: (_, parent) => parent ?? isSampled);
        Listen(recorded);
        RecordAll();
        using (var around = program.StartActivity("around")!)
        {
            Assert.True(around.Recorded);
            recorded.Call("Do", () => { });
            recorded.Call("Outer", () => program.StartActivity("in a call")!.Stop());
            using var inside = another.StartActivity("of another")!;
            recorded.Call("Inner", () => { });
            program.StartActivity("inside")!.Stop();
            program.StartActivity("by context", ActivityKind.Internal, inside.Context)!.Stop();
            program.StartActivity("by id", ActivityKind.Internal, inside.Id)!.Stop();
        }
        Assert.Equal(
            isSampled ? ["Do", "in a call", "Outer", "Inner", "inside", "by context", "by id", "around"] : [],
            recorded.Ended.Select(span => span.Name.Split('.').Last()));
    }

    // Whoever called says whether, and the program's OpenTelemetry, which records all, does not.
    [Theory]
    [InlineData("00", true)]
    [InlineData("00", false)]
    [InlineData("01", true)]
    [InlineData("01", false)]
    public void TheCallersDecisionIsKept(string flags, bool isListenedTo)
    {
        const string Parent = "00-0102030405060708090a0b0c0d0e0f10-3333333333333333-";
        using var another = new ActivitySource("Another");
        var recorded = new RecordedSpans(sampler: (_, parent) => parent ?? true);
        Listen(recorded);
        RecordAll();
        var requests = isListenedTo ? program : another;
        Action[] starts =
        [
            () => requests.StartActivity("request", ActivityKind.Server, ActivityContext.Parse(Parent + flags, null)),
            () => requests.StartActivity("request", ActivityKind.Server, Parent + flags),
            () => requests.CreateActivity("request", ActivityKind.Server, Parent + flags)!.Start(),
        ];
        foreach (var start in starts)
        {
            start();
            using var request = Activity.Current!;
            Assert.True(request.Recorded);
            recorded.Call("Outer", () => { });
            program.StartActivity("inside")!.Stop();
        }
        string[] names = isListenedTo ? ["Outer", "inside", "request"] : ["Outer", "inside"];
        Assert.Equal(flags == "00" ? [] : [.. names, .. names, .. names], recorded.Ended.Select(span => span.Name.Split('.').Last()));
    }

    [Fact]
    public async Task OurOwnTrafficIsNotRecorded()
    {
        Listen();
        var before = OwnWork.Begin();
        Assert.Null(program.StartActivity("work"));
        await Task.Run(() => Assert.Null(program.StartActivity("work")));
        OwnWork.End(before);
        Assert.Empty(spans.Ended);
    }

    [Fact]
    public void WhoListensToUsAndToTheProgramSeesOneTree()
    {
        Listen();
        var stopped = new List<Activity>();
        using var listener = new ActivityListener
        {
            ShouldListenTo = source => source.Name is "Corvane.Instrumentation" or "Kite.Managed.Tests",
            Sample = (ref ActivityCreationOptions<ActivityContext> _) => ActivitySamplingResult.AllDataAndRecorded,
            ActivityStopped = stopped.Add,
        };
        ActivitySource.AddActivityListener(listener);
        spans.Call("Outer", () =>
        {
            using var inside = program.StartActivity("inside");
            spans.Call("Inner", () => { });
        });
        AssertChain("Outer", "inside", "Inner");
        Assert.Equal(
            stopped.Select(activity => (activity.SpanId.ToHexString(), activity.ParentSpanId.ToHexString())),
            spans.Ended.Select(span => (SpanId.Text(span.Id), SpanId.Text(span.ParentId))));
    }

    // The client's activity and events are the platform's.
    [Fact]
    public async Task ACallOfHttpClientIsASpan()
    {
        Listen("System.Net.Http");
        using var server = new Collector("404 Not Found");
        using var client = new HttpClient();
        await spans.Call("Later", async () =>
        {
            using var answer = await client.GetAsync($"{server.Address}/a?user=planted");
        });
        spans.Wait(2);
        var span = spans.Ended.Single(span => span.Scope == "System.Net.Http");
        Assert.Equal(("GET", SpanKind.Client), (span.Name, span.Kind));
        Assert.Equal(spans.Only("Later").Id, span.ParentId);
        Assert.Equal($"00-{span.Trace}-{SpanId.Text(span.Id)}-01", Assert.Single(server.Requests).Headers["traceparent"]);
        Assert.Equal(404L, Value(span, "http.response.status_code"));
        Assert.Equal("127.0.0.1", Value(span, "server.address"));
        Assert.DoesNotContain("planted", (string)Value(span, "url.full")!);
        Assert.True(span.HasError);
    }

    private static object? Value(Span span, string key) => span.Attributes.SingleOrDefault(attribute => attribute.Key == key).Value;

    private void Listen(params string[] sources) => Listen(spans, sources);

    private void Listen(RecordedSpans recorded, params string[] sources) => Listen(recorded, RecordedValues.None, sources);

    private void Listen(RecordedSpans recorded, RecordedValues values, params string[] sources)
    {
        var names = new SourceNames(sources.Length == 0 ? program.Name : sources[0]);
        var activities = new ActivitySpans(recorded, recorded.Sampler, values, names, run => run());
        var events = new RequestEvents(run => run());
        activities.Begin();
        events.Begin();
        listening.AddRange([activities, events]);
    }

    private void RecordAll()
    {
        var listener = new ActivityListener
        {
            ShouldListenTo = source => source.Name is "Kite.Managed.Tests" or "Another",
            Sample = (ref ActivityCreationOptions<ActivityContext> _) => ActivitySamplingResult.AllDataAndRecorded,
        };
        ActivitySource.AddActivityListener(listener);
        listening.Add(listener);
    }

    private void AssertChain(params string[] names)
    {
        Assert.Equal(names.Length, spans.Ended.Length);
        var chain = names.Select(name => spans.Ended.Single(span => span.Name.Split('.').Last() == name)).ToArray();
        Assert.Single(chain.Select(span => span.Trace).Distinct());
        for (var position = 1; position < chain.Length; position++)
        {
            Assert.Equal(chain[position - 1].Id, chain[position].ParentId);
        }
    }
}
