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

    [Fact]
    public void AProfilerThatLeftOrWasNotLoadedIsSaid() => Assert.Equal(
        "CorvaneProfiler.dll is not in this process although it was asked for, or is one that does not sample: it could " +
        "not be loaded, or it left because agent.config does not enable Shop.exe. Look whether CORECLR_PROFILER_PATH " +
        "names the right file, and whether agent.config in the folder that CORVANE_HOME_APM_DOTNET names has " +
        "<application name=\"Shop.exe\" corvane=\"Enabled\"/>.",
        Facts(("CORECLR_ENABLE_PROFILING", "1"), ("CORECLR_PROFILER", ClassId.ToLowerInvariant())).WhyMissing());

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
