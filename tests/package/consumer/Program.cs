// A program that takes the packages: a method with the trace attribute, and the sampler in its own code.
using System;
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
        return Boil(kind.Length * 100_000_000) == 0 ? 0 : cups;
    }

    private static int Boil(int rounds)
    {
        var sum = 0;
        for (var round = 0; round < rounds; round++)
        {
            sum = (sum * 31) + round;
        }
        return sum;
    }
}
