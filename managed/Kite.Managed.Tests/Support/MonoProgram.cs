// A run of one of the programs of the .NET Framework, in Mono.
using System;
using System.IO;
using Xunit;

namespace Kite.Managed.Tests;

internal static class MonoProgram
{
    internal static ChildProgram Run(string name, string[] arguments, params (string, string)[] variables)
    {
        const string Facades = "MONO_FACADES";
        var facades = Environment.GetEnvironmentVariable(Facades);
        Assert.True(facades != null, $"{Facades} names no folder with Mono's netstandard.dll; ./dev test sets it");
        return ChildProgram.Run("mono", [FileOf(name), .. arguments], [.. variables, ("MONO_PATH", facades!)]);
    }

    internal static string FileOf(string name) =>
        Path.Combine(Path.GetDirectoryName(ChildProgram.Assembly)!, name, name + ".exe");
}
