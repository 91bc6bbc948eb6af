// What corvane.exe starts in tests: shows what reached it, ends as it is asked to, and starts others.
using System;
using System.Collections;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;

internal static class Program
{
    private static int Main(string[] args)
    {
        // Of a console there may be none.
        Console.SetOut(new StreamWriter(Console.OpenStandardOutput()) { AutoFlush = true });
        return args.FirstOrDefault() switch
        {
            "echo" => Echo(args),
            "input" => Input(),
            "code" => unchecked((int)uint.Parse(args[1])),
            "sum" => Sum("ten letters", 16),
            "variables" => Variables(),
            "wait" => Wait(args[1], 600),
            "work" => WorkOn(args[1]),
            "busy" => KeepPoolBusy(args[1]),
            "interrupt" => Interrupt(args[1]),
            "inlined" => ShowInlining(),
            "killed" => Killed(),
            "violate" => Violate(),
            "throw" => throw new InvalidOperationException("on purpose"),
            "fail" => Fail(),
            "parent" => Parent(args[1], args[2..]),
            "leave" => Leave(args[1], args[2]),
            { } assembly when assembly.EndsWith(".dll", StringComparison.Ordinal) => Echo(args), // as dotnet.exe
            _ => 0,
        };
    }

    private static int Echo(string[] args)
    {
        foreach (var arg in args)
        {
            Console.WriteLine($"[{arg}]");
        }
        Console.WriteLine($"in {Environment.CurrentDirectory}");
        Console.Error.WriteLine("an error");
        return 5;
    }

    private static int Input()
    {
        Console.WriteLine($"read {string.Join('|', Console.In.ReadToEnd().Split("\r\n", StringSplitOptions.RemoveEmptyEntries))}");
        return 0;
    }

    // Long enough for samples, also where others take most of the processors' time.
    private static int Sum(string name, int count)
    {
        using var process = Process.GetCurrentProcess();
        var before = process.TotalProcessorTime;
        while (process.TotalProcessorTime - before < TimeSpan.FromMilliseconds(300))
        {
            process.Refresh();
        }
        Console.WriteLine(name.Length + count);
        return 3;
    }

    // Those that a profiler or a start-up hook is asked for with, and those of this project.
    private static int Variables()
    {
        var found = Environment.GetEnvironmentVariables().Cast<DictionaryEntry>()
            .Select(entry => $"{entry.Key}={entry.Value}")
            .Where(text => text.StartsWith("COR", StringComparison.Ordinal) || text.StartsWith("DOTNET_STARTUP", StringComparison.Ordinal))
            .Order(StringComparer.Ordinal);
        Console.WriteLine($"variables: {string.Join("; ", found)}");
        return 0;
    }

    // For ten minutes at most.
    private static int WorkOn(string file)
    {
        var begin = Environment.TickCount64;
        for (var round = 0; Environment.TickCount64 - begin < 600_000; round++)
        {
            Work(20);
            if (round == 3)
            {
                File.WriteAllText(file, Environment.ProcessId.ToString());
            }
        }
        return 1;
    }

    // Nearly all of it in its own code: a stack cannot be walked in the runtime's.
    private static int Work(int milliseconds)
    {
        var sum = 0;
        for (var begin = Environment.TickCount64; Environment.TickCount64 - begin < milliseconds;)
        {
            for (var number = 0; number < 100_000; number++)
            {
                sum += number;
            }
        }
        return sum;
    }

    private static int Wait(string file, int seconds)
    {
        File.WriteAllText(file, Environment.ProcessId.ToString());
        Thread.Sleep(TimeSpan.FromSeconds(seconds));
        return 1;
    }

    // None of its threads has time for anything else.
    private static int KeepPoolBusy(string file)
    {
        ThreadPool.SetMaxThreads(Environment.ProcessorCount, Environment.ProcessorCount);
        for (var item = 0; item < 100; item++)
        {
            ThreadPool.QueueUserWorkItem(_ => Thread.Sleep(Timeout.Infinite));
        }
        return Wait(file, 120);
    }

    private static int Interrupt(string file)
    {
        using var interrupted = new ManualResetEventSlim();
        Console.CancelKeyPress += (_, e) =>
        {
            e.Cancel = true;
            interrupted.Set();
        };
        File.WriteAllText(file, Environment.ProcessId.ToString());
        return interrupted.Wait(TimeSpan.FromMinutes(10)) ? 23 : 1;
    }

    private static int ShowInlining()
    {
        Console.WriteLine($"this is {NameOfThis()}");
        return 0;
    }

    [MethodImpl(MethodImplOptions.AggressiveInlining)]
    private static string NameOfThis() => new StackFrame(0).GetMethod()!.Name;

    // In a thread that the runtime knows nothing of.
    private static int Violate()
    {
        CreateThread(0, 0, 0x1000, 0, 0, out _);
        Thread.Sleep(TimeSpan.FromMinutes(10));
        return 1;
    }

    [DllImport("kernel32")]
    private static extern nint CreateThread(nint attributes, nuint stack, nint start, nint argument, uint flags, out uint id);

    private static int Fail()
    {
        Environment.FailFast("on purpose");
        return 1;
    }

    private static int Killed()
    {
        Process.GetCurrentProcess().Kill();
        return 1;
    }

    private static int Parent(string program, string[] arguments)
    {
        Variables();
        using var child = Process.Start(new ProcessStartInfo(program, arguments) { UseShellExecute = false })!;
        child.WaitForExit();
        Console.WriteLine($"the child ended with {child.ExitCode}");
        return 0;
    }

    // The child goes on when this has ended.
    private static int Leave(string program, string file)
    {
        using var child = Process.Start(new ProcessStartInfo(program, ["wait", file]) { UseShellExecute = false })!;
        while (!File.Exists(file))
        {
            Thread.Sleep(20);
        }
        return 0;
    }
}
