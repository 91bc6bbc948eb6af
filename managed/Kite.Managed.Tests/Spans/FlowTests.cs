// That spans end when the work of their calls does, under the span that the program's logical flow was in.
using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Linq;
using System.Runtime.CompilerServices;
using System.Threading;
using System.Threading.Channels;
using System.Threading.Tasks;
using System.Threading.Tasks.Sources;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Spans;

public class FlowTests
{
    private const int Levels = 25;

    private readonly RecordedSpans spans = new();

    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public async Task AChainOfAsynchronousMethodsIsAChainOfSpans(bool captures)
    {
        var failed = 0;
        var awaited = 0;
        var areAllAwaited = new TaskCompletionSource(TaskCreationOptions.RunContinuationsAsynchronously);
        void OnAwaited()
        {
            if (Interlocked.Increment(ref awaited) == Levels - 1)
            {
                areAllAwaited.SetResult();
            }
        }
        Task<int> Level(int level) => spans.Call("Count", [level], async Task<int> () =>
        {
            await Task.Delay(1).ConfigureAwait(captures);
            if (level == Levels)
            {
                await areAllAwaited.Task.ConfigureAwait(captures);
                throw new FormatException();
            }
            try
            {
                return await new Awaited<int>(Level(level + 1), captures, OnAwaited);
            }
            catch (FormatException) when (level % 5 == 0)
            {
                failed++;
                throw new InvalidOperationException();
            }
        });
        await Assert.ThrowsAsync<InvalidOperationException>(() => Level(1));
        Assert.Equal(1, failed);
        spans.Wait(Levels);
        Assert.Single(spans.Ended.Select(span => span.Trace).Distinct());
        // The innermost ends first.
        var chain = spans.Ended.Reverse().ToArray();
        Assert.Equal(0ul, chain[0].ParentId);
        for (var level = 2; level <= Levels; level++)
        {
            var (outer, inner) = (chain[level - 2], chain[level - 1]);
            Assert.Equal(outer.Id, inner.ParentId);
            Assert.InRange(inner.Started, outer.Started, outer.Ended);
            Assert.InRange(inner.Ended, inner.Started, outer.Ended);
            Assert.Equal(level > 20 ? "System.FormatException" : "System.InvalidOperationException", inner.ErrorType);
        }
    }

    [Fact]
    public async Task ASpanLastsAsLongAsItsTask()
    {
        var source = new TaskCompletionSource();
        var task = spans.Call("Later", () => source.Task);
        Assert.Same(source.Task, task);
        Assert.Null(SpanFlow.Current);
        Assert.Empty(spans.Ended);
        spans.Call("Do", () => { });
        Assert.NotEqual(spans.Only("Do").Trace, default);
        source.SetResult();
        await task;
        spans.Wait(2);
        Assert.Equal(0ul, spans.Only("Do").ParentId);
        Assert.True(spans.Only("Later").Ended > spans.Only("Do").Ended);
    }

    [Fact]
    public async Task WhatAMethodCallsBehindItsAwaitIsItsChild()
    {
        await spans.Call("Later", async () =>
        {
            spans.Call("Inner", () => { });
            await Task.Yield();
            spans.Call("Do", () => { });
        });
        spans.Wait(3);
        spans.AssertParent("Later", "Inner");
        spans.AssertParent("Later", "Do");
    }

    [Fact]
    public async Task TheFlowGoesWithTasksTimersAndThreads()
    {
        var done = new CountdownEvent(5);
        var children = new ConcurrentQueue<string>();
        void Child(string name)
        {
            spans.Call(name, () => children.Enqueue(name));
            done.Signal();
        }
        await spans.Call("Later", async () =>
        {
            var task = Task.Run(() => Child("Inner"));
            ThreadPool.QueueUserWorkItem(_ => Child("Do"));
            var thread = new Thread(() => Child("Add"));
            thread.Start();
            using var timer = new Timer(_ => Child("Soon"), null, 1, Timeout.Infinite);
            var continuation = task.ContinueWith(_ => Child("CountSoon"), TaskScheduler.Default);
            Assert.True(await Task.Run(() => done.Wait(TimeSpan.FromSeconds(30))));
            await continuation;
        });
        spans.Wait(6);
        Assert.Equal(5, children.Count);
        Assert.All(children, child => spans.AssertParent("Later", child));
    }

    [Fact]
    public void WhereTheFlowIsSuppressedATraceBegins()
    {
        spans.Call("Outer", () =>
        {
            var done = new ManualResetEventSlim();
            ThreadPool.UnsafeQueueUserWorkItem(_ =>
            {
                spans.Call("Inner", () => { });
                done.Set();
            }, null);
            done.Wait();
            done.Reset();
            using (ExecutionContext.SuppressFlow())
            {
                Task.Run(() =>
                {
                    spans.Call("Do", () => { });
                    done.Set();
                });
            }
            done.Wait();
        });
        spans.Wait(3);
        Assert.Equal(0ul, spans.Only("Inner").ParentId);
        Assert.Equal(0ul, spans.Only("Do").ParentId);
        Assert.Equal(3, spans.Ended.Select(span => span.Trace).Distinct().Count());
    }

    [Fact]
    public void ParallelLoopsAreInTheSpanAroundThem()
    {
        const int Count = 2000;
        spans.Call("Outer", () => Parallel.For(0, Count, _ => spans.Call("Inner", () => spans.Call("Do", () => { }))));
        spans.Wait((2 * Count) + 1);
        var outer = spans.Only("Outer");
        Assert.Single(spans.Ended.Select(span => span.Trace).Distinct());
        var inner = spans.Ended.Where(span => span.ParentId == outer.Id).Select(span => span.Id).ToHashSet();
        Assert.Equal(Count, inner.Count);
        Assert.Equal(Count, spans.Ended.Count(span => inner.Contains(span.ParentId)));
    }

    // The reader's flow is its own, whoever writes.
    [Fact]
    public async Task AChannelHandsOverItemsAndNoFlow()
    {
        var channel = Channel.CreateBounded<int>(2);
        var reading = spans.Call("Later", async () =>
        {
            await foreach (var _ in channel.Reader.ReadAllAsync())
            {
                spans.Call("Inner", () => { });
            }
        });
        await spans.Call("Count", async () =>
        {
            for (var item = 0; item < 50; item++)
            {
                await spans.Call("Soon", async () => await channel.Writer.WriteAsync(item));
            }
            channel.Writer.Complete();
            return 0;
        });
        await reading;
        spans.Wait(102);
        var (reader, writer) = (spans.Only("Later"), spans.Only("Count"));
        Assert.Equal(50, spans.Ended.Count(span => span.ParentId == reader.Id));
        Assert.Equal(50, spans.Ended.Count(span => span.ParentId == writer.Id));
        Assert.NotEqual(reader.Trace, writer.Trace);
    }

    [Fact]
    public async Task CallsOfManyFlowsAtOnceStayApart()
    {
        const int Flows = 200;
        await Task.WhenAll(Enumerable.Range(0, Flows).Select(_ => Task.Run(() => spans.Call("Later", async () =>
        {
            for (var step = 0; step < 5; step++)
            {
                await Task.Yield();
                await spans.Call("Count", async () =>
                {
                    await Task.Yield();
                    spans.Call("Do", () => { });
                    return 0;
                });
            }
        }))));
        spans.Wait(Flows * 11);
        var traces = spans.Ended.GroupBy(span => span.Trace).ToArray();
        Assert.Equal(Flows, traces.Length);
        Assert.All(traces, trace =>
        {
            var root = Assert.Single(trace, span => span.ParentId == 0);
            var middle = trace.Where(span => span.ParentId == root.Id).Select(span => span.Id).ToArray();
            Assert.Equal(5, middle.Length);
            Assert.Equal(middle.Order(), trace.Select(span => span.ParentId).Where(id => id != 0 && id != root.Id).Order());
        });
    }

    // --- Ends

    [Fact]
    public async Task AFailedTaskFailsItsSpanAndIsStillUnobserved()
    {
        var unobserved = new ConcurrentQueue<string>();
        void Hear(object? sender, UnobservedTaskExceptionEventArgs happened)
        {
            unobserved.Enqueue(happened.Exception.InnerException!.Message);
            happened.SetObserved();
        }
        TaskScheduler.UnobservedTaskException += Hear;
        try
        {
            var name = $"unobserved {Guid.NewGuid()}";
            FailAndForget(name);
            spans.Wait(2);
            Assert.All(spans.Ended, span => Assert.Equal("System.InvalidOperationException", span.ErrorType));
            for (var round = 0; round < 100 && unobserved.Count(text => text.StartsWith(name, StringComparison.Ordinal)) < 2; round++)
            {
                GC.Collect();
                GC.WaitForPendingFinalizers();
                await Task.Delay(10);
            }
            Assert.Equal([$"{name} at once", $"{name} later"], unobserved.Where(text => text.StartsWith(name, StringComparison.Ordinal)).Order());
        }
        finally
        {
            TaskScheduler.UnobservedTaskException -= Hear;
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private void FailAndForget(string name)
    {
        var source = new TaskCompletionSource();
        _ = spans.Call("Later", () => source.Task);
        source.SetException(new InvalidOperationException($"{name} later"));
        _ = spans.Call("Count", () => Task.FromException<int>(new InvalidOperationException($"{name} at once")));
    }

    [Fact]
    public async Task TheFirstExceptionOfManyIsTheOneThatAwaitingThrows()
    {
        await Assert.ThrowsAsync<FormatException>(() => spans.Call("Later", () => Task.WhenAll(
            Task.FromException(new FormatException()), Task.FromException(new InvalidOperationException()))));
        Assert.Equal("System.FormatException", Assert.Single(spans.Ended).ErrorType);
    }

    [Fact]
    public async Task ACancelledTaskIsAnErrorOfTheTypeThatAwaitingThrows()
    {
        await Assert.ThrowsAsync<TaskCanceledException>(() => spans.Call("Later", () => Task.FromCanceled(new CancellationToken(true))));
        var token = new CancellationTokenSource();
        var task = spans.Call("Count", async () =>
        {
            await Task.Yield();
            token.Token.ThrowIfCancellationRequested();
            return 0;
        });
        await task;
        token.Cancel();
        await Assert.ThrowsAsync<OperationCanceledException>(() => spans.Call("Later", async () =>
        {
            await Task.Yield();
            token.Token.ThrowIfCancellationRequested();
        }));
        spans.Wait(3);
        Assert.Equal(
            [null, "System.OperationCanceledException", "System.Threading.Tasks.TaskCanceledException"],
            spans.Ended.Select(span => span.ErrorType).Order(StringComparer.Ordinal));
    }

    [Fact]
    public async Task AValueTaskOfATaskIsFollowed()
    {
        var source = new TaskCompletionSource<int>();
        var task = spans.Call("CountSoon", () => new ValueTask<int>(source.Task));
        Assert.Empty(spans.Ended);
        source.SetException(new FormatException());
        await Assert.ThrowsAsync<FormatException>(async () => await task);
        spans.Wait(1);
        Assert.Equal("System.FormatException", spans.Ended[0].ErrorType);
        Assert.False(spans.Ended[0].EndsAtReturn);

        await spans.Call("Soon", async ValueTask () => await Task.Yield());
        spans.Wait(2);
        Assert.False(spans.Ended[1].EndsAtReturn);
    }

    [Fact]
    public async Task AValueTaskThatHasCompletedEndsAtOnce()
    {
        Assert.Equal(5, await spans.Call("CountSoon", () => new ValueTask<int>(5)));
        await spans.Call("Soon", () => default(ValueTask));
        Assert.Equal(2, spans.Ended.Length);
        Assert.All(spans.Ended, span => Assert.False(span.EndsAtReturn));
    }

    [Fact]
    public async Task AValueTaskThatServesOnceIsNotTouched()
    {
        var source = new OnceSource();
        var task = spans.Call("CountSoon", () => new ValueTask<int>(source, 7));
        var other = spans.Call("Soon", () => new ValueTask(source, 7));
        Assert.Equal(0, source.Touches);
        Assert.Equal(2, spans.Ended.Length);
        Assert.All(spans.Ended, span => Assert.True(span.EndsAtReturn));
        Assert.All(spans.Ended, span => Assert.False(span.HasError));
        Assert.Equal(3, await task);
        await other;
        Assert.True(source.Touches > 0);
    }

    // A loop that waits for the next thing or for the program's end, whichever comes first, asks for the end each time.
    [Fact]
    public void OfATaskThatIsReturnedOverAndOverNotEveryEndIsWaitedFor()
    {
        const int More = 10;
        var end = new TaskCompletionSource();
        for (var call = 0; call < SpanRecorder.MostOpenTasks + More; call++)
        {
            spans.Call("Later", () => end.Task);
        }
        Assert.Equal(More, spans.Ended.Length);
        Assert.All(spans.Ended, span => Assert.True(span.EndsAtReturn));
        end.SetResult();
        spans.Wait(SpanRecorder.MostOpenTasks + More);

        var next = new TaskCompletionSource();
        spans.Call("Later", () => next.Task);
        Assert.Equal(SpanRecorder.MostOpenTasks + More, spans.Ended.Length);
        next.SetResult();
        spans.Wait(SpanRecorder.MostOpenTasks + More + 1);
        Assert.Equal(More, spans.Ended.Count(span => span.EndsAtReturn));
    }

    [Fact]
    public void WhatGoesOnUnseenSaysSo()
    {
        spans.Call("List", () => (IAsyncEnumerable<int>?)null);
        spans.Call("Forget", () => { });
        spans.Call("Begin", () => (IAsyncResult?)null);
        spans.Call("Do", () => { });
        Assert.True(spans.Only("List").EndsAtReturn);
        Assert.True(spans.Only("Begin").EndsAtReturn);
        Assert.True(spans.Only("Forget").EndsAtReturn);
        Assert.False(spans.Only("Do").EndsAtReturn);
    }

    [Fact]
    public void AMethodThatReturnsNoTaskAfterAllEnds()
    {
        spans.Call("Later", () => (Task?)null);
        Assert.False(Assert.Single(spans.Ended).HasError);
        Assert.Null(SpanFlow.Current);
    }

    // --- The program

    [Fact]
    public async Task TheProgramsOwnLocalsAreAsWithoutUs()
    {
        Assert.Equal(await Run(new RecordedSpans(hasSink: false)), await Run(spans));
        spans.Wait(4);

        static async Task<string> Run(RecordedSpans spans)
        {
            var changes = new ConcurrentQueue<string>();
            var first = new AsyncLocal<string?>(change =>
            {
                if (!change.ThreadContextChanged)
                {
                    changes.Enqueue($"{change.PreviousValue}>{change.CurrentValue}");
                }
            });
            var second = new AsyncLocal<string?>();
            var seen = new List<string?>();
            first.Value = "a";
            await spans.Call("Later", async () =>
            {
                first.Value += "b";
                await Task.Yield();
                seen.Add(first.Value);
                spans.Call("Inner", () => second.Value = "in");
                seen.Add(second.Value);
            });
            spans.Call("Outer", () => first.Value += "c");
            seen.AddRange([first.Value, second.Value]);
            var thread = new Thread(() => spans.Call("Do", () => seen.Add(first.Value)));
            thread.Start();
            thread.Join();
            return string.Join(",", seen) + " " + string.Join(",", changes);
        }
    }

    [Fact]
    public void ATaskWithASynchronizationContextEndsWithoutIt()
    {
        var context = new CountingContext();
        var before = SynchronizationContext.Current;
        SynchronizationContext.SetSynchronizationContext(context);
        try
        {
            var source = new TaskCompletionSource();
            spans.Call("Later", () => source.Task);
            source.SetResult();
            spans.Wait(1);
            Assert.Equal(0, context.Posts);
        }
        finally
        {
            SynchronizationContext.SetSynchronizationContext(before);
        }
    }

    private sealed class CountingContext : SynchronizationContext
    {
        internal int Posts { get; private set; }

        public override void Post(SendOrPostCallback callback, object? state) => Posts++;
    }
}
