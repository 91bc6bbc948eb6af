using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Text;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Corvane.Sampling;
using Corvane.Sampling.Results;

namespace Corvane.Instrumentation.Control;

// What a tool outside may ask of this process while it runs, each in one line:
//
//   summary                            the table of calls by method
//   flush                              the files are written as they would be if the process ended now: their names, remarks
//   sample SECONDS MILLISECONDS FORMAT[,FORMAT...]    a sampling, with so many milliseconds between samples
//
// The answer is "ok" in a line, "wait SECONDS" as often as it takes, a line "part NAME LENGTH" and as many bytes for each
// result, and "end". Or it is "error" with the reason, in one line.
internal sealed class ControlCommands
{
    internal const int LongestSampling = 3600;

    private static readonly TimeSpan step = TimeSpan.FromSeconds(1);

    private readonly Recorder? recorder;
    private readonly Func<SamplerOptions, Sampler> makeSampler;
    private readonly Action<Flushed> flushSamples;

    internal ControlCommands(Recorder? recorder, Func<SamplerOptions, Sampler> makeSampler, Action<Flushed> flushSamples)
    {
        this.recorder = recorder;
        this.makeSampler = makeSampler;
        this.flushSamples = flushSamples;
    }

    // A reply that cannot be written throws, and ends what it is about.
    internal void Answer(string request, Stream reply)
    {
        try
        {
            Run(request.Split(' '), reply);
        }
        catch (RefusedException refused)
        {
            WriteLine(reply, "error " + refused.Message);
        }
    }

    private void Run(string[] words, Stream reply)
    {
        switch (words[0], words.Length)
        {
            case ("summary", 1):
                Reply(reply, ("summary", recorder?.Summary() ?? throw new RefusedException(
                    "there is no summary of calls: the process was started without CORVANE_SUMMARY")));
                break;
            case ("flush", 1):
                var flushed = Flush();
                Reply(reply, ("files", Lines(flushed.Files)), ("remarks", Lines(flushed.Remarks)));
                break;
            case ("sample", 4):
                Sample(Number(words[1], 1, LongestSampling), Number(words[2], 1, 60_000), words[3].Split(','), reply);
                break;
            default:
                throw new RefusedException("that is no request");
        }
    }

    private Flushed Flush()
    {
        var flushed = new Flushed();
        recorder?.Flush(flushed);
        flushSamples(flushed);
        return flushed.Files.Count + flushed.Remarks.Count > 0
            ? flushed
            : throw new RefusedException("no file is written by this process: CORVANE_CALL_TREE, CORVANE_SUMMARY, CORVANE_OTLP_FILE, " +
                "CORVANE_TRACE_FILE and CORVANE_SAMPLE name none");
    }

    private static string Lines(List<string> lines) => string.Concat(lines.Select(line => line + Environment.NewLine));

    private void Sample(int seconds, int interval, string[] names, Stream reply)
    {
        var formats = Array.ConvertAll(names, Format);
        Profile profile;
        using (var sampler = Make(interval))
        {
            sampler.Start();
            WriteLine(reply, "ok");
            for (var rest = seconds; rest > 0; rest--)
            {
                WriteLine(reply, string.Format(CultureInfo.InvariantCulture, "wait {0}", rest));
                Thread.Sleep(step);
            }
            profile = sampler.Stop();
        }
        foreach (var format in formats)
        {
            var bytes = new MemoryStream();
            format.Write(profile, AppDomain.CurrentDomain.FriendlyName, bytes);
            WritePart(reply, format.Name, bytes);
        }
        WritePart(reply, "cost", new MemoryStream(Encoding.UTF8.GetBytes(profile.ToString())));
        WriteLine(reply, "end");
    }

    private Sampler Make(int interval)
    {
        try
        {
            return makeSampler(new SamplerOptions { Interval = TimeSpan.FromMilliseconds(interval) });
        }
        catch (InvalidOperationException exception)
        {
            throw new RefusedException(exception.Message);
        }
    }

    private static ProfileFormat Format(string name) =>
        Array.Find(ProfileFormat.All, format => format.Name == name) ?? throw new RefusedException(
            $"a format is none of {string.Join(", ", ProfileFormat.All.Select(format => format.Name))}");

    private static void Reply(Stream reply, params (string Name, string Text)[] parts)
    {
        WriteLine(reply, "ok");
        foreach (var (name, text) in parts)
        {
            WritePart(reply, name, new MemoryStream(Encoding.UTF8.GetBytes(text)));
        }
        WriteLine(reply, "end");
    }

    private static void WritePart(Stream reply, string name, MemoryStream bytes)
    {
        WriteLine(reply, string.Format(CultureInfo.InvariantCulture, "part {0} {1}", name, bytes.Length));
        bytes.Position = 0;
        bytes.CopyTo(reply);
        reply.Flush();
    }

    private static void WriteLine(Stream reply, string line)
    {
        var bytes = Encoding.UTF8.GetBytes(line.Replace("\r", "").Replace('\n', ' ') + "\n");
        reply.Write(bytes, 0, bytes.Length);
        reply.Flush();
    }

    private static int Number(string text, int least, int most) =>
        int.TryParse(text, NumberStyles.None, CultureInfo.InvariantCulture, out var number) && number >= least && number <= most
            ? number
            : throw new RefusedException(string.Format(CultureInfo.InvariantCulture, "a number is not from {0} to {1}", least, most));

    private sealed class RefusedException : Exception
    {
        internal RefusedException(string message)
            : base(message)
        {
        }
    }
}
