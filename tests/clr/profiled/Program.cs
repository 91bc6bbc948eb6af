// The program that is profiled from outside: what it prints is the same with and without the profiler. Its
// argument says what it does.
using System;

internal static class Program
{
    private static int Main(string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        switch (args)
        {
            case ["shares"]:
                Shares.Run(cycles: 8);
                break;
            case ["crowd"]:
                Crowd.Run();
                break;
            case ["exit"]:
                Shares.Run(cycles: 1);
                Environment.Exit(4);
                break;
            case ["throw"]:
                Shares.Run(cycles: 1);
                throw new InvalidOperationException("on purpose");
            case ["own", var file]:
                OwnSampler.Run(file);
                break;
            default:
                return 1;
        }
        return 3;
    }
}
