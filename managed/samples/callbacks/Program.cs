// A program that watches its own calls, and changes an argument of one. It refers to kite.managed.
//
//     corvane run --summary summary.txt -- callbacks.exe
//
// Without the profiler it runs as well: then nothing is watched and nothing changed.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Reflection;
using Corvane.Instrumentation;

namespace Shop;

internal static class Program
{
    private static void Main()
    {
        Invokers.AddArgumentCallback((method, receiver, arguments, directives) =>
        {
            if (method.Name == "Shop.Cart.Add" && (int)arguments[1]! > 100)
            {
                directives.ReplaceArgument(1, 100);
            }
        });
        using IDisposable observing = Invokers.AddObserver(new Slow());
        var cart = new Cart();
        cart.Add("tea", 2);
        cart.Add("cake", 1000);
        try
        {
            cart.Add("", 1);
        }
        catch (ArgumentException)
        {
            Console.WriteLine("refused");
        }
        Console.WriteLine($"{cart.Count} things are in the cart.");
    }
}

internal sealed class Cart
{
    internal int Count { get; private set; }

    [Trace]
    internal void Add(string name, int count)
    {
        if (name.Length == 0)
        {
            throw new ArgumentException("it has no name", nameof(name));
        }
        Count += count;
    }
}

internal sealed class Slow : CallObserver
{
    public override bool Wants(MethodBase method) => method.DeclaringType == typeof(Cart);

    public override object? OnBegin(MethodData method, object? receiver, IReadOnlyList<object?> arguments) =>
        Stopwatch.StartNew();

    public override void OnEnd(object? state, object? result) => Note((Stopwatch)state!, "returned");

    public override void OnError(object? state, Exception? exception) => Note((Stopwatch)state!, "failed");

    private static void Note(Stopwatch clock, string end) =>
        Console.WriteLine(clock.Elapsed < TimeSpan.FromSeconds(30) ? $"Add {end}" : $"Add {end}, slowly");
}
