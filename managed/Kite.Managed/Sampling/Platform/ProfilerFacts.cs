using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Runtime.InteropServices;

namespace Corvane.Sampling.Platform;

// What decides whether the profiler is in a process, and what to tell whoever misses it there.
internal sealed class ProfilerFacts
{
    internal const string Library = "CorvaneProfiler.dll";
    private const string Home = "CORVANE_HOME_APM_DOTNET";
    private const string ClassId = "{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";

    internal bool IsWindows { get; set; }

    internal bool Is64Bit { get; set; }

    internal bool IsFramework { get; set; }

    internal string Program { get; set; } = "";

    internal Func<string, string?> Variable { get; set; } = _ => null;

    internal Func<string, bool> FileExists { get; set; } = _ => false;

    internal bool CanBeServed => IsWindows && Is64Bit;

    // Names under which its module may be found. A copy that is not the one that runs has been loaded by hand.
    internal IEnumerable<string> ModuleNames
    {
        get
        {
            foreach (var (_, path) in Paths)
            {
                yield return path;
            }
            yield return Library;
        }
    }

    // Those that are set, the one that the runtime takes first. Without one it looks into the registry.
    private IEnumerable<(string Variable, string Value)> Paths
    {
        get
        {
            foreach (var name in new[] { Prefixed("PROFILER_PATH_64"), Prefixed("PROFILER_PATH") })
            {
                if (Variable(name) is { Length: > 0 } path)
                {
                    yield return (name, path);
                }
            }
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
            FileExists = File.Exists,
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
        if (Variable(enabled) != "1")
        {
            return $"{missing}: {enabled} is not 1. Start the program with {enabled}=1, {profiler}={ClassId} and " +
                $"{Prefixed("PROFILER_PATH")} naming the file, and with an agent.config that lists {Program}.";
        }
        if (!string.Equals(Variable(profiler), ClassId, StringComparison.OrdinalIgnoreCase))
        {
            return $"{missing}: {profiler} is not {ClassId}. Set it so; a process has one profiler only.";
        }
        foreach (var (variable, path) in Paths)
        {
            if (!FileExists(path))
            {
                return $"{missing}: {variable} is {path}, and there is no such file. Correct it.";
            }
            break;
        }
        if (Variable(Home) is not { Length: > 0 } home)
        {
            return $"{missing}: it left because {Home} is not set. Set it to the folder of agent.config, which lists {Program}.";
        }
        var config = $"{home.TrimEnd('\\', '/')}\\agent.config";
        return FileExists(config)
            ? $"{missing}: it left because {config} does not enable {Program}, or it could not be loaded. The file needs " +
              $"<application name=\"{Program}\" corvane=\"Enabled\"/> in configuration/instrumentation/applications."
            : $"{missing}: it left because there is no {config}. Write it, and list {Program} in it.";
    }

    private string Prefixed(string name) => (IsFramework ? "COR_" : "CORECLR_") + name;
}
