// A run of this assembly as a program of its own, and what came of it.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using Xunit;

namespace Kite.Managed.Tests;

internal sealed record ChildProgram(int ExitCode, string[] Output, string[] Errors)
{
    internal static readonly string Assembly = typeof(Program).Assembly.Location;

    internal static ChildProgram Run(string[] arguments, params (string Name, string Value)[] variables) =>
        Run(Assembly, arguments, variables);

    internal static ChildProgram Run(string program, string[] arguments, params (string Name, string Value)[] variables)
    {
        using var process = Start(program, arguments, variables);
        return WaitFor(process);
    }

    internal static Process Start(string program, string[] arguments, params (string Name, string Value)[] variables)
    {
        var isAssembly = program.EndsWith(".dll", StringComparison.Ordinal);
        var start = new ProcessStartInfo(
            isAssembly ? Environment.ProcessPath! : program, isAssembly ? [program, .. arguments] : arguments)
        {
            RedirectStandardInput = true,
            RedirectStandardOutput = true,
            RedirectStandardError = true,
        };
        foreach (var name in new[]
        {
            "CORVANE_CALL_TREE", "CORVANE_CALL_LIMIT", "CORVANE_SUMMARY", "CORVANE_TRACE_LOG", "CORVANE_SAMPLE", "CORVANE_SAMPLE_INTERVAL_MS",
            "CORVANE_SAMPLE_BEFORE",
            "DOTNET_STARTUP_HOOKS", "CORVANE_OTLP_FILE", "CORVANE_TRACE_FILE",
        }.Concat(start.Environment.Keys.Where(name => name.StartsWith("OTEL_", StringComparison.Ordinal)).ToArray()))
        {
            start.Environment.Remove(name);
        }
        // An exception that nothing handles is not to leave a dump behind.
        start.Environment["DOTNET_DbgEnableMiniDump"] = "0";
        start.Environment["CORVANE_VALUES"] = "all";
        // What is written and sent at the end takes as long as it takes.
        start.Environment["CORVANE_END_SECONDS"] = "120";
        start.Environment["OTEL_EXPORTER_OTLP_TIMEOUT"] = "600000";
        foreach (var (name, value) in variables)
        {
            start.Environment[name] = value;
        }
        return Process.Start(start)!;
    }

    // Reads the rest of what it writes.
    internal static ChildProgram WaitFor(Process process)
    {
        var errors = process.StandardError.ReadToEndAsync();
        var output = process.StandardOutput.ReadToEndAsync();
        if (!process.WaitForExit(240_000))
        {
            process.Kill();
            Assert.Fail("the program did not end");
        }
        return new ChildProgram(process.ExitCode, Lines(output.Result), Lines(errors.Result));
    }

    private static string[] Lines(string text) =>
        text.Length == 0 ? [] : text.TrimEnd('\n').Split(Environment.NewLine);
}

// A folder of a test's own.
internal sealed class TemporaryFolder : IDisposable
{
    private readonly DirectoryInfo folder = Directory.CreateTempSubdirectory("kite-managed-");

    internal string this[string name] => Path.Combine(folder.FullName, name);

    internal string FullName => folder.FullName;

    internal IEnumerable<FileInfo> Files => folder.EnumerateFiles();

    public void Dispose() => folder.Delete(recursive: true);
}
