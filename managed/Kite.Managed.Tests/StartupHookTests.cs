// That DOTNET_STARTUP_HOOKS gives the library to a program that has no copy of it.
using System;
using System.IO;
using System.Linq;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests;

public sealed class StartupHookTests : IDisposable
{
    private readonly TemporaryFolder folder = new();
    private readonly string program;
    private readonly string library;

    public StartupHookTests()
    {
        // The program alone, without its list of dependencies, and the library alone in another place.
        program = folder["Kite.Managed.Tests.dll"];
        File.Copy(ChildProgram.Assembly, program);
        const string Settings = "Kite.Managed.Tests.runtimeconfig.json";
        File.Copy(Path.Combine(Path.GetDirectoryName(ChildProgram.Assembly)!, Settings), folder[Settings]);
        library = Path.Combine(Directory.CreateDirectory(folder["elsewhere"]).FullName, "kite.managed.dll");
        File.Copy(typeof(span).Assembly.Location, library);
    }

    public void Dispose() => folder.Dispose();

    [Fact]
    public void WithoutItTheProgramDoesNotFindTheLibrary()
    {
        var run = ChildProgram.Run(program, ["return"]);
        Assert.NotEqual(3, run.ExitCode);
        Assert.Contains(run.Errors, line => line.Contains("FileNotFoundException") && line.Contains("kite.managed"));
    }

    [Fact]
    public void WithItEveryLoadContextBindsToTheSameLibrary()
    {
        var run = ChildProgram.Run(program, ["bind"], ("DOTNET_STARTUP_HOOKS", library), ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(["out", "3 copies, 1 libraries"], run.Output);
        Assert.Equal(9, run.ExitCode);
        Assert.Equal("3 calls, 1 threads, 0 dropped", run.Errors.Last());
    }

    [Fact]
    public void AProgramWithItsOwnCopyUsesOneOfThem()
    {
        var run = ChildProgram.Run(["bind"], ("DOTNET_STARTUP_HOOKS", library), ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(["out", "3 copies, 1 libraries"], run.Output);
        Assert.Equal(9, run.ExitCode);
        Assert.Equal("3 calls, 1 threads, 0 dropped", run.Errors.Last());
    }

    // What only few programs need would be half of the start of a small one.
    [Fact]
    public void ActivitiesAreLoadedByTheProgramAlone()
    {
        var run = ChildProgram.Run(program, ["listen later"], ("DOTNET_STARTUP_HOOKS", library));
        Assert.Equal(["out", "False", "Program.Name", "Program.Add"], run.Output);
        Assert.Equal(3, run.ExitCode);
    }

    // Here no process is served.
    [Theory]
    [InlineData("CORVANE_CALL_TREE")]
    [InlineData("CORVANE_SUMMARY")]
    public void AProgramThatIsNotServedSaysSoAndKeepsAnotherOnesFile(string variable)
    {
        using var folder = new TemporaryFolder();
        File.WriteAllText(folder["calls.txt"], "another one's");
        var run = ChildProgram.Run(program, ["nothing"], ("DOTNET_STARTUP_HOOKS", library), (variable, folder["calls.txt"]));
        Assert.Equal(0, run.ExitCode);
        Assert.Equal(
            [
                "err", "kite.managed: nothing was recorded: CorvaneProfiler.dll is not in this process: it serves 64-bit " +
                "Windows processes on x64 only.",
            ],
            run.Errors);
        Assert.Equal("another one's", File.ReadAllText(folder["calls.txt"]));
        Assert.Single(folder.Files);
    }

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
