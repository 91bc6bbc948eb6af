using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Linq;
using Corvane.Sampling.Results;

namespace Corvane.Sampling;

/// <summary>What a sampling showed.</summary>
public sealed class Profile
{
    internal Profile(TimeSpan interval, IReadOnlyList<ThreadProfile> threads, SamplingCost cost, Exception? failure)
    {
        Interval = interval;
        Threads = threads;
        Cost = cost;
        Failure = failure;
    }

    private readonly object summing = new object();
    private List<(ThreadProfile, StackSums)>? sums;

    // Of so many samples a share of a tenth is known to some three in a hundred.
    private const int Enough = 100;

    /// <summary>The interval that was asked for.</summary>
    public TimeSpan Interval { get; }

    /// <summary>The threads of which there are snapshots, in the order of their first ones.</summary>
    public IReadOnlyList<ThreadProfile> Threads { get; }

    /// <summary>What the sampling took.</summary>
    public SamplingCost Cost { get; }

    /// <summary>What ended the sampling before it was stopped, such as a filter that threw; usually null.</summary>
    public Exception? Failure { get; }

    /// <summary>Writes folded stacks: a line for each, with its functions from the outermost on, and its samples.</summary>
    /// <param name="writer">Where to.</param>
    /// <param name="byThread">Whether each stack begins with its thread.</param>
    public void WriteFolded(TextWriter writer, bool byThread = true) =>
        FoldedStacks.Write(writer, StackTree.Of(this, byThread));

    /// <summary>Writes a file for speedscope: a profile for each thread, by time.</summary>
    /// <param name="writer">Where to.</param>
    /// <param name="title">What is shown as its name.</param>
    public void WriteSpeedscope(TextWriter writer, string title) => SpeedscopeFile.Write(writer, this, title);

    /// <summary>Writes a flame graph: an SVG file for any browser, which needs nothing beside it.</summary>
    /// <param name="writer">Where to.</param>
    /// <param name="title">What is shown above it.</param>
    /// <param name="byThread">Whether the threads are apart.</param>
    public void WriteFlameGraph(TextWriter writer, string title, bool byThread = true) =>
        FlameGraph.Write(writer, StackTree.Of(this, byThread), title, ToString(), new ThreadTimeline(this));

    /// <summary>
    /// Writes a flame graph of this profile and an earlier one, by what ran: red is what runs more than before, blue what
    /// runs less.
    /// </summary>
    /// <param name="writer">Where to.</param>
    /// <param name="title">What is shown above it.</param>
    /// <param name="before">The folded stacks of the earlier profile, as <see cref="WriteFolded"/> writes them, by thread.</param>
    /// <exception cref="InvalidDataException">That is something else.</exception>
    public void WriteDifference(TextWriter writer, string title, TextReader before)
    {
        var now = new StringWriter { NewLine = "\n" };
        WriteFolded(now);
        Difference.Write(writer, title, ToString(), before, new StringReader(now.ToString()));
    }

    /// <summary>
    /// Writes a file for pprof: the samples of each stack and their time, running and waiting. It is compressed.
    /// </summary>
    /// <param name="stream">Where to.</param>
    public void WritePprof(Stream stream) => PprofFile.Write(stream, this);

    /// <summary>
    /// Writes all of them: NAME.folded, NAME.speedscope.json, NAME.svg and NAME.pb.gz, in place of what is there. A file
    /// is replaced when the new one is whole. One that cannot be written keeps no other one from being written.
    /// </summary>
    /// <param name="folder">Where to; made if need be.</param>
    /// <param name="name">How they are named.</param>
    /// <exception cref="IOException">Some could not be written; the message names each.</exception>
    public void Save(string folder, string name)
    {
        var failures = TrySave(folder, name, null);
        if (failures.Count > 0)
        {
            throw new IOException(FileFailure.Text(failures), failures[0].Why);
        }
    }

    // With the difference from the folded stacks of an earlier run, if there are any. What could not be written.
    internal List<FileFailure> TrySave(string folder, string name, string? before)
    {
        var files = ProfileFormat.All.ToDictionary(
            format => format.Extension, format => (Action<Stream>)(stream => format.Write(this, name, stream)));
        if (before != null)
        {
            files.Add(".difference.svg", stream =>
            {
                using var reader = new StreamReader(before);
                using var writer = new StreamWriter(stream) { NewLine = "\n" };
                WriteDifference(writer, $"{name}, compared with {Path.GetFileNameWithoutExtension(before)}", reader);
            });
        }
        var failures = new List<FileFailure>();
        foreach (var file in files)
        {
            try
            {
                // It may vanish at any time.
                Directory.CreateDirectory(folder);
                WriteFile(Path.Combine(folder, name + file.Key), file.Value);
            }
            catch (Exception why)
            {
                failures.Add(new FileFailure(name + file.Key, why));
            }
        }
        return failures;
    }

    // By time.
    internal IReadOnlyList<GarbageCollections> Collections { get; set; } = [];

    // What the last sample of a thread stands for: a round.
    internal long LastMicroseconds =>
        Cost.Rounds == 0 ? 0 : Cost.Duration.Ticks / (TimeSpan.TicksPerMillisecond / 1000) / Cost.Rounds;

    // The time of the first sample of all.
    internal long Begin => Threads.Count == 0 ? 0 : Threads.Min(thread => thread.Samples[0].Microseconds);

    // Of each thread with managed code, what all formats but those over time are made of.
    internal IReadOnlyList<(ThreadProfile Thread, StackSums Sums)> Sums
    {
        get
        {
            lock (summing)
            {
                return sums ??= SumUp();
            }
        }
    }

    // Null if some managed code was seen.
    internal string? WhyEmpty
    {
        get
        {
            if (Sums.Count > 0)
            {
                return null;
            }
            var why = Failure != null ? $"sampling ended early by {Failure.GetType()}: {Failure.Message}"
                : Cost.Rounds == 0 ? "sampling ended before the first snapshot"
                : Cost.Failed > 0 ? "the calls of the profiler failed"
                : "no thread ran any, or its stack could not be walked";
            return $"no managed code was sampled: {why}";
        }
    }

    // Null if there is enough to compare shares.
    internal string? WhyLittle
    {
        get
        {
            var samples = Sums.Sum(thread => thread.Sums.Total.Samples.All);
            return samples >= Enough ? null
                : string.Format(CultureInfo.InvariantCulture, "that is too short to say anything: {0:N0} samples in all", samples);
        }
    }

    private List<(ThreadProfile, StackSums)> SumUp()
    {
        var operations = new OperationTable();
        return Threads.Select(thread => (thread, thread.SumUp(LastMicroseconds, operations)))
            .Where(thread => thread.Item2.Total.Samples.All > 0).ToList();
    }

    /// <summary>What it holds and took, as one sentence.</summary>
    public override string ToString() =>
        string.Format(
            CultureInfo.InvariantCulture,
            "{0} every {1:0.###} ms: {2}",
            Threads.Count == 1 ? "1 thread" : Threads.Count + " threads",
            Interval.TotalMilliseconds,
            Cost) +
        (Failure != null ? $"; ended early by {Failure.GetType()}: {Failure.Message}" : (WhyEmpty ?? WhyLittle) is { } why ? $"; {why}" : "");

    // Whole or not at all: what was there stays until the new one is written.
    private static void WriteFile(string path, Action<Stream> write)
    {
        var beside = path + ".new";
        try
        {
            using (var stream = new FileStream(beside, FileMode.Create, FileAccess.Write))
            {
                write(stream);
            }
            if (File.Exists(path))
            {
                File.Replace(beside, path, null);
            }
            else
            {
                File.Move(beside, path);
            }
        }
        finally
        {
            Discard(beside);
        }
    }

    private static void Discard(string file)
    {
        try
        {
            File.Delete(file);
        }
        catch (Exception)
        {
            // Its folder is gone, perhaps.
        }
    }
}
