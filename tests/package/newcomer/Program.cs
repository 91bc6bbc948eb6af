// A program that somebody has who hears of the profiler for the first time: nothing in it speaks of one.
using System;

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
        Weigh(name.Length * 50_000_000);
        return Items += count;
    }

    // Works long enough to be seen in a picture of samples.
    private static int Weigh(int rounds)
    {
        var sum = 0;
        for (var round = 0; round < rounds; round++)
        {
            sum = (sum * 31) + round;
        }
        return sum;
    }
}
