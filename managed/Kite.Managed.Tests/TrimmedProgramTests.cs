// The library as a start-up hook of programs that were trimmed.
using System;
using System.IO;
using System.Linq;
using Kite.Managed.Tests.Export;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests;

public class TrimmedProgramTests
{
    private static readonly string library = typeof(span).Assembly.Location;

    private static string Trimmed(bool refers) =>
        Path.Combine(Path.GetDirectoryName(ChildProgram.Assembly)!, "trimmed", refers ? "true" : "false", "trimmed");

    // The runtime binds to the copy that the trimmer left, wherever the hook is.
    [Fact]
    public void ATrimmedProgramThatRefersToTheLibraryIsRecorded()
    {
        var run = ChildProgram.Run(
            Trimmed(refers: true),
            ["kite.managed.span", "Corvane.Instrumentation.InstrumentationDirectives", "GenericPrologue", "GenericEpilogue"],
            ("DOTNET_STARTUP_HOOKS", library), ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(["out"], run.Output);
        Assert.Equal(
            ["thread 1", "  method #7(arg0: ***, arg1: ***) = ***", "1 calls, 1 threads, 0 dropped"],
            RecordedCalls.WithoutTimes(string.Join(Environment.NewLine, run.Errors)));
        Assert.Equal(3, run.ExitCode);
    }

    // Also of what has to be looked for at the end of the process.
    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void ATrimmedProgramThatRefersToTheLibraryHasItsSpans(bool ends)
    {
        using var folder = new TemporaryFolder();
        string[] names = ["kite.managed.span", "Corvane.Instrumentation.InstrumentationDirectives", "GenericPrologue", "GenericEpilogue"];
        var run = ChildProgram.Run(
            Trimmed(refers: true), ends ? names : names[..3], ("DOTNET_STARTUP_HOOKS", library), ("CORVANE_OTLP_FILE", folder["otlp"]));
        Assert.Equal(["out"], run.Output);
        Assert.Empty(run.Errors);
        Assert.Equal(3, run.ExitCode);
        var span = Assert.Single(Export.Spans.In(Export.Spans.Read(folder["otlp"], isJson: true)));
        Assert.Equal("method #7", span.Text("name"));
        Assert.Equal(!ends, span.Attributes().Contains($"corvane.unfinished=boolValue:{true}"));
    }

    [Theory]
    [InlineData("CORVANE_OTLP_FILE", "spans.json")]
    [InlineData("CORVANE_TRACE_FILE", "trace.json")]
    [InlineData("CORVANE_CALL_TREE", "stderr")]
    [InlineData("CORVANE_TRACE_LOG", "stderr")]
    [InlineData("CORVANE_SAMPLE", "samples")]
    public void AProgramFromWhichThePlatformWasTrimmedIsToldSoAndRuns(string variable, string value)
    {
        var run = ChildProgram.Run(Trimmed(refers: false), [], ("DOTNET_STARTUP_HOOKS", library), (variable, value));
        Assert.Equal(["out"], run.Output);
        Assert.Equal(["kite.managed: nothing will be recorded, because the program was trimmed"], run.Errors);
        Assert.Equal(3, run.ExitCode);
    }
}
