using System;
using System.Collections.Generic;
using System.Linq;
using System.Threading;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class ArgumentCallbacksTests
{
    private const int Threads = 8;

    private readonly ArgumentCallbacks callbacks = new();
    private readonly List<string> ran = [];

    private MethodArgumentCallback Named(string name) => (_, _, _, _) => ran.Add(name);

    private string[] Run()
    {
        ran.Clear();
        callbacks.Run(new MethodData(0, null, false), null, [], new InstrumentationDirectives(), exception => throw exception);
        return [.. ran];
    }

    [Fact]
    public void OfEqualOnesTheLastIsTakenBack()
    {
        var (a, b) = (Named("a"), Named("b"));
        foreach (var callback in new[] { a, b, a })
        {
            callbacks.Add(callback);
        }
        Assert.Equal(["a", "b", "a"], Run());
        Assert.True(callbacks.Remove(a));
        Assert.Equal(["a", "b"], Run());
        Assert.True(callbacks.Remove(a));
        Assert.Equal(["b"], Run());
        Assert.False(callbacks.Remove(a));
    }

    [Fact]
    public void OneThatACallbackAddsRunsFromTheNextCallOn()
    {
        var late = Named("late");
        var isAdded = false;
        callbacks.Add((_, _, _, _) =>
        {
            if (!isAdded)
            {
                callbacks.Add(late);
                isAdded = true;
            }
        });
        callbacks.Add(Named("early"));
        Assert.Equal(["early"], Run());
        Assert.Equal(["early", "late"], Run());
    }

    [Fact]
    public void OneThatACallbackTakesBackRunsForTheLastTime()
    {
        var last = Named("last");
        callbacks.Add((_, _, _, _) => callbacks.Remove(last));
        callbacks.Add(last);
        Assert.Equal(["last"], Run());
        Assert.Empty(Run());
    }

    [Fact]
    public void NoneIsLostWhenManyThreadsRegister()
    {
        const int Rounds = 2000;
        var kept = Enumerable.Range(0, Threads).Select(number => Named($"{number}")).ToArray();
        using var start = new Barrier(Threads);
        var threads = kept.Select(callback => new Thread(() =>
        {
            start.SignalAndWait();
            for (var round = 0; round < Rounds; round++)
            {
                callbacks.Add(callback);
                callbacks.Add(callback);
                callbacks.Remove(callback);
                callbacks.Remove(callback);
            }
            callbacks.Add(callback);
        })).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        Assert.Equal(Enumerable.Range(0, Threads).Select(number => $"{number}"), Run().Order());
    }

    // Many threads seldom meet on a machine that has other work.
    [Fact]
    public void OneIsAddedAndTakenBackByOneThreadAtATime()
    {
        var only = Named("only");
        Assert.Empty(RunWhileAnother(() => callbacks.Add(only)));
        Assert.Equal(["only"], Run());
        Assert.Equal(["only"], RunWhileAnother(() => callbacks.Remove(only)));
        Assert.Empty(Run());
    }

    // What runs as long as another thread is kept from its change.
    private string[] RunWhileAnother(Action change)
    {
        string[] names;
        var thread = new Thread(() => change());
        lock (callbacks.Gate)
        {
            thread.Start();
            const ThreadState WaitsOrEnded = ThreadState.WaitSleepJoin | ThreadState.Stopped;
            Assert.True(SpinWait.SpinUntil(() => (thread.ThreadState & WaitsOrEnded) != 0, 30_000));
            names = Run();
        }
        thread.Join();
        return names;
    }
}
