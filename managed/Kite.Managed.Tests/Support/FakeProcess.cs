// A process with threads of a test's making, and the profiler in it. All members may be called from any thread.
using System;
using System.Collections.Generic;
using System.Linq;
using System.Threading;
using Corvane.Sampling;
using Corvane.Sampling.Platform;
using Xunit;

namespace Kite.Managed.Tests;

internal sealed class FakeProcess : IProfilerExports, IProcessThreads
{
    internal const uint Sampler = 1;
    internal const ulong Start = 1_700_000_000_000_000;

    private readonly object gate = new();
    private readonly List<FakeThread> threads = [];
    private readonly AutoResetEvent progress = new(false);
    private ulong now = Start;

    public uint CurrentId => Sampler;

    public ProcessorClock ProcessorClock { get; set; }

    // In a snapshot.
    internal void Jump(long microseconds) => now = (ulong)((long)now + microseconds);

    internal List<uint> Snapshots { get; } = [];

    internal List<double> Named { get; } = [];

    internal int Rounds { get; private set; }

    internal int OpenThreads { get; private set; }

    internal int SharpClocks { get; private set; }

    internal int SharpenedClocks { get; private set; }

    // Called with the number of each snapshot.
    internal Action<int> OnSnapshot { get; set; } = _ => { };

    // Whether the threads can be listed this time.
    internal Func<bool> OnList { get; set; } = () => true;

    internal Func<double, FunctionNames> NameOf { get; set; } = id => new FunctionNames("Type", $"F{id}");

    internal FakeThread Add(uint id, string? name = null, params double[] stack)
    {
        var thread = new FakeThread(id, name, stack);
        Do(() => threads.Add(thread));
        return thread;
    }

    internal void End(FakeThread thread) => Do(() =>
    {
        thread.HasEnded = true;
        threads.Remove(thread);
    });

    internal void Do(Action action)
    {
        lock (gate)
        {
            action();
        }
    }

    // Waits for rounds of snapshots that begin from now on and have ended.
    internal void WaitForRounds(int count = 1)
    {
        var until = int.MaxValue;
        Do(() => until = Rounds + count + 1);
        while (Rounds < until)
        {
            Assert.True(progress.WaitOne(30_000), "the sampler does not go on");
        }
    }

    // Waits until the threads have been listed for the first time.
    internal void WaitForLists()
    {
        while (Rounds == 0)
        {
            Assert.True(progress.WaitOne(30_000), "the sampler does not begin");
        }
    }

    internal Profile Sample(SamplerOptions? options = null, int rounds = 3)
    {
        using var sampler = NewSampler(options);
        sampler.Start();
        WaitForRounds(rounds);
        return sampler.Stop();
    }

    internal Sampler NewSampler(SamplerOptions? options = null) =>
        new(this, this, options ?? new SamplerOptions { Interval = SamplerOptions.MinInterval });

    public int TakeSnapshot(uint id, ref double[] functions, out int count, out ulong microseconds)
    {
        lock (gate)
        {
            Snapshots.Add(id);
            OnSnapshot(Snapshots.Count);
            count = 0;
            microseconds = 0;
            var thread = threads.Single(thread => thread.Id == id);
            if (thread.Failure != null)
            {
                throw thread.Failure;
            }
            if (thread.Status != 0)
            {
                return thread.Status;
            }
            if (functions.Length < thread.Stack.Length)
            {
                functions = new double[thread.Stack.Length];
            }
            thread.Stack.CopyTo(functions, 0);
            count = thread.Stack.Length;
            microseconds = now++;
            return 0;
        }
    }

    public FunctionNames[] GetFunctionNames(double[] functions)
    {
        lock (gate)
        {
            Named.AddRange(functions);
            return [.. functions.Select(NameOf)];
        }
    }

    public List<uint>? Ids()
    {
        lock (gate)
        {
            Rounds++;
            progress.Set();
            return OnList() ? [Sampler, .. threads.Select(thread => thread.Id)] : null;
        }
    }

    public IOpenThread? Open(uint id)
    {
        lock (gate)
        {
            var thread = threads.Find(thread => thread.Id == id);
            OpenThreads += thread == null ? 0 : 1;
            return thread == null ? null : new Opened(this, thread);
        }
    }

    public IDisposable? SharpenClock()
    {
        SharpClocks++;
        SharpenedClocks++;
        return new SharpClock(this);
    }

    private sealed class Opened(FakeProcess process, FakeThread thread) : IOpenThread
    {
        public bool HasEnded => thread.HasEnded;

        public string? Name => thread.Name;

        public ulong? ProcessorTime => thread.Uses?.Invoke();

        public TimeSpan? Used => thread.Used?.Invoke();

        public void Dispose() => process.Do(() => process.OpenThreads--);
    }

    private sealed class SharpClock(FakeProcess process) : IDisposable
    {
        public void Dispose() => process.SharpClocks--;
    }
}

internal sealed class FakeThread(uint id, string? name, double[] stack)
{
    internal uint Id => id;

    internal string? Name { get; set; } = name;

    // Innermost first.
    internal double[] Stack { get; set; } = stack;

    internal int Status { get; set; }

    internal Exception? Failure { get; set; }

    // What it has used of the processors by now.
    internal Func<ulong?>? Uses { get; set; }

    internal Func<TimeSpan?>? Used { get; set; }

    internal volatile bool HasEnded;
}
