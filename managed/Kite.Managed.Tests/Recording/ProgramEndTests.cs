// Whole programs: what is printed when they end, and that nothing else of them changes.
using System;
using System.IO;
using System.Linq;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class ProgramEndTests
{
    private static readonly string[] tree =
    [
        "thread 1", "  Program.Add(a: 1, b: 2) = 3", "    Program.Name(name: \"x\") = 3", "2 calls, 1 threads, 0 dropped",
    ];

    private static string[] ReadTree(string path) => RecordedCalls.WithoutTimes(File.ReadAllText(path));

    private static string[] TreeIn(string[] lines) => RecordedCalls.WithoutTimes(string.Join(Environment.NewLine, lines));

    [Fact]
    public void NothingIsPrintedUnlessAskedFor()
    {
        var run = ChildProgram.Run(["return"]);
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(["out"], run.Output);
        Assert.Equal(["err"], run.Errors);
    }

    [Fact]
    public void TheTreeGoesToStandardError()
    {
        var run = ChildProgram.Run(["return"], ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(["out"], run.Output);
        Assert.Equal(["err", .. tree], TreeIn(run.Errors));
    }

    [Theory]
    [InlineData("", "  Program.Add(a, b)", "    Program.Name(name)")]
    [InlineData("none", "  Program.Add(a, b)", "    Program.Name(name)")]
    [InlineData("safe", "  Program.Add(a: 1, b: 2) = 3", "    Program.Name(name: {1 character}) = 3")]
    public void ValuesAreRecordedAsAskedFor(string values, string outer, string inner)
    {
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run(["return"], ("CORVANE_CALL_TREE", folder["tree"]), ("CORVANE_VALUES", values));
        Assert.Equal(["err"], run.Errors);
        Assert.Equal(
            ["thread 1", outer, inner, "2 calls, 1 threads, 0 dropped"],
            RecordedCalls.WithoutTimes(File.ReadAllText(folder["tree"])));
    }

    [Fact]
    public void ValuesThatNobodyUnderstandsAreNone()
    {
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run(["return"], ("CORVANE_CALL_TREE", folder["tree"]), ("CORVANE_VALUES", "All"));
        Assert.Equal(
            ["err", "kite.managed: CORVANE_VALUES is 'All', which is none of 'none', 'safe' and 'all': no values are recorded"],
            run.Errors);
        Assert.Contains("  Program.Add(a, b)", RecordedCalls.WithoutTimes(File.ReadAllText(folder["tree"])));
    }

    [Theory]
    [InlineData("return", 3, "2 calls, 0 errors, 2 methods")]
    [InlineData("throw", null, "1 calls, 1 errors, 1 methods")]
    public void TheSummaryIsWrittenAtTheEnd(string end, int? exitCode, string figures)
    {
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run([end], ("CORVANE_SUMMARY", folder["summary"]), ("CORVANE_CALL_TREE", folder["tree"]));
        Assert.True(exitCode == null || exitCode == run.ExitCode);
        Assert.Equal(figures, File.ReadAllLines(folder["summary"])[^1]);
        Assert.Equal("thread 1", File.ReadAllLines(folder["tree"])[0]);
        ChildProgram.Run([end], ("CORVANE_SUMMARY", folder["summary only"]));
        Assert.Equal(figures, File.ReadAllLines(folder["summary only"])[^1]);
    }

    [Fact]
    public void TheTreeGoesToStandardOutput()
    {
        var run = ChildProgram.Run(["return"], ("CORVANE_CALL_TREE", "stdout"));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(["out", .. tree], TreeIn(run.Output));
        Assert.Equal(["err"], run.Errors);
    }

    [Fact]
    public void TheTreeGoesToAFileInPlaceOfWhatItHeld()
    {
        using var folder = new TemporaryFolder();
        File.WriteAllText(folder["tree.txt"], new string('x', 10_000));
        var run = ChildProgram.Run(["return"], ("CORVANE_CALL_TREE", folder["tree.txt"]));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(["out"], run.Output);
        Assert.Equal(["err"], run.Errors);
        Assert.Equal(tree, ReadTree(folder["tree.txt"]));
    }

    [Fact]
    public void APathIsThatOfTheFirstCallAndMayHoldTheProcess()
    {
        using var folder = new TemporaryFolder();
        using var elsewhere = new TemporaryFolder();
        var relative = Path.GetRelativePath(Environment.CurrentDirectory, folder["tree-{pid}.txt"]);
        var run = ChildProgram.Run(["chdir", elsewhere.FullName], ("CORVANE_CALL_TREE", relative));
        Assert.Equal(["err"], run.Errors);
        Assert.Matches(@"^tree-\d+\.txt$", Assert.Single(folder.Files).Name);
        Assert.Empty(elsewhere.Files);
    }

    [Fact]
    public void AFileThatCannotBeWrittenIsComplainedOfAndNoMore()
    {
        using var folder = new TemporaryFolder();
        var path = Path.Combine(folder["missing"], "tree.txt");
        var run = ChildProgram.Run(["return"], ("CORVANE_CALL_TREE", path));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal("err", run.Errors[0]);
        Assert.StartsWith(
            $"kite.managed: nothing was written to {path}: Could not find a part of the path",
            Assert.Single(run.Errors.Skip(1)));
    }

    [Theory]
    [InlineData("1", "1 calls, 1 threads, 1 dropped")]
    [InlineData("0", "0 calls, 0 threads, 2 dropped")]
    [InlineData("-1", "2 calls, 1 threads, 0 dropped")]
    [InlineData("+1", "2 calls, 1 threads, 0 dropped")]
    [InlineData(" 1", "2 calls, 1 threads, 0 dropped")]
    [InlineData("1.0", "2 calls, 1 threads, 0 dropped")]
    [InlineData("many", "2 calls, 1 threads, 0 dropped")]
    public void AsManyCallsAreRecordedAsAreAllowed(string limit, string summary)
    {
        var run = ChildProgram.Run(["return"], ("CORVANE_CALL_TREE", "stderr"), ("CORVANE_CALL_LIMIT", limit));
        Assert.Equal(summary, run.Errors.Last());
    }

    [Fact]
    public void EnvironmentExitIsSurvived()
    {
        var run = ChildProgram.Run(["exit"], ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(4, run.ExitCode);
        Assert.Equal(
            ["err", "thread 1", "  Program.Add(a: 1, b: 2) ...", "1 calls, 1 threads, 0 dropped"], TreeIn(run.Errors));
    }

    [Fact]
    public void EnvironmentExitFromACallbackIsSurvived()
    {
        var run = ChildProgram.Run(["exit in callback"], ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(5, run.ExitCode);
        Assert.Equal(2, run.Errors.Length);
        Assert.StartsWith("kite.managed: nothing was recorded: ", run.Errors[1]);
    }

    [Fact]
    public void EnvironmentExitWhileOtherThreadsCallIsSurvived()
    {
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run(["exit meanwhile"], ("CORVANE_CALL_TREE", folder["tree.txt"]));
        Assert.Equal(7, run.ExitCode);
        Assert.Equal(["err"], run.Errors);
        Assert.Matches(@"^[1-9]\d* calls, 4 threads, \d+ dropped$", ReadTree(folder["tree.txt"]).Last());
    }

    [Fact]
    public void AnUnhandledExceptionIsSurvived()
    {
        var plain = ChildProgram.Run(["throw"]);
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run(["throw"], ("CORVANE_CALL_TREE", folder["tree.txt"]));
        Assert.NotEqual(0, plain.ExitCode);
        Assert.Equal(plain.ExitCode, run.ExitCode);
        Assert.Equal(plain.Output, run.Output);
        Assert.Equal(plain.Errors, run.Errors);
        Assert.Equal(
            [
                "thread 1", "  Program.Add(a: 1, b: 2) ! System.InvalidOperationException: on purpose",
                "1 calls, 1 threads, 0 dropped",
            ],
            ReadTree(folder["tree.txt"]));
    }

    [Fact]
    public void TheProgramsOwnConsoleWritersAreNotUsed()
    {
        var run = ChildProgram.Run(["hostile console"], ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(6, run.ExitCode);
        Assert.Equal("1 calls, 1 threads, 0 dropped", run.Errors.Last());
    }

    [Fact]
    public void AnAddressAsReceiverIsNotTakenForAnObject()
    {
        var run = ChildProgram.Run(["address"], ("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(8, run.ExitCode);
        Assert.Equal("1000 calls, 1 threads, 0 dropped", run.Errors.Last());
    }

    [Fact]
    public void TraceLinesAreWrittenWhereAskedFor()
    {
        using var folder = new TemporaryFolder();
        ChildProgram.Run(["return"], ("CORVANE_TRACE_LOG", folder["trace.txt"]));
        var run = ChildProgram.Run(["return"], ("CORVANE_TRACE_LOG", folder["trace.txt"]));
        Assert.Equal(["err"], run.Errors);
        string[] lines = ["4 1 [Finally] Program.Name::Finally;", "4 1 [Finally] Program.Add::Finally;"];
        Assert.Equal([.. lines, .. lines], File.ReadAllLines(folder["trace.txt"]));
        Assert.Equal(["err", .. lines], ChildProgram.Run(["return"], ("CORVANE_TRACE_LOG", "stderr")).Errors);
    }

    [Fact]
    public void ATraceLogThatCannotBeWrittenIsDoneWithout()
    {
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run(["return"], ("CORVANE_TRACE_LOG", folder.FullName));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(["err"], run.Errors);
    }

    [Fact]
    public void AFolderThatIsGoneIsComplainedOfAndNoMore()
    {
        using var folder = new TemporaryFolder();
        var current = Directory.CreateDirectory(folder["current"]).FullName;
        var run = ChildProgram.Run(["delete folder", current], ("CORVANE_CALL_TREE", "tree.txt"), ("CORVANE_TRACE_LOG", folder["log"]));
        Assert.Equal(0, run.ExitCode);
        Assert.Equal("err", run.Errors[0]);
        Assert.StartsWith("kite.managed: nothing will be written to tree.txt: ", run.Errors[1]);
        Assert.Equal(2, run.Errors.Length);
        Assert.Single(File.ReadAllLines(folder["log"]));
    }
}
