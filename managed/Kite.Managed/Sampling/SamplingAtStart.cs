using System;
using System.Globalization;
using System.IO;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Recording;
using Corvane.Sampling.Platform;

namespace Corvane.Sampling;

// Sampling of a program that does not know of it, from its start to its end, as the environment asks for.
internal static class SamplingAtStart
{
    private const string FolderVariable = "CORVANE_SAMPLE";
    private const string IntervalVariable = "CORVANE_SAMPLE_INTERVAL_MS";
    private const string BeforeVariable = "CORVANE_SAMPLE_BEFORE";
    private const string OursBeginWith = "Corvane ";
    private static readonly TimeSpan renewal = TimeSpan.FromSeconds(30);

    private static volatile ProfileFiles? current;

    internal static void Begin()
    {
        var folder = Environment.GetEnvironmentVariable(FolderVariable);
        if (string.IsNullOrEmpty(folder))
        {
            return;
        }
        try
        {
            Start(folder!);
        }
        catch (Exception exception)
        {
            Complaint.Write("no samples are taken", exception);
        }
    }

    // What was sampled until now, if anything is.
    internal static void Flush(Flushed flushed) => current?.Flush(flushed);

    internal static TimeSpan Interval(string? text)
    {
        if (string.IsNullOrEmpty(text))
        {
            return SamplerOptions.DefaultInterval;
        }
        // One that TimeSpan could not hold is not compared as one.
        if (double.TryParse(text, NumberStyles.AllowDecimalPoint, CultureInfo.InvariantCulture, out var milliseconds) &&
            milliseconds >= SamplerOptions.MinInterval.TotalMilliseconds &&
            milliseconds <= SamplerOptions.MaxInterval.TotalMilliseconds)
        {
            return TimeSpan.FromTicks((long)(milliseconds * TimeSpan.TicksPerMillisecond));
        }
        throw new FormatException(
            $"{IntervalVariable} is \"{text}\"; it has to be a number of milliseconds from 1 to 60000, such as 10.");
    }

    // Of programs that start others, each has files of its own.
    internal static string Name(string program)
    {
        if (program.EndsWith(".exe", StringComparison.OrdinalIgnoreCase))
        {
            program = program.Substring(0, program.Length - 4);
        }
        return $"{string.Join("_", program.Split(Path.GetInvalidFileNameChars()))}-{OutputTarget.ProcessId()}";
    }

    private static string? Before() =>
        Environment.GetEnvironmentVariable(BeforeVariable) is { Length: > 0 } file ? Path.GetFullPath(file) : null;

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Start(string folder)
    {
        folder = Path.GetFullPath(folder);
        var options = new SamplerOptions
        {
            Interval = Interval(Environment.GetEnvironmentVariable(IntervalVariable)),
            Filter = thread => thread.Name?.StartsWith(OursBeginWith, StringComparison.Ordinal) != true,
        };
        var exports = ProfilerExports.Find();
        // This is the program's main thread.
        var threads = new WindowsThreads(mainThread: WindowsThreads.GetCurrentThreadId());
        var sampler = new Sampler(exports, threads, options);
        var files = new ProfileFiles(sampler, folder, Name(AppDomain.CurrentDomain.FriendlyName), Complaint.Write, Before());
        files.BeginToRenew(renewal);
        sampler.Start();
        AtExit.Run(files.End);
        current = files;
    }
}
