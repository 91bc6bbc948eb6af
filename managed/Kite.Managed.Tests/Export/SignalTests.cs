// Ends of a process that come from outside.
using System;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text.Json;
using Xunit;

namespace Kite.Managed.Tests.Export;

public sealed class SignalTests : IDisposable
{
    private readonly TemporaryFolder folder = new();

    public void Dispose() => folder.Dispose();

    private (string, string)[] Files => [("CORVANE_OTLP_FILE", folder["otlp"]), ("CORVANE_TRACE_FILE", folder["trace"])];

    private JsonElement[] Otlp() => Spans.In(Spans.Read(folder["otlp"], isJson: true)).ToArray();

    [Theory]
    [InlineData("2")]
    [InlineData("15")]
    [InlineData("1")]
    public void ASignalThatEndsTheProcessLosesNothing(string number)
    {
        var plain = EndBy(number, "end");
        var run = EndBy(number, "end", Files);
        Assert.Equal(plain.ExitCode, run.ExitCode);
        Assert.Equal(plain.Errors, run.Errors);
        Assert.Single(Otlp());
        JsonDocument.Parse(File.ReadAllText(folder["trace"]));
    }

    [Fact]
    public void ASignalThatTheProgramKeepsFromEndingItEndsNothing()
    {
        var run = EndBy("2", "cancel", Files);
        Assert.Equal(5, run.ExitCode);
        Assert.Equal(2, Otlp().Length);
    }

    [Fact]
    public void ASignalInACallLeavesItUnfinished()
    {
        EndBy("2", "inside", Files);
        Assert.Equal(
            [false, true], Otlp().Select(span => span.Attributes().Contains($"corvane.unfinished=boolValue:{true}")));
    }

    private static ChildProgram EndBy(string signal, string what, params (string, string)[] variables)
    {
        // Whoever runs the tests may have them ignore some.
        string[] program = ["--default-signal", Environment.ProcessPath!, ChildProgram.Assembly];
        using var process = ChildProgram.Start("env", [.. program, "wait for a signal", what], variables);
        while (process.StandardOutput.ReadLine() != "ready")
        {
        }
        using (var kill = Process.Start("kill", ["-" + signal, process.Id.ToString()]))
        {
            kill.WaitForExit();
        }
        return ChildProgram.WaitFor(process);
    }
}
