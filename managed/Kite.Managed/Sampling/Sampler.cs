using System;
using System.Diagnostics;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Corvane.Sampling.Platform;

namespace Corvane.Sampling;

/// <summary>
/// Samples the managed stacks of this process's threads, on a thread of its own, which is not sampled. It
/// needs the profiler in the process. One sampler serves for one sampling; its members may be called from any
/// thread. When the process ends, it is stopped if nobody has done so.
/// </summary>
public sealed class Sampler : IDisposable
{
    // Far longer than it takes; but whatever happens, the process has to come to its end.
    internal static readonly TimeSpan Patience = TimeSpan.FromSeconds(10);
    private static readonly TimeSpan step = TimeSpan.FromMilliseconds(20);

    private readonly SamplingRun run;
    private readonly Thread thread;
    private readonly ManualResetEvent stop = new ManualResetEvent(false);
    private readonly object gate = new object();
    private volatile bool isInFilter;
    private bool isStarted;
    private AtExit? atExit;
    private Profile? profile;

    /// <summary>Makes a sampler, which does nothing before it is started.</summary>
    /// <param name="options">What is sampled, as it is now; null for the defaults.</param>
    /// <exception cref="InvalidOperationException">
    /// The profiler is not in this process; the message says why, and what to do.
    /// </exception>
    public Sampler(SamplerOptions? options = null)
        : this(ProfilerExports.Find(), new WindowsThreads(), options ?? new SamplerOptions())
    {
    }

    internal Sampler(IProfilerExports exports, IProcessThreads process, SamplerOptions options)
    {
        options = options.Copy();
        if (options.Filter is { } filter)
        {
            options.Filter = candidate => Ask(filter, candidate);
        }
        run = new SamplingRun(exports, process, options);
        thread = new Thread(Run)
        {
            Name = "Corvane sampler",
            IsBackground = true,
            Priority = ThreadPriority.AboveNormal,
        };
    }

    /// <summary>Begins to sample.</summary>
    /// <exception cref="InvalidOperationException">It was started before.</exception>
    public void Start()
    {
        lock (gate)
        {
            if (isStarted)
            {
                throw new InvalidOperationException("A sampler can be started once.");
            }
            SampledOperation.BeginToSample();
            try
            {
                thread.Start();
            }
            catch (Exception)
            {
                SampledOperation.EndToSample();
                throw;
            }
            isStarted = true;
            atExit = AtExit.Run(StopAtExit);
        }
    }

    /// <summary>
    /// Ends the sampling, which takes no longer than an interval and a snapshot, and gives what it showed;
    /// the same again if it had ended already. New functions are searched for in the loaded assemblies.
    /// </summary>
    /// <exception cref="InvalidOperationException">It was never started, or the filter calls it.</exception>
    public Profile Stop() => Stop(Timeout.InfiniteTimeSpan)!;

    /// <summary>
    /// Names what the program does from here until the result is disposed of: samples of the time say so, and have a level
    /// of their own in each result. It follows the flow of the program, through awaits, tasks and threads, and may be inside
    /// of another one. It serves every sampler.
    /// </summary>
    /// <param name="name">The name of the operation; an empty one is shown as "(no name)".</param>
    public IDisposable Region(string name) => new SampledRegion(SampledOperation.Enter(name ?? throw new ArgumentNullException(nameof(name))));

    /// <summary>Gives what the sampling has shown so far. It goes on.</summary>
    /// <exception cref="InvalidOperationException">It was never started.</exception>
    public Profile Read()
    {
        if (!IsStarted())
        {
            throw new InvalidOperationException("The sampler was not started.");
        }
        return run.Read();
    }

    /// <summary>Ends the sampling if it goes on.</summary>
    /// <exception cref="InvalidOperationException">The filter calls it.</exception>
    public void Dispose()
    {
        if (IsStarted())
        {
            Stop();
        }
    }

    // So long writing what was read has taken.
    internal void CountWriting(TimeSpan took) => run.CountWriting(took);

    // Null if it does not end in time.
    internal Profile? Stop(TimeSpan timeout)
    {
        if (Thread.CurrentThread == thread)
        {
            throw new InvalidOperationException("A sampler cannot be stopped by its own filter.");
        }
        if (!IsStarted())
        {
            throw new InvalidOperationException("The sampler was not started.");
        }
        stop.Set();
        // Whoever waits here keeps nobody from giving up sooner.
        if (!thread.Join(timeout))
        {
            return null;
        }
        lock (gate)
        {
            atExit?.Dispose();
            return profile ??= run.Read();
        }
    }

    // The system ends all other threads before it ends a process. A thread that is suspended by one of them
    // then stays so, and the process with it if that is the one that ends it.
    private void StopAtExit()
    {
        stop.Set();
        try
        {
            WaitAtExit();
        }
        catch (ThreadInterruptedException)
        {
            WaitAtExit(); // an interrupt comes once
        }
    }

    // A filter that ends the process does not return, on whatever thread this is. Nothing is suspended meanwhile.
    private void WaitAtExit()
    {
        var waiting = Stopwatch.StartNew();
        while (!isInFilter && waiting.Elapsed < Patience && !thread.Join(step))
        {
        }
    }

    private void Run()
    {
        run.Run(stop);
        SampledOperation.EndToSample();
    }

    private bool Ask(Func<SampledThread, bool> filter, SampledThread candidate)
    {
        isInFilter = true;
        try
        {
            return filter(candidate);
        }
        finally
        {
            isInFilter = false;
        }
    }

    private sealed class SampledRegion : IDisposable
    {
        private readonly SampledOperation operation;

        internal SampledRegion(SampledOperation operation) => this.operation = operation;

        public void Dispose() => operation.Leave();
    }

    private bool IsStarted()
    {
        lock (gate)
        {
            return isStarted;
        }
    }
}
