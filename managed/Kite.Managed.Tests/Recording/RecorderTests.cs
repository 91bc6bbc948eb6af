// That what is called from anywhere neither throws nor comes in on itself.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Threading;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class RecorderTests
{
    private readonly RecordedCalls recording = new RecordedCalls().With(0, "Open").With(1, "Count");

    [Fact]
    public void WhatACallbackCallsIsNeitherRecordedNorShownToCallbacks()
    {
        var runs = 0;
        recording.Recorder.Callbacks.Add((_, _, _, _) =>
        {
            runs++;
            recording.Enter(1, "tea", 2);
            recording.Leave(1, 2);
            recording.Enter(0);
            Assert.False(recording.Recorder.Fail(new InvalidOperationException()));
            recording.Finally();
            recording.With(2, "Find");
        });
        recording.Enter(0);
        recording.Leave(0);
        Assert.Equal(1, runs);
        Assert.Equal(0, recording.Recorder.Failures);
        Assert.Null(recording.Methods.Find(2));
        Assert.Equal("Kite.Managed.Tests.Shop.Find", recording.With(2, "Find").Methods.Find(2)!.Name);
        Assert.Equal(["thread 1", "  Kite.Managed.Tests.Shop.Open()", "1 calls, 1 threads, 0 dropped"], recording.Tree());
    }

    [Fact]
    public void ACallbackThatThrowsIsCountedAndEndsNothing()
    {
        recording.Recorder.Callbacks.Add((_, _, _, directives) =>
        {
            directives.ReplaceArgument(1, 8);
            throw new HostileException();
        });
        recording.Recorder.Callbacks.Add((_, _, arguments, _) => arguments[0] = "coffee");
        var values = new object?[] { "tea", 2 };
        Assert.Equal([1], recording.Enter(1, values));
        Assert.Equal(["coffee", 8], values);
        recording.Leave(1, 8);
        Assert.Equal(
            [
                "thread 1", "  Kite.Managed.Tests.Shop.Count(kind: \"coffee\", more: 8) = 8",
                "1 calls, 1 threads, 0 dropped, 1 failures",
            ],
            recording.Tree());
        Assert.Equal(0, Hostile.Calls);
    }

    [Fact]
    public void NullsAreTaken()
    {
        recording.Recorder.Callbacks.Add(null);
        Assert.False(recording.Recorder.Callbacks.Remove(null));
        recording.Recorder.Register(5, null, traced: false);
        recording.Recorder.Enter(5, null, null, null);
        recording.Recorder.Leave(5, null, null);
        recording.Recorder.Log(0, null);
        Assert.False(recording.Recorder.Fail(null));
        Assert.Equal(["thread 1", "  method #5()", "1 calls, 1 threads, 0 dropped"], recording.Tree());
    }

    [Fact]
    public void WithoutAnythingToDoItIsIdle()
    {
        var idle = new Recorder(new MethodTable(), null, null);
        Assert.True(idle.IsIdle);
        Assert.False(idle.HasListeners);
        Assert.False(idle.Fail(new InvalidOperationException()));
        idle.Log(4, null);
        idle.Leave(0, [], null);
        MethodArgumentCallback callback = (_, _, _, _) => { };
        idle.Callbacks.Add(callback);
        Assert.False(idle.IsIdle);
        Assert.True(idle.HasListeners);
        Assert.True(idle.Callbacks.Remove(callback));
        Assert.True(idle.IsIdle);
        Assert.False(idle.HasListeners);
    }

    // The injected code of a method that an observer calls asks as well.
    [Fact]
    public void ItHasListenersOnceSomebodyObserves()
    {
        var observed = new Recorder(new MethodTable(), null, null);
        using (observed.Observe(new Silent()))
        {
            Assert.True(observed.HasListeners);
        }
        Assert.True(observed.HasListeners); // calls that were seen to begin have to end
        Assert.True(recording.Recorder.HasListeners);
    }

    [Fact]
    public void ARegistrationIsTakenBackAsOftenAsItWasMade()
    {
        var runs = 0;
        MethodArgumentCallback callback = (_, _, _, _) => runs++;
        recording.Recorder.Callbacks.Add(callback);
        recording.Recorder.Callbacks.Add(callback);
        recording.Enter(0);
        Assert.Equal(2, runs);
        Assert.True(recording.Recorder.Callbacks.Remove(callback));
        recording.Enter(0);
        Assert.Equal(3, runs);
        Assert.True(recording.Recorder.Callbacks.Remove(callback));
        Assert.False(recording.Recorder.Callbacks.Remove(callback));
        recording.Enter(0);
        Assert.Equal(3, runs);
    }

    // It may go on in threads of the program's, where calls are open.
    [Fact]
    public void OurOwnWorkNeitherBeginsNorEndsCalls()
    {
        recording.Enter(0);
        var before = OwnWork.Begin();
        recording.Enter(1, "tea", 2);
        recording.Leave(1, 2);
        recording.Leave(0);
        Assert.False(recording.Recorder.Fail(new InvalidOperationException()));
        OwnWork.End(before);
        Assert.Equal(1, recording.Calls.Recorded);
        Assert.Null(recording.Calls.Threads().Single().Root.FirstChild!.Elapsed);
        recording.Leave(0);
        Assert.NotNull(recording.Calls.Threads().Single().Root.FirstChild!.Elapsed);
    }

    // It waits for whoever prints its calls; it was meant to be interrupted when it waits for something of its own.
    [Fact]
    public void AThreadThatIsInterruptedInHereIsInterruptedInTheProgram()
    {
        using var folder = new TemporaryFolder();
        const string Variable = "KITE_MANAGED_TESTS_LOG";
        Environment.SetEnvironmentVariable(Variable, folder["log.txt"]);
        var log = new TraceLog(OutputTarget.FromVariable(Variable)!);
        var calls = new CallRecorder(recording.Methods, RecordedValues.All);
        var recorder = new Recorder(recording.Methods, calls, log);
        Interrupt(() => { }, () => log.Gate, () => recorder.Log(4, "lost"));
        Assert.Equal(0, recorder.Failures);
        Interrupt(
            () => recorder.Enter(0, null, [], null),
            () => calls.Threads().Single().Gate,
            () => recorder.Enter(0, null, [], null));
        Assert.Equal(1, recorder.Failures);
        Assert.EndsWith("kite.managed: System.Threading.ThreadInterruptedException", File.ReadAllLines(folder["log.txt"]).Single());
    }

    // As when what is printed takes long.
    [Fact]
    public void AnExceptionInHereKeepsNoLaterCallFromBeingRecorded()
    {
        object Gate() => recording.Calls.Threads().Single().Gate;
        Interrupt(
            () => recording.Enter(0),
            Gate,
            () => recording.Leave(0),
            () =>
            {
                Assert.Equal(1, recording.Recorder.Failures);
                recording.Enter(1, "tea", 2);
                recording.Leave(1, 2);
            });
        Assert.Equal("  Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) = 2", recording.Tree()[2]);
    }

    [Fact]
    public void AFailureInHereKeepsNoLaterOneFromBeingRecorded()
    {
        Interrupt(
            () => recording.Enter(0),
            () => recording.Calls.Threads().Single().Gate,
            () => Assert.False(recording.Recorder.Fail(null)),
            () =>
            {
                recording.Finally();
                recording.Enter(1, "tea", 2);
                recording.Throw(null);
            });
        Assert.Equal(1, recording.Recorder.Failures);
        Assert.Equal("  Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! unknown", recording.Tree()[2]);
    }

    private sealed class MethodOfNoModule() : FakeMethod(() => [])
    {
        public override Module Module => throw new NotSupportedException();
    }

    [Fact]
    public void AMethodThatCannotBeRegisteredIsCountedAndEndsNothing()
    {
        recording.Recorder.Register(5, new MethodOfNoModule(), traced: false);
        Assert.Equal(1, recording.Recorder.Failures);
        recording.With(5, "Find");
        Assert.Equal("Kite.Managed.Tests.Shop.Find", recording.Methods.Find(5)!.Name);
        recording.Enter(5, null, DayOfWeek.Monday);
        recording.Leave(5);
        Assert.Equal(["thread 1", "  Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) = null",
            "1 calls, 1 threads, 0 dropped, 1 failures"], recording.Tree());
    }

    [Fact]
    public void NoFailureIsLostWhenManyThreadsFail()
    {
        const int Threads = 8;
        const int Rounds = 5_000;
        recording.Recorder.Callbacks.Add((_, _, _, _) => throw onPurpose);
        using var start = new Barrier(Threads);
        var threads = Enumerable.Range(0, Threads).Select(number => new Thread(() =>
        {
            start.SignalAndWait();
            for (var round = 0; round < Rounds; round++)
            {
                if (number % 2 == 0)
                {
                    recording.Recorder.Log(0, "Failed on purpose");
                }
                else
                {
                    recording.Enter(0);
                }
            }
        })).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        Assert.Equal(Threads * Rounds, recording.Recorder.Failures);
    }

    private static readonly Exception onPurpose = new InvalidOperationException();

    // Interrupts a thread that waits for a lock in here.
    private static void Interrupt(Action before, Func<object> gate, Action action, Action? afterwards = null)
    {
        Exception? thrown = null;
        var isInterrupted = false;
        var isOnItsWay = false;
        using var isReady = new ManualResetEventSlim();
        using var isLocked = new ManualResetEventSlim();
        var thread = new Thread(() =>
        {
            before();
            isReady.Set();
            isLocked.Wait();
            Volatile.Write(ref isOnItsWay, true);
            try
            {
                action();
            }
            catch (Exception exception)
            {
                thrown = exception;
            }
            try
            {
                Thread.Sleep(Timeout.Infinite);
            }
            catch (ThreadInterruptedException)
            {
                isInterrupted = true;
            }
            try
            {
                afterwards?.Invoke();
            }
            catch (Exception exception)
            {
                thrown = exception;
            }
        });
        thread.Start();
        Assert.True(isReady.Wait(30_000));
        lock (gate())
        {
            isLocked.Set();
            Assert.True(SpinWait.SpinUntil(() => Volatile.Read(ref isOnItsWay), 30_000));
            Assert.True(SpinWait.SpinUntil(() => thread.ThreadState.HasFlag(ThreadState.WaitSleepJoin), 30_000));
            thread.Interrupt();
            Thread.Sleep(100);
        }
        Assert.True(thread.Join(30_000));
        Assert.Null(thrown);
        Assert.True(isInterrupted);
    }

    // It loads types, for which the program may be asked, in methods that are instrumented.
    [Fact]
    public void AMethodThatIsDescribedLateIsDescribedOnce()
    {
        var times = 0;
        var recorder = new Recorder(new MethodTable(), null, null);
        recorder.Callbacks.Add((_, _, _, _) => { });
        recorder.Register(0, new FakeMethod(() =>
        {
            times++;
            Call(recorder);
            return [];
        }), traced: false);
        Call(recorder);
        Assert.Equal(1, times);

        static void Call(Recorder recorder)
        {
            if (!recorder.IsIdle)
            {
                recorder.HasObjectReceiver(0);
            }
        }
    }

    // As when a callback ends the process, in whose course the tree is printed.
    [Fact]
    public void ACallbackMayEndTheProcess()
    {
        using var folder = new TemporaryFolder();
        const string Variable = "KITE_MANAGED_TESTS_TREE";
        Environment.SetEnvironmentVariable(Variable, folder["tree.txt"]);
        var recording = new RecordedCalls(outputs: new Recorder.Outputs { Tree = OutputTarget.FromVariable(Variable) }).With(0, "Open");
        recording.Enter(0);
        recording.Leave(0);
        recording.Recorder.Callbacks.Add((_, _, _, _) => recording.Recorder.Print());
        recording.Enter(0);
        Assert.Equal("1 calls, 1 threads, 0 dropped", File.ReadAllLines(folder["tree.txt"]).Last());
        recording.Leave(0);
        recording.Enter(0);
        recording.Leave(0);
        Assert.Equal("2 calls, 1 threads, 0 dropped", File.ReadAllLines(folder["tree.txt"]).Last());
    }

    [Theory]
    [InlineData(0, "Failed while attempting to invoke the emitted IL within the instruemented method's body. A.B::Prologue();", 1)]
    [InlineData(0, "[EmitRethrowErrorBlock] A.B::Catch N' Throw Failed while invoking Kite.Managed.span.Error", 1)]
    [InlineData(0, "[EmitRethrowErrorBlock] A.B::Catch N' Throw About to invoke Kite.Managed.span.Error()", 0)]
    [InlineData(4, "[Finally] A.B::Finally;", 0)]
    [InlineData(4, "Failed at another level", 0)]
    public void TraceLinesThatTellOfFailureAreCounted(int level, string text, int failures)
    {
        recording.Recorder.Log(level, text);
        Assert.Equal(failures, recording.Recorder.Failures);
    }

    [Fact]
    public void NothingThatIsRecordedIsKeptAlive()
    {
        var references = RecordCallsOfSomething();
        for (var round = 0; round < 10 && references.Any(reference => reference.IsAlive); round++)
        {
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        Assert.All(references, reference => Assert.False(reference.IsAlive));
        Assert.Equal("1 calls, 1 threads, 0 dropped", recording.Tree().Last());
    }

    [System.Runtime.CompilerServices.MethodImpl(System.Runtime.CompilerServices.MethodImplOptions.NoInlining)]
    private List<WeakReference> RecordCallsOfSomething()
    {
        var values = new object[] { new Stall(), new string('x', 10), new object(), new Exception(new string('y', 10)) };
        recording.With(2, "Serve");
        recording.EnterOn(values[0], 2, values[1], values[2]);
        recording.Throw((Exception)values[3]);
        return values.Select(value => new WeakReference(value)).ToList();
    }

    private sealed class Silent : CallObserver
    {
    }
}
