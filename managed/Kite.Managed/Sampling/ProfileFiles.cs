using System;
using System.IO;
using System.Runtime.CompilerServices;
using System.Threading;
using Corvane.Instrumentation.Export;

namespace Corvane.Sampling;

// The files of a sampling that goes on: written again and again, so that a process that is killed leaves some, and at
// its end. They are written on a thread of ours and by whoever ends the sampling, one at a time.
internal sealed class ProfileFiles
{
    private readonly Sampler sampler;
    private readonly string folder;
    private readonly string name;
    private readonly string? before;
    private readonly Action<string, Exception?> complain;
    private readonly object writing = new object();
    private readonly ManualResetEvent ended = new ManualResetEvent(false);
    private bool hasComplained;

    // The difference from the folded stacks of another run, if there are any, is written as well.
    internal ProfileFiles(Sampler sampler, string folder, string name, Action<string, Exception?> complain, string? before = null)
    {
        this.before = before;
        this.sampler = sampler;
        this.folder = folder;
        this.name = name;
        this.complain = complain;
    }

    // The sampler is started within the first period. The thread has its name when this returns: it can be left out.
    internal void BeginToRenew(TimeSpan period)
    {
        using var begun = new ManualResetEventSlim();
        OwnThread.Start(
            "Corvane profiles",
            () =>
            {
                begun.Set();
                while (!ended.WaitOne(period))
                {
                    Write(sampler.Read);
                }
            },
            exception => complain("the files of samples will not be renewed", exception));
        begun.Wait();
    }

    internal void End()
    {
        ended.Set();
        if (Write(() => sampler.Stop(Sampler.Patience) ?? throw new TimeoutException("sampling did not end"))?.WhyEmpty is { } why)
        {
            complain(why, null);
        }
    }

    // What was written. That it could not be is said once: the next time it may.
    private Profile? Write(Func<Profile> read)
    {
        try
        {
            return Save(read);
        }
        catch (Exception exception)
        {
            if (!hasComplained)
            {
                hasComplained = true;
                complain($"not all samples were written to {folder}", exception);
            }
            return null;
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private Profile Save(Func<Profile> read)
    {
        // A renewal may hang at a folder of another machine.
        if (!Monitor.TryEnter(writing, Sampler.Patience))
        {
            throw new IOException("they are still being written");
        }
        try
        {
            var profile = read();
            profile.Save(folder, name);
            if (before != null)
            {
                profile.SaveDifference(folder, name, before);
            }
            return profile;
        }
        finally
        {
            Monitor.Exit(writing);
        }
    }
}
