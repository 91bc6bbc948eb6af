// What observers see: every begin has one end, and no end comes without its begin.
using System;
using System.Collections.Generic;
using System.Linq;
using System.Reflection;
using System.Threading;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Observing;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests.Observing;

public class CallObserverTests
{
    private readonly RecordedCalls recording = new RecordedCalls().With(0, "Open").With(1, "Count").With(2, "Find");
    private readonly List<string> seen = [];
    private readonly Exception exception = new ArgumentException("no tea");

    // Notes what it sees; its state is the number of the call.
    private sealed class Notes(List<string> seen, string name = "", Func<MethodBase, bool>? wants = null) : CallObserver
    {
        private int calls;

        public override bool Wants(MethodBase method)
        {
            seen.Add($"{name}? {method.Name}");
            return wants?.Invoke(method) ?? true;
        }

        public override object? OnBegin(MethodData method, object? receiver, IReadOnlyList<object?> arguments)
        {
            calls++;
            seen.Add($"{name}{calls} {method.Name[(RecordedCalls.Type.Length + 1)..]}({string.Join(", ", arguments)}) of {receiver ?? "nothing"}");
            return calls;
        }

        public override void OnEnd(object? state, object? result) => seen.Add($"{name}{state} = {result ?? "null"}");

        public override void OnError(object? state, Exception? exception) =>
            seen.Add($"{name}{state} ! {exception?.Message ?? "unknown"}");
    }

    // The calls of this file, without what the observers were asked.
    private string[] Seen() => [.. seen.Where(line => !line.Contains('?'))];

    private IDisposable Observe(string name = "", Func<MethodBase, bool>? wants = null) =>
        recording.Recorder.Observe(new Notes(seen, name, wants));

    private void Return(uint index, object? result = null)
    {
        recording.Finally();
        recording.Leave(index, result);
    }

    [Fact]
    public void ACallBeginsWithItsArgumentsAndEndsWithItsResult()
    {
        Observe();
        recording.EnterOn("a shop", 1, "tea", 2);
        recording.Enter(0);
        Return(0);
        Return(1, 3);
        Assert.Equal(["1 Count(tea, 2) of a shop", "2 Open() of nothing", "2 = null", "1 = 3"], Seen());
    }

    [Fact]
    public void ArgumentsAreThoseThatCallbacksLeft()
    {
        Observe();
        recording.Recorder.Callbacks.Add((_, _, _, directives) => directives.ReplaceArgument(1, 5));
        recording.Enter(1, "tea", 2);
        Return(1, 5);
        Assert.Equal(["1 Count(tea, 5) of nothing", "1 = 5"], Seen());
    }

    [Fact]
    public void AnExceptionEndsTheCallsThatItLeaves()
    {
        Observe();
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Enter(2, null, DayOfWeek.Monday);
        Assert.True(recording.Recorder.Fail(exception));
        Assert.True(recording.Recorder.Fail(exception));
        Assert.Equal(3, Seen().Length);
        recording.Finally();
        recording.Finally();
        Return(0);
        Assert.Equal(["3 ! no tea", "2 ! no tea", "1 = null"], Seen()[3..]);
    }

    [Fact]
    public void ACallThatReturnsAfterItsErrorHasOneEnd()
    {
        Observe();
        recording.Enter(1, "tea", 2);
        recording.Throw(exception);
        recording.Leave(1, 2);
        Assert.Equal(["1 Count(tea, 2) of nothing", "1 ! no tea"], Seen());
        Assert.Contains("  Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) = 2", recording.Tree());
    }

    [Fact]
    public void WhatIsNoExceptionIsUnknown()
    {
        Observe();
        recording.Enter(0);
        recording.Throw(null);
        Assert.Equal("1 ! unknown", Seen()[1]);
    }

    // The finally block says nothing about what was thrown.
    [Fact]
    public void ACallOfWhichNoEndIsSeenEndsWithTheOneAroundIt()
    {
        Observe();
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Enter(2, null, DayOfWeek.Monday);
        Return(0);
        Assert.Equal(["3 ! unknown", "2 ! unknown", "1 = null"], Seen()[3..]);
    }

    [Fact]
    public void ACallBeyondTheMostThatAreKeptOpenEnds()
    {
        var observer = new Counts();
        recording.Recorder.Observe(observer);
        for (var call = 0; call < ThreadCalls.MaxOpen + 1; call++)
        {
            recording.Enter(0);
        }
        Assert.Equal((ThreadCalls.MaxOpen + 1, 0, ThreadCalls.MaxOpen / 2), observer.Sum());
        for (var call = 0; call < ThreadCalls.MaxOpen + 1; call++)
        {
            recording.Leave(0);
        }
        Assert.Equal((ThreadCalls.MaxOpen + 1, (ThreadCalls.MaxOpen / 2) + 1, ThreadCalls.MaxOpen / 2), observer.Sum());
    }

    [Fact]
    public void AnEndWithoutABeginIsNotSeen()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Observe();
        recording.Enter(2, null, DayOfWeek.Monday);
        Return(2);
        recording.Throw(exception);
        Return(0);
        Assert.Equal(["1 Find(, Monday) of nothing", "1 = null"], Seen());
    }

    [Fact]
    public void ACallThatIsOpenWhenItsObserverGoesStillEnds()
    {
        var observing = Observe();
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        observing.Dispose();
        observing.Dispose();
        recording.Enter(2, null, DayOfWeek.Monday);
        Return(2);
        recording.Throw(exception);
        Return(0);
        recording.Enter(0);
        Return(0);
        Assert.Equal(["1 Open() of nothing", "2 Count(tea, 2) of nothing", "2 ! no tea", "1 = null"], Seen());
    }

    // The exception leaves a call that nobody observes.
    [Fact]
    public void ACallEndsWithItsOwnExceptionWhereNothingIsRecorded()
    {
        var recorder = new Recorder(recording.Methods, null, null);
        var observing = recorder.Observe(new Notes(seen));
        recorder.Enter(0, null, [], null);
        observing.Dispose();
        recorder.Enter(1, null, ["tea", 2], null);
        Assert.True(recorder.Fail(exception));
        recorder.Log(4, null);
        recorder.Log(4, null);
        recorder.Leave(0, [], null);
        Assert.Equal(["1 Open() of nothing", "1 = null"], Seen());
        recorder.Enter(1, null, ["tea", 2], null);
        Assert.False(recorder.Fail(exception));
    }

    [Fact]
    public void TheFirstSeesTheBeginFirstAndTheEndLast()
    {
        Observe("a");
        Observe("b");
        recording.Enter(0);
        recording.Throw(exception);
        recording.Enter(0);
        Return(0);
        Assert.Equal(
            [
                "a1 Open() of nothing", "b1 Open() of nothing", "b1 ! no tea", "a1 ! no tea",
                "a2 Open() of nothing", "b2 Open() of nothing", "b2 = null", "a2 = null",
            ],
            Seen());
    }

    [Fact]
    public void AMethodIsChosenOnce()
    {
        Observe("a", method => method.Name == "Open");
        CallAll();
        CallAll();
        Assert.Equal(["a? Open", "a1 Open() of nothing", "a1 = null", "a? Count", "a2 Open() of nothing", "a2 = null"], seen);
        seen.Clear();
        var second = Observe("b", method => method.Name == "Count");
        CallAll();
        second.Dispose();
        CallAll();
        Assert.Equal(
            [
                "b? Open", "a3 Open() of nothing", "a3 = null", "b? Count", "b1 Count(tea, 2) of nothing", "b1 = null",
                "a4 Open() of nothing", "a4 = null",
            ],
            seen);

        void CallAll()
        {
            recording.Enter(0);
            Return(0);
            recording.Enter(1, "tea", 2);
            Return(1);
        }
    }

    // Of two methods that share a number, a call of the second one comes under the first one's name.
    [Fact]
    public void ACallThatCannotBeShownWholeIsNotShown()
    {
        Observe();
        recording.Enter(1, "tea");
        Return(1);
        recording.Enter(7);
        Return(7);
        Assert.Empty(Seen());
    }

    private sealed class Throws(Func<string, bool> when) : CallObserver
    {
        internal List<string> Ends { get; } = [];

        private void Throw(string where)
        {
            if (when(where))
            {
                throw new HostileException();
            }
        }

        public override bool Wants(MethodBase method)
        {
            Throw(nameof(Wants));
            return true;
        }

        public override object? OnBegin(MethodData method, object? receiver, IReadOnlyList<object?> arguments)
        {
            Throw(nameof(OnBegin));
            return null;
        }

        public override void OnEnd(object? state, object? result)
        {
            Ends.Add("end");
            Throw(nameof(OnEnd));
        }

        public override void OnError(object? state, Exception? exception)
        {
            Ends.Add("error");
            Throw(nameof(OnError));
        }
    }

    [Theory]
    [InlineData("Wants", 1, "")]
    [InlineData("OnBegin", 2, "")]
    [InlineData("OnEnd", 1, "end, error")]
    [InlineData("OnError", 1, "end, error")]
    [InlineData("nowhere", 0, "end, error")]
    public void WhatItThrowsIsCountedAndGoesNoFurther(string where, int failures, string ends)
    {
        var observer = new Throws(place => place == where);
        recording.Recorder.Observe(observer);
        Observe();
        recording.Enter(0);
        Return(0);
        recording.Enter(0);
        recording.Throw(exception);
        Assert.Equal(failures, recording.Recorder.Failures);
        Assert.Equal(ends, string.Join(", ", observer.Ends));
        Assert.Equal(["1 Open() of nothing", "1 = null", "2 Open() of nothing", "2 ! no tea"], Seen());
        Assert.Equal(2, recording.Calls.Recorded);
        Assert.Equal(0, Hostile.Calls);
    }

    private sealed class Calls(Action act) : CallObserver
    {
        public override bool Wants(MethodBase method)
        {
            act();
            return true;
        }

        public override object? OnBegin(MethodData method, object? receiver, IReadOnlyList<object?> arguments)
        {
            act();
            return null;
        }

        public override void OnEnd(object? state, object? result) => act();

        public override void OnError(object? state, Exception? exception) => act();
    }

    [Fact]
    public void WhatItCallsIsNeitherRecordedNorObserved()
    {
        var acts = 0;
        recording.Recorder.Observe(new Calls(() =>
        {
            acts++;
            recording.Enter(1, "tea", 2);
            Assert.False(recording.Recorder.Fail(exception));
            Return(1, 3);
        }));
        recording.Enter(0);
        Return(0);
        recording.Enter(0);
        recording.Throw(exception);
        Assert.Equal(5, acts);
        Assert.Equal(0, recording.Recorder.Failures);
        Assert.Equal(2, recording.Calls.Recorded);
    }

    private sealed class Counts : CallObserver
    {
        private int begun;
        private int ended;
        private int failed;

        internal (int Begun, int Ended, int Failed) Sum() => (begun, ended, failed);

        public override object? OnBegin(MethodData method, object? receiver, IReadOnlyList<object?> arguments)
        {
            Interlocked.Increment(ref begun);
            return this;
        }

        public override void OnEnd(object? state, object? result)
        {
            Assert.Same(this, state);
            Interlocked.Increment(ref ended);
        }

        public override void OnError(object? state, Exception? exception)
        {
            Assert.Same(this, state);
            Interlocked.Increment(ref failed);
        }
    }

    // Threads call and fail at every depth, where nothing is recorded, while observers come and go.
    [Fact]
    public void ObserversThatComeAndGoSeeWholeCalls()
    {
        const int Threads = 4;
        const int Rounds = 20_000;
        var recorder = new Recorder(recording.Methods, null, null);
        var observers = new List<Counts>();
        var isOver = false;
        using var start = new Barrier(Threads + 1);
        var threads = Enumerable.Range(0, Threads).Select(number => new Thread(() =>
        {
            var random = new Random(number);
            start.SignalAndWait();
            for (var round = 0; round < Rounds; round++)
            {
                CallDeep(random.Next(1, 6), random);
            }
        })).ToList();
        var registrar = new Thread(() =>
        {
            // The first one is there until it has seen something, however seldom this thread runs.
            using (Observe())
            {
                start.SignalAndWait();
                SpinWait.SpinUntil(() => observers[0].Sum() is { Ended: > 0, Failed: > 0 } || Volatile.Read(ref isOver));
            }
            while (!Volatile.Read(ref isOver))
            {
                using (Observe())
                {
                    Thread.Yield();
                }
            }
        });
        IDisposable Observe()
        {
            observers.Add(new Counts());
            return recorder.Observe(observers[^1]);
        }
        registrar.Start();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        Volatile.Write(ref isOver, true);
        registrar.Join();
        Assert.Equal(0, recorder.Failures);
        Assert.All(observers, observer => Assert.Equal(observer.Sum().Begun, observer.Sum().Ended + observer.Sum().Failed));
        Assert.Contains(observers, observer => observer.Sum().Ended > 0);
        Assert.Contains(observers, observer => observer.Sum().Failed > 0);

        // Whether an exception left the call.
        bool CallDeep(int depth, Random random)
        {
            recorder.Enter(0, null, [], new InstrumentationDirectives());
            var fails = (depth > 1 && CallDeep(depth - 1, random) && random.Next(2) == 0) || random.Next(4) == 0;
            if (fails)
            {
                recorder.Fail(exception);
            }
            recorder.Log(4, null);
            if (!fails)
            {
                recorder.Leave(0, [], null);
            }
            return fails;
        }
    }

    [Fact]
    public void WhereNobodyWantsTheMethodNothingIsAllocated()
    {
        var recorder = new Recorder(recording.Methods, null, null);
        recorder.Observe(new Notes([], wants: method => method.Name == "Count"));
        object?[] arguments = [];
        OwnWork.End(OwnWork.Begin()); // by another test at any moment, and the calls look for it from then on
        for (var round = 0; round < 2; round++)
        {
            var before = GC.GetAllocatedBytesForCurrentThread();
            for (var call = 0; call < 1000; call++)
            {
                recorder.Enter(0, null, arguments, null);
                recorder.Log(4, null);
                recorder.Leave(0, arguments, null);
            }
            if (round == 1)
            {
                Assert.Equal(0, GC.GetAllocatedBytesForCurrentThread() - before);
            }
        }
    }

    [Fact]
    public void AnObserverIsKeptNoLongerThanItsRegistration()
    {
        var reference = ObserveAndForget();
        for (var round = 0; round < 10 && reference.IsAlive; round++)
        {
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        Assert.False(reference.IsAlive);
        Assert.Equal(1, recording.Calls.Recorded);
    }

    [System.Runtime.CompilerServices.MethodImpl(System.Runtime.CompilerServices.MethodImplOptions.NoInlining)]
    private WeakReference ObserveAndForget()
    {
        var observer = new Counts();
        using (recording.Recorder.Observe(observer))
        {
            recording.Enter(0);
            Return(0);
        }
        Assert.Equal((1, 1, 0), observer.Sum());
        return new WeakReference(observer);
    }

    [Fact]
    public void ThereIsNoObserverWithoutAnObject() =>
        Assert.Throws<ArgumentNullException>(() => Invokers.AddObserver(null!));

    // Of a recorder that could not be made.
    [Fact]
    public void ARegistrationOfNothingIsTakenBack() => new ObserverRegistration(null, new Counts()).Dispose();

    [Theory]
    [InlineData("observe and return", 3, "begin Add, begin Name, end x, end 3")]
    [InlineData("observe and throw", null, "begin Add, begin Name, error on purpose, error on purpose")]
    public void AProgramObservesItsOwnCalls(string what, int? exitCode, string expected)
    {
        var run = ChildProgram.Run([what]);
        Assert.Equal(expected, string.Join(", ", run.Output.Skip(1)));
        if (exitCode != null)
        {
            Assert.Equal(exitCode, run.ExitCode);
        }
        else
        {
            Assert.NotEqual(0, run.ExitCode);
        }
    }
}
