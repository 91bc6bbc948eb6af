using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Linq;

namespace Corvane.Sampling.Results;

// A file for speedscope: a sampled profile for each thread with managed code, in microseconds since the first
// sample of all. A sample stands for the time until the thread's next one; equal ones in a row are one. Waiting is the
// innermost function, operations are the outermost ones. Every sample has its whole stack: of what would be too much to
// open only the end is written.
internal sealed class SpeedscopeFile
{
    private const string Schema = "https://www.speedscope.app/file-format-schema.json";

    private const string Deeper = "(deeper functions are left out)";

    // Numbers of functions in the file, about 25 MB; and of one sample.
    private const int MostNumbers = 5_000_000;
    private const int MaxDepth = 500;

    // It is cut at one of so many moments.
    private const int Moments = 1000;

    private readonly JsonText json;
    private readonly List<string> frames = new List<string>();
    private readonly Dictionary<string, long> frameIndexes = new Dictionary<string, long>();
    private readonly long start;
    private readonly long lastWeight;

    private readonly long from;

    private SpeedscopeFile(TextWriter writer, Profile profile, int mostNumbers)
    {
        json = new JsonText(writer);
        lastWeight = profile.LastMicroseconds;
        start = profile.Begin;
        from = Begin(profile, mostNumbers);
    }

    internal static void Write(TextWriter writer, Profile profile, string title, int mostNumbers = MostNumbers)
    {
        var file = new SpeedscopeFile(writer, profile, mostNumbers);
        if (file.from > 0)
        {
            title += string.Format(
                CultureInfo.InvariantCulture, " (from {0:N1} s on, the other formats have all)", file.from / 1e6);
        }
        file.Write(profile, title);
        writer.WriteLine();
    }

    // From which moment on there is no more than may be, in microseconds.
    private long Begin(Profile profile, int mostNumbers)
    {
        var end = profile.Sums.Select(one => one.Thread.Samples[one.Thread.Samples.Count - 1].Microseconds).DefaultIfEmpty(start).Max();
        var length = Math.Max(1, (end - start) / Moments + 1);
        var numbers = new long[Moments];
        foreach (var (thread, _) in profile.Sums)
        {
            Sample last = default;
            foreach (var sample in thread.Samples)
            {
                if (!IsSame(sample, last) && sample.Stack != null)
                {
                    numbers[Math.Max(0, Math.Min(Moments - 1, (sample.Microseconds - start) / length))] += Math.Min(sample.Stack.Depth, MaxDepth);
                }
                last = sample;
            }
        }
        var moment = Moments;
        for (long sum = 0; moment > 0 && (sum += numbers[moment - 1]) <= mostNumbers;)
        {
            moment--;
        }
        return moment * length;
    }

    private static bool IsSame(Sample one, Sample other) =>
        one.Stack == other.Stack && one.IsWaiting == other.IsWaiting && one.InOperation == other.InOperation;

    private void Write(Profile profile, string title)
    {
        json.BeginObject();
        json.Name("$schema").Value(Schema);
        json.Name("exporter").Value("Corvane");
        json.Name("name").Value(title);
        json.Name("profiles").BeginArray();
        foreach (var (thread, _) in profile.Sums)
        {
            var samples = thread.Timed(lastWeight).Where(one => from == 0 || one.Sample.Microseconds >= start + from);
            if (from == 0 || samples.Any())
            {
                WriteThread(thread.Thread, samples);
            }
        }
        json.EndArray();
        // They are all known only now.
        json.Name("shared").BeginObject().Name("frames").BeginArray();
        foreach (var name in frames)
        {
            json.BeginObject().Name("name").Value(name).EndObject();
        }
        json.EndArray().EndObject().EndObject();
    }

    private void WriteThread(SampledThread thread, IEnumerable<(Sample Sample, long Microseconds)> samples)
    {
        var begin = samples.First().Sample.Microseconds - start;
        json.BeginObject();
        json.Name("type").Value("sampled");
        json.Name("name").Value(thread.Name == null ? thread.ToString() : $"{thread.Name} ({thread.Id})");
        json.Name("unit").Value("microseconds");
        json.Name("startValue").Value(begin);
        var weights = WriteSamples(samples);
        json.Name("endValue").Value(begin + weights.Sum());
        json.Name("weights").BeginArray();
        foreach (var weight in weights)
        {
            json.Value(weight);
        }
        json.EndArray().EndObject();
    }

    private List<long> WriteSamples(IEnumerable<(Sample Sample, long Microseconds)> samples)
    {
        var weights = new List<long>();
        Sample last = default;
        json.Name("samples").BeginArray();
        foreach (var (sample, weight) in samples)
        {
            if (weights.Count > 0 && IsSame(sample, last))
            {
                weights[weights.Count - 1] += weight;
                continue;
            }
            last = sample;
            weights.Add(weight);
            json.BeginArray();
            // One that was missed is a gap, like one without managed code.
            if (last is { InOperation: { } operation, Stack.Depth: > 0 })
            {
                foreach (var name in operation.Path)
                {
                    json.Value(FrameIndex(FoldedStacks.Operation(name)));
                }
            }
            var functions = last.Stack?.ToArray() ?? [];
            for (var i = 0; i < Math.Min(functions.Length, MaxDepth); i++)
            {
                json.Value(FrameIndex(functions[i].Name));
            }
            if (functions.Length > MaxDepth)
            {
                json.Value(FrameIndex(Deeper));
            }
            if (last is { IsWaiting: true, Stack.Depth: > 0 })
            {
                json.Value(FrameIndex(FoldedStacks.Waiting));
            }
            json.EndArray();
        }
        json.EndArray();
        return weights;
    }

    private long FrameIndex(string name)
    {
        if (!frameIndexes.TryGetValue(name, out var index))
        {
            index = frames.Count;
            frames.Add(name);
            frameIndexes.Add(name, index);
        }
        return index;
    }
}
