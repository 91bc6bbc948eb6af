using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Threading;
using Corvane.Sampling;

/// <summary>A program that samples itself.</summary>
internal static class OwnSampler
{
    /// <summary>Appends what came of it to a file, for it is not the same without the profiler.</summary>
    public static void Run(string file)
    {
        try
        {
            File.AppendAllLines(file, Sample());
        }
        catch (InvalidOperationException exception)
        {
            File.AppendAllLines(file, [exception.Message]);
        }
    }

    /// <summary>Leaves a sampler running when the program ends.</summary>
    public static void Forget()
    {
        try
        {
            var sampler = new Sampler(new SamplerOptions { Interval = SamplerOptions.MinInterval });
            sampler.Start();
        }
        catch (InvalidOperationException)
        {
            // The run without the profiler.
        }
        Shares.Run(cycles: 1);
    }

    private static List<string> Sample()
    {
        using var sampler = new Sampler(new SamplerOptions
        {
            Interval = TimeSpan.FromMilliseconds(5),
            Filter = thread => thread.Name == "watched",
        });
        sampler.Start();
        var watched = new Thread(Shares.RunForASecond) { Name = "watched" };
        var other = new Thread(Shares.RunForASecond) { Name = "other" };
        watched.Start();
        other.Start();
        watched.Join();
        other.Join();
        Profile profile = sampler.Stop();
        IReadOnlyList<Sample> samples = profile.Threads[0].Samples;
        Sample spinning = samples.First(sample => sample.Stack?.Function?.MethodName == "Spin");
        return
        [
            profile.Failure?.ToString() ?? "no failure",
            string.Join(", ", profile.Threads.Select(thread => thread.Thread.Name)),
            IsOrdered(samples) ? "in order" : "not in order",
            (DateTime.UtcNow - samples[0].Time).Duration() < TimeSpan.FromMinutes(1) ? "now" : "at another time",
            string.Join(" ", spinning.Stack!.ToArray().Skip(spinning.Stack.Depth - 3).Select(f => f.Name)
                .Select(name => name.StartsWith("Shares.In", StringComparison.Ordinal) ? "Shares.In*" : name)),
            profile.Cost.Share is > 0 and <= 1 ? "cost" : profile.Cost.ToString(),
        ];
    }

    private static bool IsOrdered(IReadOnlyList<Sample> samples) =>
        samples.Zip(samples.Skip(1)).All(pair => pair.First.Microseconds <= pair.Second.Microseconds);
}
