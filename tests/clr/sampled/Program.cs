// The program that is sampled: it takes snapshots of its own threads through the profiler that it runs
// under, and prints what they show. Its argument says which.
using System;
using System.Globalization;

internal static class Program
{
    private static int Main(string[] args)
    {
        Sampler.Bind();
        if (args[0] == "start")
        {
            Races.SampleThisThread();
        }
        Console.WriteLine($"runtime {Environment.Version}");
        int count = args.Length > 1 ? int.Parse(args[1], CultureInfo.InvariantCulture) : 0;
        switch (args[0])
        {
            case "chains":
                Chains.PrintAll();
                break;
            case "failures":
                Failures.ShowAll();
                break;
            case "attach":
                Attaching.SampleAfterwards();
                break;
            case "no functions":
                Unloading.NumbersThatAreNoFunctions();
                break;
            case "unloaded":
                Unloading.FunctionsThatAreUnloaded();
                break;
            case "unloading":
                Unloading.WhileItIsUnloaded(count);
                break;
            case "short-lived":
                Races.ThreadsThatHardlyLive(count);
                break;
            case "threads":
                Races.ThreadsThatComeAndGo(count);
                break;
            case "samplers":
                Races.TwoSamplers(count);
                break;
            case "allocating":
                Races.Allocating(count);
                break;
            case "collecting":
                Races.Collecting(count);
                break;
            case "start":
                Races.WhileItStarts();
                break;
            case "end":
                Races.UntilItEnds();
                break;
            case "endurance":
                Races.Endurance(count);
                break;
            default:
                return 1;
        }
        return 3;
    }
}
