// A program that samples a part of its own run, and one of its threads. It refers to kite.managed.
//
//     corvane run -- sampler.exe samples
//
// Then open samples\the-work.svg with a browser: which functions did the thread run in?
using System;
using System.Threading;
using Corvane.Sampling;

namespace Primes;

internal static class Program
{
    private static int Main(string[] args)
    {
        var folder = args.Length > 0 ? args[0] : "samples";
        try
        {
            using var sampler = new Sampler(new SamplerOptions
            {
                Interval = TimeSpan.FromMilliseconds(5),
                Filter = thread => thread.Name == "worker",
            });
            sampler.Start();
            DoTheWork(sampler);
            Profile profile = sampler.Stop();
            profile.Save(folder, "the-work");
            Console.WriteLine(profile); // what it took
            return 0;
        }
        catch (InvalidOperationException exception)
        {
            // Without the profiler there is nothing to sample with. The message says what is missing.
            Console.Error.WriteLine(exception.Message);
            return 1;
        }
    }

    private static void DoTheWork(Sampler sampler)
    {
        var thread = new Thread(() =>
        {
            // What runs in a region is below a box of its name in the flame graph.
            using (sampler.Region("count"))
            {
                Count(3_000_000);
            }
            using (sampler.Region("search"))
            {
                Search(20_000_000);
            }
        }) { Name = "worker" };
        thread.Start();
        thread.Join();
    }

    private static int Count(int end)
    {
        var count = 0;
        for (var number = 2; number < end; number++)
        {
            count += IsPrime(number) ? 1 : 0;
        }
        return count;
    }

    private static int Search(int number)
    {
        for (var end = number + 600_000; number < end; number++)
        {
            if (IsPrime(number) && IsPrime(number + 2))
            {
                continue;
            }
        }
        return number;
    }

    private static bool IsPrime(int number)
    {
        for (var divisor = 2; divisor * divisor <= number; divisor++)
        {
            if (number % divisor == 0)
            {
                return false;
            }
        }
        return true;
    }
}
