using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Reflection;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Spans;

public class SpanRecorderTests
{
    private readonly RecordedSpans spans = new();

    [Fact]
    public void ACallIsASpan()
    {
        var before = Stopwatch.GetTimestamp();
        Assert.Equal(3, spans.Call("Add", [1, 2], () => 3));
        var span = Assert.Single(spans.Ended);
        Assert.False(span.Trace.IsNone);
        Assert.NotEqual(0ul, span.Id);
        Assert.Equal(0ul, span.ParentId);
        Assert.Equal("Kite.Managed.Tests.Spans.Work.Add", span.Name);
        Assert.Equal(span.Name, span.Method);
        Assert.Equal("Corvane.Instrumentation", span.Scope);
        Assert.Equal(SpanKind.Internal, span.Kind);
        Assert.InRange(span.Started, before, span.Ended);
        Assert.InRange(span.Ended, span.Started, Stopwatch.GetTimestamp());
        Assert.Equal(Environment.CurrentManagedThreadId, span.ThreadId);
        Assert.False(span.HasError);
        Assert.False(span.EndsAtReturn);
        Assert.Empty(span.Attributes);
        Assert.Null(SpanFlow.Current);
    }

    [Fact]
    public void ACallInACallIsItsChild()
    {
        spans.Call("Outer", () =>
        {
            spans.Call("Inner", () => { });
            spans.Call("Do", () => { });
        });
        spans.AssertParent("Outer", "Inner");
        spans.AssertParent("Outer", "Do");
        Assert.Equal(3, spans.Ended.Select(span => span.Id).Distinct().Count());
    }

    [Fact]
    public void OutermostCallsBeginTracesOfTheirOwn()
    {
        spans.Call("Do", () => { });
        spans.Call("Inner", () => { });
        Assert.NotEqual(spans.Only("Do").Trace, spans.Only("Inner").Trace);
    }

    [Fact]
    public void AnExceptionFailsEveryCallThatItLeaves()
    {
        Assert.Throws<InvalidOperationException>(() => spans.Call("Outer", () => spans.Call("Inner", Throw)));
        Assert.All(spans.Ended, span => Assert.Equal("System.InvalidOperationException", span.ErrorType));
        Assert.All(spans.Ended, span => Assert.Null(span.ErrorMessage));
        Assert.Equal(["Inner", "Outer"], spans.Ended.Select(span => span.Name.Split('.').Last()));
        Assert.Null(SpanFlow.Current);
    }

    [Fact]
    public void AnExceptionThatIsHandledInACallDoesNotFailIt()
    {
        spans.Call("Outer", () => Assert.Throws<InvalidOperationException>(() => spans.Call("Inner", Throw)));
        Assert.True(spans.Only("Inner").HasError);
        Assert.False(spans.Only("Outer").HasError);
    }

    // As when the exception that was noted gives way to one that the method catches.
    [Fact]
    public void ACallThatReturnsAfterAllHasNotFailed()
    {
        spans.Call("Outer", () => Assert.True(spans.Recorder.Fail(new InvalidOperationException())));
        Assert.False(Assert.Single(spans.Ended).HasError);
        Assert.Null(SpanFlow.Current);
    }

    [Theory]
    [InlineData("Do", "None", null)]
    [InlineData("Do", "Safe", null)]
    [InlineData("Do", "All", "on purpose")]
    [InlineData("Login", "All", null)]
    public void TheMessageIsRecordedAsValuesAre(string method, string values, string? message)
    {
        var recorded = new RecordedSpans(Enum.Parse<RecordedValues>(values));
        Assert.Throws<InvalidOperationException>(() => recorded.Call(method, Throw));
        Assert.Equal(message, Assert.Single(recorded.Ended).ErrorMessage);
    }

    // The callers' spans have the same exception, whether they wait or await.
    [Theory]
    [InlineData("Login", "hunter2")]
    [InlineData("Add", "DB_PASSWORD")]
    public void AMessageThatMayQuoteASecretIsInNoSpan(string method, string argument)
    {
        var recorded = new RecordedSpans(RecordedValues.All);
        object?[] arguments = method == "Add" ? [argument, 5] : [argument];
        Assert.Throws<InvalidOperationException>(() => recorded.Call(
            "Outer", () => recorded.Call<int>(method, arguments, () => throw new InvalidOperationException("no hunter2"))));
        Assert.Equal(2, recorded.Ended.Length);
        Assert.All(recorded.Ended, span => Assert.Null(span.ErrorMessage));
        Assert.All(recorded.Ended, span => Assert.Equal("System.InvalidOperationException", span.ErrorType));
    }

    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void NorIsThatOfATask(bool isOver)
    {
        var recorded = new RecordedSpans(RecordedValues.All);
        using var begun = new ManualResetEventSlim(isOver);
        async Task Fail()
        {
            if (!isOver)
            {
                await Task.Run(begun.Wait);
            }
            throw new InvalidOperationException("no hunter2");
        }
        Assert.Throws<AggregateException>(() => recorded.Call("Outer", () =>
        {
            var task = recorded.Call("Later", async Task () => await recorded.Call("LoginLater", ["hunter2"], Fail));
            begun.Set();
            task.Wait();
        }));
        recorded.Wait(3);
        Assert.All(recorded.Ended, span => Assert.True(span.HasError));
        Assert.All(recorded.Ended, span => Assert.DoesNotContain("hunter2", span.ErrorMessage ?? ""));
        Assert.Null(recorded.Only("Later").ErrorMessage);
    }

    [Fact]
    public void ACallWhoseEndIsNotSeenEndsUnfinishedWithTheOneAroundIt()
    {
        spans.Call("Outer", () => spans.Recorder.Enter(2, null, [], new InstrumentationDirectives()));
        Assert.Equal(2, spans.Ended.Length);
        Assert.Equal([new("corvane.unfinished", true)], spans.Only("Inner").Attributes);
        Assert.Empty(spans.Only("Outer").Attributes);
        spans.AssertParent("Outer", "Inner");
        Assert.Null(SpanFlow.Current);
    }

    [Fact]
    public void TheFlowIsThatOfBeforeWhateverTheMethodDidToIt()
    {
        var local = new AsyncLocal<string>();
        spans.Call("Outer", () =>
        {
            local.Value = "set by the method";
            spans.Call("Inner", () => local.Value += ", and again");
            spans.Call("Do", () => { });
        });
        Assert.Equal("set by the method, and again", local.Value);
        Assert.Null(SpanFlow.Current);
        spans.AssertParent("Outer", "Inner");
        spans.AssertParent("Outer", "Do");
    }

    [Fact]
    public void TheContextIsTheVeryOneOfBefore()
    {
        if (!Library.IsForNet)
        {
            return; // the .NET Framework has no way to put one back
        }
        var local = new AsyncLocal<string> { Value = "x" };
        var before = ExecutionContext.Capture();
        spans.Call("Outer", () => Assert.Equal("x", local.Value));
        Assert.Same(before, ExecutionContext.Capture());
        spans.Call("Later", () => new TaskCompletionSource().Task);
        Assert.Same(before, ExecutionContext.Capture());
        spans.Call("Outer", () => spans.Call("Later", () => Task.Delay(1)));
        Assert.Same(before, ExecutionContext.Capture());
    }

    [Fact]
    public void ASuppressedFlowStaysSo()
    {
        using (ExecutionContext.SuppressFlow())
        {
            spans.Call("Outer", () => spans.Call("Inner", () => Assert.True(ExecutionContext.IsFlowSuppressed())));
            Assert.True(ExecutionContext.IsFlowSuppressed());
        }
        spans.AssertParent("Outer", "Inner");
        Assert.Null(SpanFlow.Current);
        spans.Call("Do", () =>
        {
            using (ExecutionContext.SuppressFlow())
            {
                spans.Call("Add", () => 0);
            }
        });
        spans.AssertParent("Do", "Add");
    }

    [Fact]
    public void TheSamplerDecidesOnceForATrace()
    {
        var asked = new List<(TraceId, bool?)>();
        var recorded = new RecordedSpans(sampler: (trace, parent) =>
        {
            asked.Add((trace, parent));
            return asked.Count == 2;
        });
        recorded.Call("Outer", () => recorded.Call("Inner", () => recorded.Call("Do", () => { })));
        Assert.Empty(recorded.Ended);
        Assert.Single(asked);
        recorded.Call("Outer", () => recorded.Call("Inner", () => { }));
        Assert.Equal(2, recorded.Ended.Length);
        Assert.Equal([(asked[0].Item1, null), (recorded.Ended[0].Trace, null)], asked);
    }

    // Who is called is to know that the trace is not recorded, or would begin another one.
    [Fact]
    public void WhatGoesOutOfATraceThatIsNotRecordedSaysSo()
    {
        var seen = new List<Span>();
        var client = new ClientConvention(seen);
        var recorded = new RecordedSpans(sampler: (_, _) => false, conventions: method => method.Name == "Add" ? client : null);
        TraceId trace = default;
        recorded.Call("Outer", () =>
        {
            trace = SpanFlow.Current!.Trace;
            recorded.Call("Inner", () => recorded.Call("Add", [1, 2], () => 3));
        });
        var span = Assert.Single(seen);
        Assert.Equal((trace, false, SpanKind.Client), (span.Trace, span.IsRecorded, span.Kind));
        Assert.Empty(recorded.Ended);
    }

    private sealed class ClientConvention(List<Span> seen) : ISpanConvention
    {
        public SpanKind Kind => SpanKind.Client;

        public void Begin(Span span, object? receiver, object?[] arguments) => seen.Add(span);

        public void End(Span span, object? receiver, object?[] arguments, object? result)
        {
        }

        public void Fail(Span span, Exception exception)
        {
        }
    }

    [Fact]
    public async Task OurOwnWorkIsNotRecorded()
    {
        var before = OwnWork.Begin();
        spans.Call("Outer", () => { });
        await Task.Run(() => spans.Call("Inner", () => { }));
        OwnWork.End(before);
        Assert.Empty(spans.Ended);
        spans.Call("Do", () => { });
        Assert.Single(spans.Ended);
    }

    [Fact]
    public void AConventionDescribesTheSpan()
    {
        var convention = new Convention();
        var recorded = new RecordedSpans(conventions: method => method.Name == "Add" ? convention : null);
        recorded.Call("Add", [1, 2], () => 3);
        recorded.Call("Do", () => { });
        Assert.Throws<InvalidOperationException>(() => recorded.Call("Add", [1, 2], int () => throw new InvalidOperationException()));
        var span = recorded.Ended[0];
        Assert.Equal(SpanKind.Client, span.Kind);
        Assert.Equal("sum", span.Name);
        Assert.Equal("Kite.Managed.Tests.Spans.Work.Add", span.Method);
        Assert.Equal([new("a", 1L), new("sum", 3L)], span.Attributes);
        Assert.Equal(SpanKind.Internal, recorded.Only("Do").Kind);
        Assert.Equal([new("a", 1L), new("failed", "InvalidOperationException")], recorded.Ended[2].Attributes);
    }

    [Fact]
    public void AMethodOfNoKindHasNoSpanButIsShownTheOneThatItIsIn()
    {
        var convention = new Convention { Kind = SpanKind.None };
        var recorded = new RecordedSpans(conventions: method => method.Name == "Add" ? convention : null);
        recorded.Call("Outer", () => recorded.Call("Add", [1, 2], () =>
        {
            recorded.Call("Inner", () => { });
            return 3;
        }));
        recorded.AssertParent("Outer", "Inner");
        Assert.Equal(2, recorded.Ended.Length);
        Assert.Same(recorded.Only("Outer"), convention.Shown);
        Assert.Null(convention.Result);
        Assert.Throws<InvalidOperationException>(() => recorded.Call("Add", [1, 2], int () => throw new InvalidOperationException()));
        Assert.Same(Span.None, convention.Shown);
        Assert.Equal(2, recorded.Ended.Length);
    }

    [Fact]
    public async Task AConventionSeesTheTaskOfAMethodThatReturnsOne()
    {
        var convention = new Convention();
        var recorded = new RecordedSpans(conventions: _ => convention);
        var source = new TaskCompletionSource<int>();
        var task = recorded.Call("Count", [1], () => source.Task);
        Assert.Null(convention.Result);
        source.SetResult(5);
        await task;
        recorded.Wait(1);
        Assert.Same(source.Task, convention.Result);
        var failing = recorded.Call("Count", [1], () => Task.FromException<int>(new InvalidOperationException()));
        Assert.Same(source.Task, convention.Result);
        Assert.NotNull(failing.Exception);
        Assert.Contains(new("failed", "InvalidOperationException"), recorded.Ended[1].Attributes);
    }

    // At the end of the process a span is written as it is.
    [Fact]
    public async Task ASpanHasNotEndedBeforeItIsDescribed()
    {
        var convention = new Convention();
        var recorded = new RecordedSpans(conventions: _ => convention);
        var (source, failing) = (new TaskCompletionSource<int>(), new TaskCompletionSource<int>());
        var task = recorded.Call("Count", [1], () => source.Task);
        var failed = recorded.Call("Count", [1], () => failing.Task);
        source.SetResult(5);
        await task;
        failing.SetException(new InvalidOperationException());
        await Assert.ThrowsAsync<InvalidOperationException>(() => failed);
        recorded.Call("Do", () => { });
        recorded.Wait(3);
        Assert.Equal([0, 0, 0], convention.Ended);
        Assert.All(recorded.Ended, span => Assert.NotEqual(0, span.Ended));
    }

    [Fact]
    public void AConventionThatThrowsIsCountedAndTheSpanIsThere()
    {
        var recorded = new RecordedSpans(conventions: _ => new Convention { Throws = true });
        recorded.Call("Outer", () => recorded.Call("Inner", () => { }));
        recorded.AssertParent("Outer", "Inner");
        Assert.Equal(4, recorded.Recorder.Failures);
        Assert.Null(SpanFlow.Current);
    }

    // A method may be registered by its second call, and a number may be another one's.
    [Fact]
    public void AMethodThatIsNotKnownHasItsNumber()
    {
        spans.Recorder.Enter(77, null, [1], new InstrumentationDirectives());
        spans.Recorder.Leave(77, [1], Task.CompletedTask);
        Assert.Equal("method #77", Assert.Single(spans.Ended).Name);
    }

    [Fact]
    public void AStepOfAnAsynchronousMethodIsNoSpan()
    {
        var recorded = new RecordedSpans();
        var machine = typeof(Work).GetNestedTypes(BindingFlags.NonPublic).Single(type => type.Name.Contains("Forget"));
        recorded.Recorder.Register(99, machine.GetMethod("MoveNext", BindingFlags.Instance | BindingFlags.NonPublic), traced: false);
        recorded.Call("Outer", () =>
        {
            recorded.Recorder.Enter(99, null, [], new InstrumentationDirectives());
            recorded.Call("Inner", () => { });
            recorded.Recorder.Leave(99, [], null);
        });
        Assert.Equal(2, recorded.Ended.Length);
        recorded.AssertParent("Outer", "Inner");
    }

    [Fact]
    public void SixteenThreadsLoseNothing()
    {
        const int Threads = 16;
        const int Calls = 5000;
        var started = new Barrier(Threads);
        var threads = Enumerable.Range(0, Threads).Select(_ => new Thread(() =>
        {
            started.SignalAndWait();
            for (var call = 0; call < Calls; call++)
            {
                spans.Call("Outer", () => spans.Call("Inner", () => { }));
            }
        })).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        var all = spans.Ended;
        Assert.Equal(2 * Threads * Calls, all.Length);
        Assert.Equal(all.Length, all.Select(span => span.Id).Distinct().Count());
        var outer = all.Where(span => span.ParentId == 0).ToDictionary(span => span.Id);
        Assert.Equal(Threads * Calls, outer.Count);
        Assert.Equal(Threads * Calls, outer.Values.Select(span => span.Trace).Distinct().Count());
        Assert.All(all.Where(span => span.ParentId != 0), inner =>
        {
            Assert.Equal(outer[inner.ParentId].Trace, inner.Trace);
            Assert.Equal(outer[inner.ParentId].ThreadId, inner.ThreadId);
        });
    }

    private static void Throw() => throw new InvalidOperationException("on purpose");

    private sealed class Convention : ISpanConvention
    {
        public SpanKind Kind { get; init; } = SpanKind.Client;

        internal Span? Shown { get; private set; }

        internal bool Throws { get; init; }

        internal object? Result { get; private set; }

        // Of the span, when its end is described.
        internal List<long> Ended { get; } = [];

        public void Begin(Span span, object? receiver, object?[] arguments)
        {
            if (Throws)
            {
                throw new InvalidOperationException();
            }
            Shown = span;
            if (span == Span.None)
            {
                return;
            }
            span.Name = Kind == SpanKind.None ? span.Name : "sum";
            span.SetAttribute("a", (long)(int)arguments[0]!);
        }

        public void Fail(Span span, Exception exception)
        {
            Ended.Add(span.Ended);
            span.SetAttribute("failed", exception.GetType().Name);
        }

        public void End(Span span, object? receiver, object?[] arguments, object? result)
        {
            if (Throws)
            {
                throw new InvalidOperationException();
            }
            Result = result;
            Ended.Add(span.Ended);
            if (result is int sum)
            {
                span.SetAttribute("sum", (long)sum);
            }
        }
    }
}
