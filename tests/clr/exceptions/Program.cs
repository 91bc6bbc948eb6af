// Exceptions on their way through instrumented methods. Prints all that a program can see of them; whoever runs it
// compares that with a run in which nothing is instrumented.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Runtime.CompilerServices;
using System.Runtime.ExceptionServices;
using System.Runtime.InteropServices;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}

internal static class Program
{
    private const uint NoCrashDialog = 2;

    [DllImport("kernel32.dll")]
    private static extern uint SetErrorMode(uint mode);

    private static int Main(string[] arguments)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        // Nobody is there to be asked about a crash.
        SetErrorMode(NoCrashDialog);
        var firstChances = new List<string>();
        AppDomain.CurrentDomain.FirstChanceException += (_, raised) => firstChances.Add(raised.Exception.GetType().Name);
        switch (arguments[0])
        {
            case "deep": Deep.Run(int.Parse(arguments[1])); break;
            case "order": Order.Run(); break;
            case "again": Again.Run(); break;
            case "finally": Finally.Run(); break;
            case "filters": Filters.Run(); break;
            case "objects": ThrownObjects.Run(); break;
            case "async": Chains.Run(); break;
            case "unhandled": Unhandled.Run(); break;
            case "unhandled-elsewhere": Unhandled.RunElsewhere(); break;
            case "unhandled-object": Objects.Throw("thrown"); break;
            default: return 99;
        }
        Console.WriteLine($"{firstChances.Count} first chances");
        foreach (var type in firstChances.Distinct())
        {
            Console.WriteLine($"  {type} {firstChances.Count(raised => raised == type)}");
        }
        return 42;
    }

    // The methods of this program that are on a stack.
    internal static string Frames(StackTrace trace) => string.Join(" < ", trace.GetFrames()
        .Select(frame => frame.GetMethod()).Where(method => method?.Module == typeof(Program).Module)
        .Select(method => method!.Name));

    internal static bool Say(string text, bool answer)
    {
        Console.WriteLine(text);
        return answer;
    }
}

// Through as many calls as the stack of the main thread holds.
internal static class Deep
{
    public static void Run(int depth)
    {
        try
        {
            Descend(depth);
        }
        catch (InvalidOperationException error)
        {
            var frames = new StackTrace(error).GetFrames().Select(frame => frame.GetMethod()!.Name).ToArray();
            Console.WriteLine($"{frames.Length} frames, {frames.Count(name => name == nameof(Descend))} of Descend");
            Console.WriteLine($"{frames[0]} .. {frames[^1]}");
            Console.WriteLine($"{error.StackTrace!.Split('\n').Length} lines");
        }
    }

    [Trace]
    [MethodImpl(MethodImplOptions.NoInlining | MethodImplOptions.AggressiveOptimization)]
    private static int Descend(int depth) => depth == 1 ? Throw() : Descend(depth - 1) + 1;

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static int Throw() => throw new InvalidOperationException("deep");
}

// Filters of callers run before any finally block, and see the stack as it is.
internal static class Order
{
    public static void Run()
    {
        try
        {
            Outer();
        }
        catch (Exception error) when (Look("filter of Run", error, true))
        {
            Console.WriteLine("handler of Run");
            Console.WriteLine(error);
        }
    }

    private static bool Look(string text, Exception error, bool answer)
    {
        Console.WriteLine($"{text}: thrown by {Program.Frames(new StackTrace(error))}");
        Console.WriteLine($"  while {Program.Frames(new StackTrace())}");
        return answer;
    }

    [Trace]
    private static int Outer()
    {
        try
        {
            return Middle() + 1;
        }
        catch (Exception error) when (Look("filter of Outer", error, false))
        {
            return 0;
        }
        finally
        {
            Console.WriteLine("finally of Outer");
        }
    }

    private static int Middle()
    {
        try
        {
            return Inner() + 1;
        }
        catch (ArgumentException)
        {
            return 0;
        }
        finally
        {
            Console.WriteLine("finally of Middle");
            Note(2);
        }
    }

    [Trace]
    private static int Inner()
    {
        try
        {
            if (Note(1) == 1)
            {
                throw new InvalidOperationException("in order");
            }
            return 1;
        }
        finally
        {
            Console.WriteLine("finally of Inner");
            Note(3);
        }
    }

    [Trace]
    private static int Note(int number) => number;
}

// What is thrown more than once.
internal static class Again
{
    public static void Run()
    {
        Print(() => Dispatches());
        Print(() => Rethrows());
        Print(() => Replaces());
        Print(() => Wraps());
        Print(() => ThrowsTheSame());
        Print(() => ThrowsTheSame());
    }

    private static readonly Exception theOne = new NotSupportedException("the one");

    private static void Print(Func<int> action)
    {
        try
        {
            Console.WriteLine(action());
        }
        catch (Exception error)
        {
            Console.WriteLine(error);
        }
    }

    [Trace]
    private static int Dispatches()
    {
        ExceptionDispatchInfo? caught = null;
        try
        {
            Fails(1);
        }
        catch (Exception error)
        {
            caught = ExceptionDispatchInfo.Capture(error);
        }
        Passes(caught!);
        return 0;
    }

    [Trace]
    private static void Passes(ExceptionDispatchInfo caught) => caught.Throw();

    [Trace]
    private static int Rethrows()
    {
        try
        {
            return RethrowsInside();
        }
        catch (InvalidOperationException)
        {
            throw;
        }
    }

    [Trace]
    private static int RethrowsInside()
    {
        try
        {
            try
            {
                return Fails(2);
            }
            catch (Exception)
            {
                Quiet();
                throw;
            }
        }
        finally
        {
            Quiet();
        }
    }

    [Trace]
    private static int Replaces()
    {
        try
        {
            return Fails(3);
        }
        catch (InvalidOperationException error)
        {
#pragma warning disable CA2200 // the trace is to begin here
            throw error;
#pragma warning restore CA2200
        }
    }

    [Trace]
    private static int Wraps()
    {
        try
        {
            return Fails(4);
        }
        catch (Exception error)
        {
            throw new ApplicationException("around", error);
        }
    }

    [Trace]
    private static int ThrowsTheSame()
    {
        if (Quiet() == 0)
        {
            throw theOne;
        }
        return 1;
    }

    [Trace]
    private static int Fails(int number) =>
        number > 0 ? throw new InvalidOperationException($"number {number}") : number;

    [Trace]
    private static int Quiet() => 0;
}

// Finally blocks that throw while an exception is on its way.
internal static class Finally
{
    public static void Run()
    {
        try
        {
            Outer();
        }
        catch (Exception error)
        {
            Console.WriteLine(error);
        }
        try
        {
            Console.WriteLine(Recovers());
            Console.WriteLine(RecoversTwice());
        }
        catch (ArgumentException)
        {
            Console.WriteLine("it was not lost");
        }
    }

    [Trace]
    private static int Outer()
    {
        try
        {
            return Inner();
        }
        finally
        {
            Fails("of Outer's finally");
        }
    }

    [Trace]
    private static int Inner()
    {
        try
        {
            return Fails("of Inner");
        }
        finally
        {
            try
            {
                Fails("of Inner's finally, caught there");
            }
            catch (InvalidOperationException error)
            {
                Console.WriteLine(error);
            }
        }
    }

    // The handler of the first exception is Run's, and this method's that of the second one, which takes its place.
    [Trace]
    private static int Recovers()
    {
        try
        {
            try
            {
                throw new ArgumentException("lost");
            }
            finally
            {
                Fails("caught");
            }
        }
        catch (InvalidOperationException error)
        {
            Console.WriteLine(error.Message);
        }
        return Quiet() + 5;
    }

    // The same with methods between.
    [Trace]
    private static int RecoversTwice()
    {
        try
        {
            return Between();
        }
        catch (InvalidOperationException error)
        {
            Console.WriteLine(error.Message);
        }
        return Recovers() + 1;
    }

    [Trace]
    private static int Between()
    {
        try
        {
            return Loses();
        }
        finally
        {
            Fails("instead");
        }
    }

    [Trace]
    private static int Loses()
    {
        if (Quiet() == 0)
        {
            throw new ArgumentException("lost");
        }
        return 1;
    }

    [Trace]
    private static int Fails(string text)
    {
        if (text.Length > 0)
        {
            throw new InvalidOperationException(text);
        }
        return 0;
    }

    [Trace]
    private static int Quiet() => 0;
}

// Filters that call instrumented methods, which may fail.
internal static class Filters
{
    public static void Run()
    {
        try
        {
            Outer();
        }
        catch (Exception error) when (Accepts(error.Message))
        {
            Console.WriteLine(error);
        }
        Console.WriteLine(Chooses(1));
        Console.WriteLine(Chooses(2));
    }

    [Trace]
    private static int Outer()
    {
        try
        {
            return Inner();
        }
        catch (Exception error) when (FailsFor(error))
        {
            return 1;
        }
    }

    [Trace]
    private static int Inner()
    {
        try
        {
            return Throws(new InvalidOperationException("filtered"));
        }
        catch (Exception) when (Accepts("no"))
        {
            return 1;
        }
    }

    // With the exception that it is asked about.
    [Trace]
    private static bool FailsFor(Exception error) => Throws(error) > 0;

    [Trace]
    private static bool Accepts(string text) => text == "filtered";

    [Trace]
    private static int Throws(Exception error) =>
        error.Message.Length > 0 ? throw error : 0;

    [Trace]
    private static string Chooses(int number)
    {
        try
        {
            return Throws(new ArgumentException($"{number}")).ToString();
        }
        catch (ArgumentException error) when (Is(error, 1))
        {
            return "the first";
        }
        catch (ArgumentException error) when (Is(error, 2))
        {
            return "the second";
        }
    }

    [Trace]
    private static bool Is(Exception error, int number) => error.Message == $"{number}";
}

// What is no exception object. Modules that C# makes see one around it.
internal static class ThrownObjects
{
    public static void Run()
    {
        Console.WriteLine(Objects.Catch("caught"));
        Console.WriteLine(Passes(null));
        try
        {
            Passes("passed");
        }
        catch (RuntimeWrappedException error)
        {
            Console.WriteLine(error.WrappedException);
            Console.WriteLine(error);
        }
        try
        {
            Objects.Replace("replaced");
        }
        catch (Exception error)
        {
            Console.WriteLine(error);
        }
        Console.WriteLine(Passes(null));
    }

    [Trace]
    private static int Passes(string? thrown)
    {
        Objects.Throw(thrown);
        return 1;
    }
}

// The methods that return the tasks are instrumented, and what they call. All continuations run on the main thread.
internal static class Chains
{
    public static void Run()
    {
        Print(Outer(Task.CompletedTask));
        var gate = new TaskCompletionSource();
        var suspended = Outer(gate.Task);
        Console.WriteLine(suspended.IsCompleted);
        gate.SetResult();
        Print(suspended);
        gate = new TaskCompletionSource();
        suspended = Outer(gate.Task);
        gate.SetException(new TimeoutException("from outside"));
        Print(suspended);
        Print(Task.WhenAll(Inner(Task.CompletedTask), Task.FromException<int>(new FormatException("another"))));
        try
        {
            Waits();
        }
        catch (AggregateException error)
        {
            Console.WriteLine(error);
        }
    }

    private static void Print(Task task)
    {
        try
        {
            task.GetAwaiter().GetResult();
        }
        catch (Exception error)
        {
            Console.WriteLine(error);
        }
    }

    [Trace]
    private static async Task<int> Outer(Task gate)
    {
        try
        {
            return await Middle(gate) + 1;
        }
        finally
        {
            Quiet();
        }
    }

    [Trace]
    private static async Task<int> Middle(Task gate)
    {
        try
        {
            return await Inner(gate) + 1;
        }
        catch (InvalidOperationException) when (Quiet() == 0)
        {
            throw;
        }
    }

    [Trace]
    private static async Task<int> Inner(Task gate)
    {
        await gate;
        return Fails(gate.Status);
    }

    [Trace]
    private static int Fails(TaskStatus status) => throw new InvalidOperationException($"after {status}");

    [Trace]
    private static int Waits() => Inner(Task.CompletedTask).Result;

    [Trace]
    private static int Quiet() => 0;
}

// Nothing handles them: no finally block runs, and the trace goes to standard error.
internal static class Unhandled
{
    public static void Run()
    {
        AppDomain.CurrentDomain.UnhandledException += (_, ended) =>
            Console.WriteLine($"ends with {((Exception)ended.ExceptionObject).Message}");
        Outer();
    }

    public static void RunElsewhere()
    {
        var thread = new Thread(() => Outer()) { Name = "elsewhere" };
        thread.Start();
        thread.Join();
    }

    [Trace]
    private static int Outer()
    {
        try
        {
            return Middle() + 1;
        }
        catch (Exception) when (Program.Say("asked", false))
        {
            return 0;
        }
        finally
        {
            Console.WriteLine("finally of Outer");
        }
    }

    private static int Middle() => Inner() + 1;

    [Trace]
    private static int Inner()
    {
        try
        {
            return Fails(1);
        }
        catch (Exception)
        {
            Console.WriteLine("once more");
            throw;
        }
    }

    [Trace]
    private static int Fails(int number) =>
        number > 0 ? throw new InvalidOperationException("nobody handles this") : number;
}
