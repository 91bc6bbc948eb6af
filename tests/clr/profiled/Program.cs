// The program that is profiled from outside: what it prints is the same with and without the profiler. Its
// argument says what it does.
using System;
using System.Globalization;
using System.Runtime.InteropServices;
using System.Threading;

internal static class Program
{
    private const uint NoCrashDialog = 2;

    private static int Main(string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        switch (args)
        {
            case ["shares", var cycles]:
                Shares.Run(int.Parse(cycles, CultureInfo.InvariantCulture));
                break;
            case ["waits", var file]:
                Waits.Run(file);
                break;
            case ["crowd"]:
                Crowd.Run();
                break;
            case ["exit"]:
                Shares.RunForASecond();
                Environment.Exit(4);
                break;
            case ["throw"]:
                SetErrorMode(NoCrashDialog);
                Shares.RunForASecond();
                var thrower = new Thread(() => throw new InvalidOperationException("on purpose"));
                thrower.Start();
                thrower.Join();
                break;
            case ["forgotten"]:
                OwnSampler.Forget();
                break;
            case ["own", var file]:
                OwnSampler.Run(file);
                break;
            case ["observed"]:
                Observed.Run();
                break;
            default:
                return 1;
        }
        return 3;
    }

    [DllImport("kernel32.dll")]
    private static extern uint SetErrorMode(uint mode);
}
