using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Runtime.CompilerServices;
using System.Threading;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Recording;
using Corvane.Sampling.Results;

namespace Corvane.Sampling;

// The files of a sampling that goes on: written again and again, so that a process that is killed leaves some, and at
// its end. They are written on a thread of ours and by whoever ends the sampling, one at a time. The larger a profile is
// the longer that takes, and the longer it is until the next time.
internal sealed class ProfileFiles
{
    // No larger part of the time goes by with writing.
    private const int WritingShare = 100;

    private readonly Sampler sampler;
    private readonly string folder;
    private readonly string name;
    private readonly string? before;
    private readonly Action<string, Exception?> complain;
    private readonly object writing = new object();
    private readonly ManualResetEvent ended = new ManualResetEvent(false);

    // The kinds of what failed, by file, since that was written for the last time. The empty name is that of all of them.
    private readonly Dictionary<string, HashSet<string>> complaints = new Dictionary<string, HashSet<string>>();

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
                for (var pause = period; !ended.WaitOne(pause);)
                {
                    pause = Pause(period, Renew());
                }
            },
            exception => complain("the files of samples will not be renewed", exception));
        begun.Wait();
    }

    // Writes them now, for a thread of the library.
    internal void Flush(Flushed flushed)
    {
        var failures = Write(sampler.Read, out _);
        if (failures.Count > 0)
        {
            flushed.Remarks.Add($"not all samples were written to {folder}: {FileFailure.Text(failures)}");
        }
        flushed.Files.AddRange(ProfileFormat.All.Select(format => name + format.Extension)
            .Where(file => !failures.Exists(failure => failure.File == file || failure.File.Length == 0))
            .Select(file => Path.Combine(folder, file)));
    }

    internal void End()
    {
        ended.Set();
        Write(() => sampler.Stop(Sampler.Patience) ?? throw new TimeoutException("sampling did not end"), out var profile);
        if (profile?.WhyEmpty is { } why)
        {
            complain(why, null);
        }
    }

    internal static TimeSpan Pause(TimeSpan period, TimeSpan writing) =>
        TimeSpan.FromTicks(Math.Max(period.Ticks, WritingShare * writing.Ticks));

    // How long it took.
    internal TimeSpan Renew()
    {
        var writing = Stopwatch.StartNew();
        Write(() => ended.WaitOne(0) ? null : sampler.Read(), out _); // what was written at the end is the last
        var took = writing.Elapsed;
        sampler.CountWriting(took);
        return took;
    }

    // What could not be written; `profile` is what was to be, null for nothing.
    private List<FileFailure> Write(Func<Profile?> read, out Profile? profile)
    {
        Profile? taken = null;
        List<FileFailure> failures;
        try
        {
            failures = Save(() => taken = read());
        }
        catch (Exception exception)
        {
            failures = new List<FileFailure> { new FileFailure("", exception) };
        }
        profile = taken;
        Complain(failures);
        return failures;
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private List<FileFailure> Save(Func<Profile?> read)
    {
        // A renewal may hang at a folder of another machine.
        if (!Monitor.TryEnter(writing, Sampler.Patience))
        {
            throw new IOException("they are still being written");
        }
        try
        {
            return read()?.TrySave(folder, name, before) ?? new List<FileFailure>();
        }
        finally
        {
            Monitor.Exit(writing);
        }
    }

    // Once of each kind and file, until that could be written.
    private void Complain(List<FileFailure> failures)
    {
        List<FileFailure> unsaid;
        lock (complaints)
        {
            foreach (var file in complaints.Keys.Where(file => failures.All(failure => failure.File != file && failure.File.Length > 0)).ToList())
            {
                complaints.Remove(file);
            }
            unsaid = failures.Where(failure => KindsOf(failure.File).Add(failure.Kind)).ToList();
        }
        if (unsaid.Count > 0)
        {
            complain($"not all samples were written to {folder}", unsaid[0].File.Length == 0 ? unsaid[0].Why : new IOException(FileFailure.Text(unsaid), unsaid[0].Why));
        }
    }

    private HashSet<string> KindsOf(string file)
    {
        if (!complaints.TryGetValue(file, out var kinds))
        {
            complaints.Add(file, kinds = new HashSet<string>());
        }
        return kinds;
    }
}
