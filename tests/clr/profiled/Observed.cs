// Calls on several threads, and an observer that counts them: each begin is to have one end, on its thread.
using System;
using System.Collections.Generic;
using System.Linq;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;

internal static class Observed
{
    private const int Threads = 4;
    private const int Rounds = 250;

    // Says what was seen, if anything was.
    public static void Run()
    {
        CallAll(); // two methods that are compiled at the same moment may share a number
        var counts = new Counts();
        using (Invokers.AddObserver(counts))
        {
            var threads = Enumerable.Range(0, Threads).Select(_ => new Thread(CallAll)).ToList();
            threads.ForEach(thread => thread.Start());
            threads.ForEach(thread => thread.Join());
        }
        CallAll();
        if (counts.Begun > 0)
        {
            Console.WriteLine(
                $"begun {counts.Begun}, ended {counts.Ended}, failed {counts.Failed}, wrong {counts.Wrong}");
        }
    }

    private static void CallAll()
    {
        for (var round = 0; round < Rounds; round++)
        {
            ObservedCalls.Chain(3);
            try
            {
                ObservedCalls.Fail(2);
            }
            catch (InvalidOperationException)
            {
            }
            ObservedCalls.Catch();
            try
            {
                ObservedCalls.FailLater().Wait();
            }
            catch (AggregateException)
            {
            }
        }
    }

    private sealed class Counts : CallObserver
    {
        private int begun;
        private int ended;
        private int failed;
        private int wrong;

        public int Begun => begun;

        public int Ended => ended;

        public int Failed => failed;

        public int Wrong => wrong;

        public override bool Wants(MethodBase method) => method.DeclaringType == typeof(ObservedCalls);

        public override object? OnBegin(MethodData method, object? receiver, IReadOnlyList<object?> arguments)
        {
            Interlocked.Increment(ref begun);
            Check(method.Method?.GetParameters().Length == arguments.Count);
            return new State { Thread = Environment.CurrentManagedThreadId, Fails = method.Name == "ObservedCalls.Fail" };
        }

        public override void OnEnd(object? state, object? result)
        {
            Interlocked.Increment(ref ended);
            Check(IsFirstEnd(state, fails: false));
        }

        public override void OnError(object? state, Exception? exception)
        {
            Interlocked.Increment(ref failed);
            Check(IsFirstEnd(state, fails: true) && exception is InvalidOperationException);
        }

        private static bool IsFirstEnd(object? state, bool fails) =>
            state is State call && call.Fails == fails && call.Thread == Environment.CurrentManagedThreadId &&
            Interlocked.Exchange(ref call.Ends, 1) == 0;

        private void Check(bool holds)
        {
            if (!holds)
            {
                Interlocked.Increment(ref wrong);
            }
        }
    }

    private sealed class State
    {
        public int Thread;
        public bool Fails;
        public int Ends;
    }
}

internal static class ObservedCalls
{
    // Four calls of 3.
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static int Chain(int depth) => depth == 0 ? 0 : 1 + Chain(depth - 1);

    // Three calls of 2.
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static void Fail(int depth)
    {
        if (depth == 0)
        {
            throw new InvalidOperationException("on purpose");
        }
        try
        {
            Fail(depth - 1);
        }
        finally
        {
            GC.KeepAlive(depth);
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    public static void Catch()
    {
        try
        {
            Fail(0);
        }
        catch (InvalidOperationException)
        {
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    public static async Task FailLater()
    {
        await Task.Yield();
        throw new InvalidOperationException("later");
    }
}
