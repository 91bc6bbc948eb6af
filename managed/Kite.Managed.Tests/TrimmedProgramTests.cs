// The library as a start-up hook of programs that were trimmed.
using System;
using System.IO;
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

    [Theory]
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
