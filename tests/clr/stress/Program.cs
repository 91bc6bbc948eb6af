// Many threads compile and call marked methods at once, for as many seconds as CORVANE_STRESS_PROGRAM_SECONDS says. In
// every round an assembly is loaded anew, and all threads call all of its methods, each beginning with another
// one; then they call a method for type arguments that it was not compiled for yet. The calls of marked
// methods, with that of Main, are counted and written to the file CORVANE_STRESS_CALLS.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Runtime.Loader;
using System.Threading;

internal static class Program
{
    private const int ThreadCount = 8;

    private static int Main()
    {
        var seconds = Environment.GetEnvironmentVariable("CORVANE_STRESS_PROGRAM_SECONDS") ?? "1";
        var rounds = new Rounds(TimeSpan.FromSeconds(int.Parse(seconds, CultureInfo.InvariantCulture)));
        var callers = Enumerable.Range(0, ThreadCount).Select(number => new Caller(number, rounds)).ToList();
        using var barrier = new Barrier(ThreadCount, _ => rounds.Next());
        var threads = callers.Select(caller => new Thread(() => caller.Run(barrier))).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());

        if (Environment.GetEnvironmentVariable("CORVANE_STRESS_CALLS") is { } file)
        {
            File.WriteAllText(file, $"{callers.Sum(caller => caller.Calls) + 1} calls in {rounds.Count} rounds\n");
        }
        Console.WriteLine($"runtime {Environment.Version}");
        Console.WriteLine($"{callers.Sum(caller => caller.Mistakes)} wrong results");
        Console.WriteLine($"{rounds.Duplicates} duplicate references");
        return 42;
    }
}

// What all threads call in one round. Made by one of them while the others wait.
internal sealed class Rounds(TimeSpan length)
{
    private const int AssembliesAtOnce = 4;

    private readonly Stopwatch watch = Stopwatch.StartNew();
    private readonly Instances instances = new();
    private readonly Queue<Plugin> plugins = new();

    public int Count { get; private set; }

    public int Duplicates { get; private set; }

    public bool IsOver { get; private set; }

    // Of the last few assemblies, so that they are still called when they are compiled for the second time.
    public List<Func<int, DateTime, int>[]> Methods { get; private set; } = [];

    public Func<int, int>[] Generic { get; private set; } = [];

    public void Next()
    {
        IsOver = watch.Elapsed >= length;
        if (IsOver)
        {
            return;
        }
        Count++;
        plugins.Enqueue(new Plugin(stays: Count % 8 == 0));
        if (plugins.Count > AssembliesAtOnce)
        {
            var oldest = plugins.Dequeue();
            Duplicates += oldest.CountDuplicates();
            oldest.Unload();
        }
        Methods = plugins.Select(plugin => plugin.Methods).ToList();
        Generic = instances.Next();
    }
}

// The assembly, loaded once more. Most are unloaded again, so that calls outlive the methods that they were of.
internal sealed class Plugin
{
    private readonly AssemblyLoadContext context;
    private readonly Assembly assembly;

    public Plugin(bool stays)
    {
        context = new AssemblyLoadContext(null, isCollectible: !stays);
        assembly = context.LoadFromAssemblyPath(Path.Combine(AppContext.BaseDirectory, "plugin.dll"));
        Methods = assembly.GetType("Plugin")!.GetMethods()
            .Where(method => method.Name.StartsWith("Method", StringComparison.Ordinal))
            .OrderBy(method => method.Name, StringComparer.Ordinal)
            .Select(method => method.CreateDelegate<Func<int, DateTime, int>>()).ToArray();
    }

    public Func<int, DateTime, int>[] Methods { get; }

    // How many assemblies it refers to more than once. What was added to its metadata since it was loaded counts.
    public int CountDuplicates() =>
        assembly.GetReferencedAssemblies().GroupBy(name => name.FullName).Count(same => same.Count() > 1);

    public void Unload()
    {
        if (context.IsCollectible)
        {
            context.Unload();
        }
    }
}

internal sealed class Caller(int number, Rounds rounds)
{
    public long Calls { get; private set; }

    public int Mistakes { get; private set; }

    public void Run(Barrier barrier)
    {
        for (var round = 0; ; round++)
        {
            barrier.SignalAndWait();
            if (rounds.IsOver)
            {
                return;
            }
            foreach (var methods in rounds.Methods)
            {
                // In every other round all threads want the same method at the same time.
                var first = round % 2 == 0 ? number * methods.Length / 8 : 0;
                for (var i = 0; i < methods.Length; i++)
                {
                    Call(methods, (first + i) % methods.Length);
                }
            }
            foreach (var method in rounds.Generic)
            {
                Calls++;
                Mistakes += method(round) == round + 1 ? 0 : 1;
            }
            if (round % 8 == number)
            {
                CallInVain(rounds.Methods[0][number]);
            }
        }
    }

    private void Call(Func<int, DateTime, int>[] methods, int index)
    {
        for (var value = 0; value < 4; value++)
        {
            Calls++;
            Mistakes += methods[index](value, default) == value + index ? 0 : 1;
        }
    }

    private void CallInVain(Func<int, DateTime, int> method)
    {
        Calls++;
        try
        {
            method(-1, default);
            Mistakes++;
        }
        catch (ArgumentOutOfRangeException)
        {
            // as it should
        }
    }
}
