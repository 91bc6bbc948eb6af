// The program that the tests in a real runtime watch. It prints what it computed, so that a run
// under the profiler can be held against a plain one. Its first argument says how it ends: an exit
// code, or "throw" for an exception that nobody catches.
using System;
using System.Collections.Generic;
using System.Linq;
using System.Threading;
using System.Threading.Tasks;

internal static class Program
{
    private static int Main(string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        Console.WriteLine($"arguments {string.Join('|', args)}");
        Console.WriteLine($"primes {string.Join(' ', Primes(50))}");
        Console.WriteLine($"words {Words("the quick brown fox jumps over the lazy dog")}");
        Console.WriteLine($"caught {Caught()}");
        Console.WriteLine($"threads {Threads()}");
        switch (args.FirstOrDefault())
        {
            case "throw":
                throw new InvalidOperationException("nobody catches this");
            case { } text when int.TryParse(text, out int code):
                return code;
            default:
                return 0;
        }
    }

    private static IEnumerable<int> Primes(int below) =>
        Enumerable.Range(2, below - 2).Where(n => Enumerable.Range(2, n - 2).All(d => n % d != 0));

    private static string Words(string text) =>
        string.Join(',', text.Split(' ').GroupBy(w => w.Length).OrderBy(g => g.Key).Select(g => $"{g.Key}:{g.Count()}"));

    private static string Caught()
    {
        try
        {
            throw new InvalidOperationException("thrown");
        }
        catch (InvalidOperationException error)
        {
            return error.Message;
        }
    }

    private static int Threads()
    {
        int sum = 0;
        Task.WaitAll(Enumerable.Range(1, 4).Select(n => Task.Run(() => Interlocked.Add(ref sum, n))).ToArray<Task>());
        return sum;
    }
}
