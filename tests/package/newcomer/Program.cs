// A program that somebody has who hears of the profiler for the first time: nothing in it speaks of one.
using System;
using System.Diagnostics;

namespace Newcomer;

internal static class Program
{
    private static int Main(string[] args)
    {
        var cart = new Cart();
        cart.Add("tea", 2);
        cart.Add("cake", 1);
        Console.WriteLine($"{cart.Items} items.");
        return args.Length;
    }
}

internal sealed class Cart
{
    internal int Items { get; private set; }

    internal int Add(string name, int count)
    {
        Weigh(TimeSpan.FromMilliseconds(300));
        return Items += count;
    }

    // Works for so long of the processor's own time, as it is seen in a picture of samples.
    private static void Weigh(TimeSpan time)
    {
        for (var watch = Stopwatch.StartNew(); watch.Elapsed < time;)
        {
        }
    }
}
