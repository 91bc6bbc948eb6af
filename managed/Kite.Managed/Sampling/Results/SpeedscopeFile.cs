using System.Collections.Generic;
using System.IO;
using System.Linq;

namespace Corvane.Sampling.Results;

// A file for speedscope: a sampled profile for each thread with managed code, in microseconds since the first
// sample of all. A sample stands for the time until the thread's next one; equal ones in a row are one. Waiting is the
// innermost function, operations are the outermost ones.
internal sealed class SpeedscopeFile
{
    private const string Schema = "https://www.speedscope.app/file-format-schema.json";

    private readonly JsonText json;
    private readonly List<string> frames = new List<string>();
    private readonly Dictionary<string, long> frameIndexes = new Dictionary<string, long>();
    private readonly long start;
    private readonly long lastWeight;

    private SpeedscopeFile(TextWriter writer, Profile profile)
    {
        json = new JsonText(writer);
        lastWeight = profile.LastMicroseconds;
        start = profile.Begin;
    }

    internal static void Write(TextWriter writer, Profile profile, string title)
    {
        var file = new SpeedscopeFile(writer, profile);
        file.Write(profile, title);
        writer.WriteLine();
    }

    private void Write(Profile profile, string title)
    {
        json.BeginObject();
        json.Name("$schema").Value(Schema);
        json.Name("exporter").Value("Corvane");
        json.Name("name").Value(title);
        json.Name("profiles").BeginArray();
        foreach (var (thread, _) in profile.Sums)
        {
            WriteThread(thread);
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

    private void WriteThread(ThreadProfile profile)
    {
        var thread = profile.Thread;
        var begin = profile.Samples[0].Microseconds - start;
        json.BeginObject();
        json.Name("type").Value("sampled");
        json.Name("name").Value(thread.Name == null ? thread.ToString() : $"{thread.Name} ({thread.Id})");
        json.Name("unit").Value("microseconds");
        json.Name("startValue").Value(begin);
        var weights = WriteSamples(profile);
        json.Name("endValue").Value(begin + weights.Sum());
        json.Name("weights").BeginArray();
        foreach (var weight in weights)
        {
            json.Value(weight);
        }
        json.EndArray().EndObject();
    }

    private List<long> WriteSamples(ThreadProfile profile)
    {
        var weights = new List<long>();
        Sample last = default;
        json.Name("samples").BeginArray();
        foreach (var (sample, weight) in profile.Timed(lastWeight))
        {
            if (weights.Count > 0 && sample.Stack == last.Stack && sample.IsWaiting == last.IsWaiting &&
                sample.InOperation == last.InOperation)
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
            foreach (var function in last.Stack?.ToArray() ?? [])
            {
                json.Value(FrameIndex(function.Name));
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
