// Calls the marked methods of a theme, each of which is a file here, and prints what came of every call.
// The first argument names the theme.
using System;
using System.Collections.Generic;
using Matrix;

internal static class Program
{
    private const int ExitCode = 42;

    private static readonly Dictionary<string, Action> themes = new()
    {
        ["values"] = Values.Run,
    };

    private static int Main(string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        themes[args[0]]();
        return ExitCode;
    }
}
