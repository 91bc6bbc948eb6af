using System;
using System.IO;
using System.Linq;
using System.Text.Json;
using Corvane.Sampling;
using Corvane.Sampling.Results;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Results;

public class SpeedscopeFileTests
{
    private const long Begin = 1_700_000_000_000_000;

    private static string Write(Profile profile, string title = "shop")
    {
        using var writer = new StringWriter { NewLine = "\n" };
        profile.WriteSpeedscope(writer, title);
        return writer.ToString();
    }

    [Fact]
    public void EachThreadIsAProfileByTime()
    {
        var profiles = new Profiles()
            .ThreadAt(Begin + 5_000, 7, "main", "A.Main", "A.Main|B.Work", "A.Main|B.Work", null, "A.Main|B.Work", "")
            .ThreadAt(Begin, 8, null, "C.Run");
        profiles.Cost.Duration = TimeSpan.FromMilliseconds(99);
        profiles.Cost.Rounds = 9;
        Assert.Equal(
            """
            {"$schema":"https://www.speedscope.app/file-format-schema.json","exporter":"Corvane","name":"shop","profiles":[
            {"type":"sampled","name":"main (7)","unit":"microseconds","startValue":5000,
            "samples":[[0],[0,1],[],[0,1],[]],"endValue":66000,"weights":[10000,20000,10000,10000,11000]},
            {"type":"sampled","name":"thread 8","unit":"microseconds","startValue":0,
            "samples":[[2]],"endValue":11000,"weights":[11000]}],
            "shared":{"frames":[{"name":"A.Main"},{"name":"B.Work"},{"name":"C.Run"}]}}
            """.Replace("\n", "") + "\n",
            Write(profiles.ToProfile()));
    }

    [Fact]
    public void WaitingIsTheInnermostFunction() => Assert.Contains(
        """
        "samples":[[0],[0,1],[0],[]],"endValue":50000,"weights":[10000,20000,10000,10000]}],
        "shared":{"frames":[{"name":"A.Main"},{"name":"(waiting)"}]}
        """.Replace("\n", ""),
        Write(new Profiles { Cost = { Duration = TimeSpan.FromMilliseconds(10), Rounds = 1 } }
            .ThreadAt(0, 7, "main", "A.Main", "~A.Main", "~A.Main", "A.Main", "~").ToProfile()));

    [Fact]
    public void AThreadWithoutManagedCodeIsLeftOut()
    {
        using var json = JsonDocument.Parse(Write(new Profiles().Thread(1, "idle", "", null, "").ToProfile()));
        Assert.Equal(0, json.RootElement.GetProperty("profiles").GetArrayLength());
        Assert.Equal(0, json.RootElement.GetProperty("shared").GetProperty("frames").GetArrayLength());
    }

    [Fact]
    public void AnyNameIsReadAsItWas()
    {
        const string Name = "<Main>x__0\"\\\u0000\t\n\u007f\u0085é𝄞\u2028";
        var text = Write(new Profiles().Thread(1, "a\"b", Name).ToProfile(), "c\\d");
        using var json = JsonDocument.Parse(text);
        var root = json.RootElement;
        Assert.Equal("c\\d", root.GetProperty("name").GetString());
        Assert.Equal("a\"b (1)", root.GetProperty("profiles")[0].GetProperty("name").GetString());
        Assert.Equal(Name, root.GetProperty("shared").GetProperty("frames")[0].GetProperty("name").GetString());
        Assert.Contains("<Main>x__0\\\"\\\\\\u0000\\u0009\\u000a\\u007f\\u0085é𝄞", text);
    }

    // Attributes cannot hold such texts.
    [Fact]
    public void HalfACharacterIsEscaped()
    {
        foreach (var (name, escaped) in new[]
        {
            ("\ud834", "\\ud834"), ("a\udd1e", "a\\udd1e"), ("\udd1e\ud834", "\\udd1e\\ud834"), ("\ud834\udd1e", "𝄞"),
        })
        {
            Assert.Contains($"{{\"name\":\"{escaped}\"}}", Write(new Profiles().Thread(1, null, name).ToProfile()));
        }
    }

    [Fact]
    public void TimesThatRunBackwardsWeighNothing()
    {
        var profiles = new Profiles();
        var stack = profiles.Thread(1, null, "A").ToProfile().Threads[0].Samples[0].Stack;
        Sample[] samples = [new(Begin, stack), new(Begin - 10, null), new(Begin + 5, stack)];
        var profile = new Profile(
            TimeSpan.FromMilliseconds(1), [new ThreadProfile(new SampledThread(1, null), samples)], new SamplingCost(), null);
        using var json = JsonDocument.Parse(Write(profile));
        Assert.Equal([0, 15, 0],
            json.RootElement.GetProperty("profiles")[0].GetProperty("weights").EnumerateArray().Select(w => w.GetInt64()));
    }

    // What nobody could open is of no use to anybody.
    [Fact]
    public void OfTooManySamplesTheLastOnesAreWritten()
    {
        var profile = new Profiles()
            .Thread(1, "busy", [.. Enumerable.Range(0, 1000).Select(i => i % 2 == 0 ? "A|B|C" : "A|B")])
            .Thread(2, "idle", [.. Enumerable.Repeat("~A", 1000)])
            .Thread(3, "early", "A").ToProfile();
        var most = 0;
        string Write()
        {
            using var writer = new StringWriter();
            SpeedscopeFile.Write(writer, profile, "shop", most);
            return writer.ToString();
        }
        most = 5000;
        using (var all = JsonDocument.Parse(Write()))
        {
            Assert.Equal("shop", all.RootElement.GetProperty("name").GetString());
            Assert.Equal(3, all.RootElement.GetProperty("profiles").GetArrayLength());
        }
        most = 250;
        using var json = JsonDocument.Parse(Write());
        Assert.Equal("shop (from 9.0 s on, the other formats have all)", json.RootElement.GetProperty("name").GetString());
        var threads = json.RootElement.GetProperty("profiles").EnumerateArray().ToList();
        Assert.Equal(["busy (1)", "idle (2)"], threads.Select(thread => thread.GetProperty("name").GetString()));
        Assert.InRange(threads[0].GetProperty("samples").GetArrayLength(), 95, 100);
        Assert.InRange(threads[0].GetProperty("startValue").GetInt64(), 9_000_000, 9_050_000);
        Assert.Equal(1, threads[1].GetProperty("samples").GetArrayLength());
        Assert.Equal(9_990_000, threads[0].GetProperty("endValue").GetInt64());
    }

    [Fact]
    public void OfAStackThatIsTooDeepTheOutermostFunctionsAreWritten()
    {
        using var json = JsonDocument.Parse(Write(new Profiles().Thread(1, "t",
            string.Join('|', Enumerable.Repeat("R", 500)), string.Join('|', Enumerable.Repeat("R", 10_000))).ToProfile()));
        var samples = json.RootElement.GetProperty("profiles")[0].GetProperty("samples");
        Assert.Equal([.. Enumerable.Repeat(0, 500)], samples[0].EnumerateArray().Select(one => one.GetInt32()));
        Assert.Equal([.. Enumerable.Repeat(0, 500), 1], samples[1].EnumerateArray().Select(one => one.GetInt32()));
        Assert.Equal("(deeper functions are left out)", json.RootElement.GetProperty("shared").GetProperty("frames")[1].GetProperty("name").GetString());
    }
}
