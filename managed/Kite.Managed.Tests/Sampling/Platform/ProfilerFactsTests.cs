using System;
using System.Collections.Generic;
using System.Linq;
using Corvane.Sampling;
using Corvane.Sampling.Platform;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Platform;

public class ProfilerFactsTests
{
    private const string ClassId = "{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";

    private static ProfilerFacts Facts(params (string Name, string Value)[] variables)
    {
        var values = variables.ToDictionary(variable => variable.Name, variable => variable.Value);
        return new ProfilerFacts
        {
            IsWindows = true,
            Is64Bit = true,
            Program = "Shop.exe",
            Variable = name => values.GetValueOrDefault(name),
        };
    }

    [Fact]
    public void WhatIsNotServedIsSaid()
    {
        const string Why = "CorvaneProfiler.dll is not in this process: it serves 64-bit Windows processes on x64 only.";
        Assert.Equal(Why, new ProfilerFacts { Is64Bit = true }.WhyMissing());
        Assert.Equal(Why, new ProfilerFacts { IsWindows = true }.WhyMissing());
    }

    [Fact]
    public void ProfilingThatIsNotEnabledIsSaid()
    {
        const string Why =
            "CorvaneProfiler.dll is not in this process: CORECLR_ENABLE_PROFILING is not 1. Start the program with " +
            "CORECLR_ENABLE_PROFILING=1, CORECLR_PROFILER=" + ClassId + " and CORECLR_PROFILER_PATH naming the file, " +
            "and with an agent.config that lists Shop.exe.";
        Assert.Equal(Why, Facts().WhyMissing());
        Assert.Equal(Why, Facts(("CORECLR_ENABLE_PROFILING", "0")).WhyMissing());
        var framework = Facts(("CORECLR_ENABLE_PROFILING", "1"));
        framework.IsFramework = true;
        Assert.Equal(Why.Replace("CORECLR_", "COR_"), framework.WhyMissing());
    }

    [Fact]
    public void AnotherProfilerIsSaid() => Assert.Equal(
        "CorvaneProfiler.dll is not in this process: CORECLR_PROFILER is not " + ClassId + ". Set it so; a process has " +
        "one profiler only.",
        Facts(("CORECLR_ENABLE_PROFILING", "1"), ("CORECLR_PROFILER", "{0}")).WhyMissing());

    // What is asked for in the right way, but for what is named here.
    private static string WhyMissing(string[] files, params (string Name, string Value)[] variables)
    {
        var facts = Facts([
            ("CORECLR_ENABLE_PROFILING", "1"), ("CORECLR_PROFILER", ClassId.ToLowerInvariant()), .. variables]);
        facts.FileExists = files.Contains;
        return facts.WhyMissing();
    }

    [Theory]
    [InlineData("CORECLR_PROFILER_PATH")]
    [InlineData("CORECLR_PROFILER_PATH_64")]
    public void APathWithoutAFileIsSaid(string variable) => Assert.Equal(
        $@"CorvaneProfiler.dll is not in this process: {variable} is C:\a.dll, and there is no such file. Correct it.",
        WhyMissing([], (variable, @"C:\a.dll")));

    // The runtime looks nowhere else if it is wrong.
    [Fact]
    public void OnlyTheFirstPathCounts() => Assert.Equal(
        @"CorvaneProfiler.dll is not in this process: it left because CORVANE_HOME_APM_DOTNET is not set. Set it to the " +
        "folder of agent.config, which lists Shop.exe.",
        WhyMissing([@"C:\64.dll"], ("CORECLR_PROFILER_PATH", @"C:\a.dll"), ("CORECLR_PROFILER_PATH_64", @"C:\64.dll")));

    [Theory]
    [InlineData(@"C:\agent")]
    [InlineData(@"C:\agent\")]
    public void TheProgramAndTheFileThatDoesNotListItAreNamed(string home)
    {
        const string Config = @"C:\agent\agent.config";
        Assert.Equal(
            $"CorvaneProfiler.dll is not in this process: it left because {Config} does not enable Shop.exe, or it could not " +
            "be loaded. The file needs <application name=\"Shop.exe\" corvane=\"Enabled\"/> in " +
            "configuration/instrumentation/applications.",
            WhyMissing([Config], ("CORVANE_HOME_APM_DOTNET", home)));
        Assert.Equal(
            $"CorvaneProfiler.dll is not in this process: it left because there is no {Config}. Write it, and list Shop.exe in it.",
            WhyMissing([], ("CORVANE_HOME_APM_DOTNET", home)));
    }

    [Fact]
    public void TheModuleIsLookedForByItsPathFirst()
    {
        Assert.Equal(["CorvaneProfiler.dll"], Facts(("CORECLR_PROFILER_PATH", "")).ModuleNames);
        Assert.Equal([@"C:\64.dll", @"C:\a.dll", "CorvaneProfiler.dll"],
            Facts(("CORECLR_PROFILER_PATH", @"C:\a.dll"), ("CORECLR_PROFILER_PATH_64", @"C:\64.dll")).ModuleNames);
    }

    // The tests run where there is none.
    [Fact]
    public void ASamplerCannotBeMadeWithoutTheProfiler() =>
        Assert.StartsWith("CorvaneProfiler.dll is not in this process: ",
            Assert.Throws<InvalidOperationException>(() => new Sampler()).Message);
}
