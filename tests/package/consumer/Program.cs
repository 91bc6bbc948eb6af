// A program that takes the packages: a method with the trace attribute, and the sampler in its own code.
using System;
using System.Diagnostics;
using System.Linq;
using Corvane.Instrumentation;
using Corvane.Sampling;

namespace Consumer;

internal static class Program
{
    private static void Main()
    {
        using var sampler = new Sampler(new SamplerOptions { Interval = TimeSpan.FromMilliseconds(5) });
        sampler.Start();
        Console.WriteLine($"Brewed {Kitchen.Brew("tea", 3)} cups.");
        var profile = sampler.Stop();
        var seen = profile.Threads.SelectMany(thread => thread.Samples)
            .Any(sample => sample.Stack?.ToArray().Any(function => function.Name == "Consumer.Kitchen.Boil") == true);
        Console.WriteLine(seen ? "Boiling was sampled." : "Boiling was not sampled.");
    }
}

internal static class Kitchen
{
    [Trace]
    internal static int Brew(string kind, int cups)
    {
        Boil(TimeSpan.FromMilliseconds(500));
        return kind.Length > 0 ? cups : 0;
    }

    private static void Boil(TimeSpan time)
    {
        for (var watch = Stopwatch.StartNew(); watch.Elapsed < time;)
        {
        }
    }
}
