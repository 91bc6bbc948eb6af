// What a program meets that is to be sampled without knowing of it, where there is no profiler.
using System;
using System.IO;
using Corvane.Sampling;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class SamplingAtStartTests
{
    private static readonly string library = typeof(span).Assembly.Location;

    [Fact]
    public void WithoutTheProfilerTheProgramRunsAndIsToldWhy()
    {
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run(
            ["return"], ("DOTNET_STARTUP_HOOKS", library), ("CORVANE_SAMPLE", folder["samples"]));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(["out"], run.Output);
        Assert.Equal(
            [
                "kite.managed: no samples are taken: CorvaneProfiler.dll is not in this process: it serves 64-bit " +
                "Windows processes on x64 only.",
                "err",
            ],
            run.Errors);
        Assert.False(Directory.Exists(folder["samples"]));
    }

    [Theory]
    [InlineData("0")]
    [InlineData("0.5")]
    [InlineData("60001")]
    [InlineData("-10")]
    [InlineData("10ms")]
    [InlineData("1e3")]
    [InlineData("NaN")]
    public void AnIntervalThatIsNoneIsRefused(string interval)
    {
        using var folder = new TemporaryFolder();
        var run = ChildProgram.Run(
            ["return"],
            ("DOTNET_STARTUP_HOOKS", library),
            ("CORVANE_SAMPLE", folder["samples"]),
            ("CORVANE_SAMPLE_INTERVAL_MS", interval));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(
            [
                $"kite.managed: no samples are taken: CORVANE_SAMPLE_INTERVAL_MS is \"{interval}\"; it has to be a " +
                "number of milliseconds from 1 to 60000, such as 10.",
                "err",
            ],
            run.Errors);
    }

    [Fact]
    public void NothingIsSampledUnlessAskedFor()
    {
        var run = ChildProgram.Run(
            ["return"], ("DOTNET_STARTUP_HOOKS", library), ("CORVANE_SAMPLE", ""), ("CORVANE_SAMPLE_INTERVAL_MS", "x"));
        Assert.Equal(3, run.ExitCode);
        Assert.Equal(["err"], run.Errors);
    }

    [Theory]
    [InlineData(null, 10)]
    [InlineData("", 10)]
    [InlineData("1", 1)]
    [InlineData("2.5", 2.5)]
    [InlineData("60000", 60_000)]
    public void AnIntervalIsInMilliseconds(string? text, double milliseconds) =>
        Assert.Equal(TimeSpan.FromMilliseconds(milliseconds), SamplingAtStart.Interval(text));

    [Theory]
    [InlineData("Shop.exe", "Shop")]
    [InlineData("Shop.EXE", "Shop")]
    [InlineData("Shop", "Shop")]
    [InlineData("a/b\0c", "a_b_c")]
    public void FilesAreNamedAfterTheProgramAndItsNumber(string program, string name) =>
        Assert.Equal($"{name}-{Environment.ProcessId}", SamplingAtStart.Name(program));
}
