using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Runtime.InteropServices;

namespace Corvane.Sampling.Platform;

// What decides whether the profiler is in a process, and what to tell whoever misses it there.
internal sealed class ProfilerFacts
{
    internal const string Library = "CorvaneProfiler.dll";
    private const string ClassId = "{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";

    internal bool IsWindows { get; set; }

    internal bool Is64Bit { get; set; }

    internal bool IsFramework { get; set; }

    internal string Program { get; set; } = "";

    internal Func<string, string?> Variable { get; set; } = _ => null;

    internal bool CanBeServed => IsWindows && Is64Bit;

    // Names under which its module may be found. A copy that is not the one that runs has been loaded by hand.
    internal IEnumerable<string> ModuleNames
    {
        get
        {
            foreach (var name in new[] { Prefixed("PROFILER_PATH_64"), Prefixed("PROFILER_PATH") })
            {
                if (Variable(name) is { Length: > 0 } path)
                {
                    yield return path;
                }
            }
            yield return Library;
        }
    }

    internal static ProfilerFacts OfThisProcess()
    {
        using var process = Process.GetCurrentProcess();
        return new ProfilerFacts
        {
            IsWindows = RuntimeInformation.IsOSPlatform(OSPlatform.Windows),
            Is64Bit = RuntimeInformation.ProcessArchitecture == Architecture.X64,
            IsFramework = RuntimeInformation.FrameworkDescription.StartsWith(".NET Framework", StringComparison.Ordinal),
            Program = process.ProcessName + ".exe",
            Variable = Environment.GetEnvironmentVariable,
        };
    }

    internal string WhyMissing()
    {
        var missing = Library + " is not in this process";
        if (!CanBeServed)
        {
            return $"{missing}: it serves 64-bit Windows processes on x64 only.";
        }
        var enabled = Prefixed("ENABLE_PROFILING");
        var profiler = Prefixed("PROFILER");
        var path = Prefixed("PROFILER_PATH");
        if (Variable(enabled) != "1")
        {
            return $"{missing}: {enabled} is not 1. Start the program with {enabled}=1, {profiler}={ClassId} and " +
                $"{path} naming the file, and with an agent.config that lists {Program}.";
        }
        if (!string.Equals(Variable(profiler), ClassId, StringComparison.OrdinalIgnoreCase))
        {
            return $"{missing}: {profiler} is not {ClassId}. Set it so; a process has one profiler only.";
        }
        return $"{missing} although it was asked for, or is one that does not sample: it could not be loaded, or it " +
            $"left because agent.config does not enable {Program}. Look whether {path} names the right file, and " +
            $"whether agent.config in the folder that CORVANE_HOME_APM_DOTNET names has " +
            $"<application name=\"{Program}\" corvane=\"Enabled\"/>.";
    }

    private string Prefixed(string name) => (IsFramework ? "COR_" : "CORECLR_") + name;
}
