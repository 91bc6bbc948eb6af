using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Threading;
using Corvane.Sampling;

/// <summary>A program that samples itself.</summary>
internal static class OwnSampler
{
    /// <summary>Writes what came of it to a file, for it is not the same without the profiler.</summary>
    public static void Run(string file)
    {
        try
        {
            File.WriteAllLines(file, Sample());
        }
        catch (InvalidOperationException exception)
        {
            File.WriteAllText(file, exception.Message);
        }
    }

    private static IEnumerable<string> Sample()
    {
        var options = new SamplerOptions
        {
            Interval = TimeSpan.FromMilliseconds(5),
            Filter = thread => thread.Name == "watched",
        };
        using var sampler = new Sampler(options);
        sampler.Start();
        var watched = new Thread(() => Shares.Run(cycles: 1)) { Name = "watched" };
        var other = new Thread(() => Shares.Run(cycles: 1)) { Name = "other" };
        watched.Start();
        other.Start();
        watched.Join();
        other.Join();
        long stopping = Environment.TickCount64;
        Profile profile = sampler.Stop();
        yield return Environment.TickCount64 - stopping < 1000 ? "stopped" : "took long to stop";
        yield return profile.Failure?.ToString() ?? "no failure";
        yield return string.Join(", ", profile.Threads.Select(thread => thread.Thread.Name));
        ThreadProfile only = profile.Threads[0];
        yield return only.Samples.Count > 50 ? "samples" : $"{only.Samples.Count} samples";
        yield return IsOrdered(only.Samples) ? "in order" : "not in order";
        yield return DateTime.UtcNow - only.Samples[0].Time < TimeSpan.FromMinutes(1) ? "now" : "at another time";
        Sample spinning = only.Samples.First(sample => sample.Stack?.Function?.MethodName == "Spin");
        yield return string.Join(" ", spinning.Stack!.ToArray().Select(function => function.Name).SkipWhile(
            name => name != "Shares.Run").Take(1));
        yield return profile.Cost.Share is > 0 and < 1 ? "cost" : profile.Cost.ToString();
        Console.Error.WriteLine(profile);
    }

    private static bool IsOrdered(IReadOnlyList<Sample> samples) =>
        samples.Zip(samples.Skip(1)).All(pair => pair.First.Microseconds < pair.Second.Microseconds);
}
