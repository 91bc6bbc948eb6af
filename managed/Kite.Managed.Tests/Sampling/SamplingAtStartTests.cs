// What a program meets that is to be sampled without knowing of it, where there is no profiler.
using System.IO;
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
}
