// Calls the marked methods of a theme, each of which is a file here, and prints what came of every call.
// The first argument names the theme; "quiet" behind it has only the runtime's version printed.
using System;
using System.Collections.Generic;
using System.IO;
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
    };

    private static int Main(string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        if (args.Length > 1)
        {
            Console.SetOut(TextWriter.Null);
        }
        themes[args[0]]();
        return ExitCode;
    }
}
