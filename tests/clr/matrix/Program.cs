// Calls the marked methods of a theme, each of which is a file here, and prints what came of every call.
// The first argument names the theme; "quiet" behind it has only the runtime's version printed.
using System;
using System.Collections.Generic;
using System.IO;
using System.Runtime.InteropServices;
using Matrix;

internal static class Program
{
    private const int ExitCode = 42;

    private static readonly Dictionary<string, Action> themes = new()
    {
        ["values"] = Values.Run,
        ["byreference"] = ByReference.Run,
        ["unboxable"] = Unboxable.Run,
        ["owners"] = Owners.Run,
        ["counts"] = Counts.Run,
        ["bodies"] = Bodies.Run,
        ["blocks"] = Blocks.Run,
        ["flavours"] = Flavours.Run,
        ["exceptions"] = Exceptions.Run,
        ["crafted"] = CraftedCode.Run,
        ["repeated"] = CraftedCode.RunRepeated,
        ["modules"] = Modules.Run,
        ["shapes"] = Shapes.Run,
        ["guards"] = Guards.Run,
        ["receivers"] = Receivers.Run,
        ["threads"] = Threads.Run,
        ["exit"] = Ends.Exit,
        ["end-in-background"] = Ends.LeaveAThreadBehind,
        ["exit-elsewhere"] = Ends.ExitOnAnotherThread,
    };

    private const uint NoCrashDialog = 2;

    [DllImport("kernel32.dll")]
    private static extern uint SetErrorMode(uint mode);

    private static int Main(string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        if (args.Length > 1)
        {
            Console.SetOut(TextWriter.Null);
        }
        if (args[0] == "unhandled")
        {
            // Nobody is there to be asked about the crash. It is thrown here, since the trace of an exception
            // begins, by default, at the marked method that it came through last.
            SetErrorMode(NoCrashDialog);
            throw new InvalidOperationException("nobody catches this");
        }
        themes[args[0]]();
        return ExitCode;
    }
}
