// That DOTNET_STARTUP_HOOKS gives the library to a program that has no copy of it.
using System;
using System.IO;
using System.Linq;
using Xunit;

namespace Kite.Managed.Tests;

public sealed class StartupHookTests : IDisposable
{
    private readonly HookedProgram program = new();

    public void Dispose() => program.Dispose();

    [Fact]
    public void WithoutItTheProgramDoesNotFindTheLibrary()
    {
        var run = ChildProgram.Run(program.Path, ["return"]);
        Assert.NotEqual(3, run.ExitCode);
        Assert.Contains(run.Errors, line => line.Contains("FileNotFoundException") && line.Contains("kite.managed"));
    }

    [Fact]
    public void WithItEveryLoadContextBindsToTheSameLibrary()
    {
        var run = ChildProgram.Run(program.Path, ["bind"], ("DOTNET_STARTUP_HOOKS", program.Library), ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(["out", "3 copies, 1 libraries"], run.Output);
        Assert.Equal(9, run.ExitCode);
        Assert.Equal("3 calls, 1 threads, 0 dropped", run.Errors.Last());
    }

    [Fact]
    public void AProgramWithItsOwnCopyUsesOneOfThem()
    {
        var run = ChildProgram.Run(["bind"], ("DOTNET_STARTUP_HOOKS", program.Library), ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(["out", "3 copies, 1 libraries"], run.Output);
        Assert.Equal(9, run.ExitCode);
        Assert.Equal("3 calls, 1 threads, 0 dropped", run.Errors.Last());
    }

    // Here no process is served.
    [Theory]
    [InlineData("CORVANE_CALL_TREE")]
    [InlineData("CORVANE_SUMMARY")]
    public void AProgramThatIsNotServedSaysSoAndKeepsAnotherOnesFile(string variable)
    {
        using var folder = new TemporaryFolder();
        File.WriteAllText(folder["calls.txt"], "another one's");
        var run = ChildProgram.Run(program.Path, ["nothing"], ("DOTNET_STARTUP_HOOKS", program.Library), (variable, folder["calls.txt"]));
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
}
