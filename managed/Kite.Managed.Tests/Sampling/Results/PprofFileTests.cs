// Files for pprof, read by somebody else.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Text.Json;
using Corvane.Sampling;
using Kite.Managed.Tests.Export;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Results;

public sealed class PprofFileTests : IDisposable
{
    private const long Begin = 1_700_000_000_000_000;

    private readonly TemporaryFolder folder = new();

    public void Dispose() => folder.Dispose();

    private JsonElement ReadBack(Profile profile)
    {
        using (var file = File.Create(folder["profile.pb.gz"]))
        {
            profile.WritePprof(file);
        }
        return Assert.Single(Export.Spans.RunReader("pprof.js", folder["profile.pb.gz"]));
    }

    private static string[] Texts(JsonElement list) => [.. list.EnumerateArray().Select(one => one.ToString())];

    // The stack from outside in, what it was labelled with, its numbers.
    private static IEnumerable<string> Samples(JsonElement read) => read.GetProperty("samples").EnumerateArray().Select(sample =>
        $"{string.Join(";", Texts(sample.GetProperty("labels")).Concat(Texts(sample.GetProperty("stack")).Reverse()))} " +
        string.Join(" ", Texts(sample.GetProperty("values"))));

    [Fact]
    public void EveryFieldIsWhereOthersLookForIt()
    {
        var profiles = new Profiles()
            .ThreadAt(Begin, 7, "main", "A.Main", "~A.Main|B.Wait", "A.Main|B.Work", null, "A.Main|B.Work", "")
            .ThreadAt(Begin, 8, null, "~C.Run", "C.Run");
        profiles.Cost.Duration = TimeSpan.FromMilliseconds(99);
        profiles.Cost.Rounds = 9;
        var profile = profiles.ToProfile();
        var read = ReadBack(profile);
        Assert.Equal("", read.Text("first"));
        Assert.Equal(
            ["running in samples", "running_time in nanoseconds", "waiting in samples", "waiting_time in nanoseconds"],
            Texts(read.GetProperty("types")));
        Assert.Equal(
            [
                "thread=main;A.Main 1 10000000 0 0",
                "thread=main;A.Main;B.Wait 0 0 1 10000000",
                "thread=main;A.Main;B.Work 2 20000000 0 0",
                "thread=thread 8;C.Run 1 11000000 1 10000000",
            ],
            Samples(read));
        Assert.Equal("1700000000000000000", read.Text("time"));
        Assert.Equal("99000000", read.Text("duration"));
        Assert.Equal("10000000 running in nanoseconds", read.Text("period"));
        Assert.Equal([profile.ToString()], Texts(read.GetProperty("comments")));
        Assert.Equal("running", read.Text("shown"));
    }

    [Fact]
    public void AnyNameIsReadAsItWas()
    {
        var hostile = $"<script>\"'\u202e\u0000\n{new string('x', 10_000)}\U0001F600";
        var read = ReadBack(new Profiles().Thread(1, "t;\n", hostile, "half \ud83d").ToProfile());
        Assert.Equal([$"thread=t;\n;{hostile} 1 10000000 0 0", "thread=t;\n;half \ufffd 1 0 0 0"], Samples(read));
    }

    [Fact]
    public void AStackMayBeDeepAndAProfileEmpty()
    {
        var stack = string.Join('|', Enumerable.Range(0, 10_000).Select(i => $"F{i % 500}"));
        Assert.Equal([$"thread=t;{stack.Replace('|', ';')} 1 0 0 0"], Samples(ReadBack(new Profiles().Thread(1, "t", stack).ToProfile())));
        Assert.Empty(Samples(ReadBack(new Profiles().ToProfile())));
    }

    // Sample by sample: what each format says of a stack is the same.
    [Fact]
    public void ItAgreesWithTheOtherFormats()
    {
        var random = new Random(5);
        string Stack() => (random.Next(2) == 0 ? "~" : "") + string.Join('|', Enumerable.Range(0, random.Next(1, 6)).Select(_ => $"F{random.Next(3)}"));
        var profiles = new Profiles();
        for (var id = 1U; id < 5; id++)
        {
            profiles.Thread(id, $"t{id}", [.. Enumerable.Range(0, 300).Select(_ => Stack())]);
        }
        profiles.Cost.Duration = TimeSpan.FromSeconds(3);
        profiles.Cost.Rounds = 300;
        var profile = profiles.ToProfile();

        using var folded = new StringWriter { NewLine = "\n" };
        profile.WriteFolded(folded);
        var read = ReadBack(profile).GetProperty("samples").EnumerateArray().ToList();
        var lines = read.SelectMany(sample =>
        {
            var names = string.Join(";", Texts(sample.GetProperty("stack")).Reverse().Prepend(Texts(sample.GetProperty("labels"))[0]["thread=".Length..]));
            var values = sample.GetProperty("values").EnumerateArray().Select(value => value.GetInt64()).ToArray();
            return new (string Names, long Value)[] { (names, values[0]), (names + ";(waiting)", values[2]) };
        });
        Assert.Equal(
            folded.ToString().TrimEnd().Split('\n').Order(StringComparer.Ordinal),
            lines.Where(line => line.Value > 0).Select(line => $"{line.Names} {line.Value}").Order(StringComparer.Ordinal));

        using var speedscope = new StringWriter();
        profile.WriteSpeedscope(speedscope, "all");
        using var json = JsonDocument.Parse(speedscope.ToString());
        var frames = json.RootElement.GetProperty("shared").GetProperty("frames").EnumerateArray().Select(frame => frame.Text("name")!).ToArray();
        var times = new Dictionary<string, long>();
        foreach (var thread in json.RootElement.GetProperty("profiles").EnumerateArray())
        {
            foreach (var (sample, weight) in thread.GetProperty("samples").EnumerateArray().Zip(thread.GetProperty("weights").EnumerateArray()))
            {
                var names = string.Join(";", sample.EnumerateArray().Select(frame => frames[frame.GetInt32()]).Prepend(thread.Text("name")!.Split(' ')[0]));
                times[names] = times.GetValueOrDefault(names) + weight.GetInt64();
            }
        }
        var nanoseconds = read.SelectMany(sample =>
        {
            var names = string.Join(";", Texts(sample.GetProperty("stack")).Reverse().Prepend(Texts(sample.GetProperty("labels"))[0]["thread=".Length..]));
            var values = sample.GetProperty("values").EnumerateArray().Select(value => value.GetInt64()).ToArray();
            return new (string Names, long Value)[] { (names, values[1]), (names + ";(waiting)", values[3]) };
        });
        Assert.Equal(
            times.Select(time => $"{time.Key} {time.Value * 1000}").Order(StringComparer.Ordinal),
            nanoseconds.Where(line => line.Value > 0).Select(line => $"{line.Names} {line.Value}").Order(StringComparer.Ordinal));
    }
}
