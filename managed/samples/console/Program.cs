// A console program to begin with. It knows nothing of the profiler, but for an attribute of its own.
//
//     corvane run --tree --values all -- console.exe         shows its calls with their values
//     corvane run --flame flame.svg -- console.exe 5         goes on for 5 seconds, and shows where they go
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Globalization;
using System.Linq;
using System.Security.Cryptography;
using System.Text;
using System.Text.Json;
using Corvane.Instrumentation;

namespace Orders
{
    internal static class Program
    {
        // A static Main is always seen.
        private static int Main(string[] args)
        {
            var text = args.Length > 0 ? args[0] : "";
            _ = double.TryParse(text, NumberStyles.Float, CultureInfo.InvariantCulture, out var seconds);
            var clock = Stopwatch.StartNew();
            var shop = new Shop();
            foreach (var (item, count) in new[] { ("tea", 2), ("cake", 1), ("moon", 1) })
            {
                try
                {
                    Console.WriteLine($"{count} x {item} costs {shop.Order(item, count)} cents.");
                }
                catch (ArgumentException)
                {
                    Console.WriteLine($"There is no {item}.");
                }
            }
            while (clock.Elapsed.TotalSeconds < seconds)
            {
                shop.Order("tea", 1);
            }
            return 0;
        }
    }

    internal sealed class Shop
    {
        private readonly List<(string Item, int Distance)> shelves = new();

        internal Shop()
        {
            for (var number = 0; number < 1000; number++)
            {
                shelves.Add((number % 3 == 0 ? "tea" : "cake", number * 7919 % 1000));
            }
        }

        // This one and Sign are seen because they are marked. The others are not, unless their names are given:
        // corvane run --method "Orders.Shop.*" --tree -- console.exe
        [Trace]
        internal int Order(string item, int count)
        {
            var total = count * PriceOf(item);
            var shelf = Find(item);
            Sign(JsonSerializer.Serialize(new { item, count, total, shelf }), total);
            return total;
        }

        private int Find(string item) =>
            shelves.Where(shelf => shelf.Item == item).OrderBy(shelf => shelf.Distance).First().Distance;

        [Trace]
        private static string Sign(string order, int total)
        {
            var sum = Encoding.UTF8.GetBytes(order + total);
            for (var round = 0; round < 10; round++)
            {
                sum = SHA256.HashData(sum);
            }
            return Print(sum);
        }

        private static int PriceOf(string item) => item switch
        {
            "tea" => 250,
            "cake" => 320,
            _ => throw new ArgumentException("nobody sells this", nameof(item)),
        };

        private static string Print(byte[] bytes)
        {
            var text = new StringBuilder();
            foreach (var value in bytes)
            {
                text.Append(value.ToString("x2", CultureInfo.InvariantCulture));
            }
            return text.ToString();
        }
    }
}

// The profiler looks for an attribute of this name, whoever declares it. So no reference is needed.
namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method | AttributeTargets.Constructor)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}
