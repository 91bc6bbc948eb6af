using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Threading;
using Corvane.Sampling;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class ProfileFilesTests
{
    private static readonly string[] names = ["shop.folded", "shop.pb.gz", "shop.speedscope.json", "shop.svg"];

    private readonly FakeProcess process = new();
    private readonly List<string> complaints = [];

    private ProfileFiles Begin(Sampler sampler, string folder, TimeSpan period)
    {
        var files = new ProfileFiles(sampler, folder, "shop", (what, why) =>
        {
            lock (complaints)
            {
                complaints.Add($"{what}: {why?.GetType().Name} {why?.Message}");
            }
        });
        sampler.Start();
        files.BeginToRenew(period);
        return files;
    }

    private static void WaitUntil(Func<bool> holds, string what) =>
        Assert.True(SpinWait.SpinUntil(holds, 30_000), what);

    // Those that do not hold what follows are of before.
    private static bool Holds(string file, string text) => File.Exists(file) && File.ReadAllText(file).Contains(text);

    [Fact]
    public void TheyAreRenewedWhileTheSamplingGoesOn()
    {
        using var folder = new TemporaryFolder();
        process.Add(10, "first", 1);
        using var sampler = process.NewSampler();
        var files = Begin(sampler, folder["samples"], TimeSpan.FromMilliseconds(20));
        WaitUntil(() => Holds(folder["samples/shop.folded"], "first;Type.F1 "), "no file");
        process.Add(20, "second", 2);
        WaitUntil(() => Holds(folder["samples/shop.svg"], "<title>Type.F2"), "no new file");
        files.End();
        Assert.Equal(names, new DirectoryInfo(folder["samples"]).GetFiles().Select(file => file.Name).Order());
        Assert.Empty(complaints);
    }

    [Fact]
    public void TheLastOnesAreOfTheEnd()
    {
        using var folder = new TemporaryFolder();
        process.Add(10, "first", 1);
        using var sampler = process.NewSampler();
        var files = Begin(sampler, folder.FullName, TimeSpan.FromHours(1));
        process.WaitForRounds();
        Assert.Empty(folder.Files);
        files.End();
        Assert.Equal(names, folder.Files.Select(file => file.Name).Order());
        Assert.Contains($"first;Type.F1 {sampler.Stop().Cost.Snapshots}\n", File.ReadAllText(folder["shop.folded"]));
    }

    [Fact]
    public void AFolderThatVanishesMayComeBack()
    {
        using var folder = new TemporaryFolder();
        process.Add(10, "first", 1);
        using var sampler = process.NewSampler();
        var files = Begin(sampler, folder["samples"], TimeSpan.FromMilliseconds(20));
        WaitUntil(() => File.Exists(folder["samples/shop.pb.gz"]), "no file");
        for (var round = 0; round < 2; round++)
        {
            // While a file has the folder's name there can be none. That is said once.
            WaitUntil(() => Replaces(folder["samples"]), "the folder stays");
            WaitUntil(HasComplained, "nothing is said");
            Thread.Sleep(100);
            File.Delete(folder["samples"]);
            WaitUntil(() => File.Exists(folder["samples/shop.pb.gz"]), "no file again");
        }
        files.End();
        Assert.Equal(names, new DirectoryInfo(folder["samples"]).GetFiles().Select(file => file.Name).Order());
        var complaint = Assert.Single(complaints);
        Assert.StartsWith($"not all samples were written to {folder["samples"]}: ", complaint);
    }

    private bool HasComplained()
    {
        lock (complaints)
        {
            return complaints.Count > 0;
        }
    }

    // The folder may be made again in between.
    private static bool Replaces(string folder)
    {
        try
        {
            Directory.Delete(folder, recursive: true);
            File.WriteAllText(folder, "");
            return true;
        }
        catch (Exception)
        {
            return false;
        }
    }

    // What a reader sees is one of them, whole.
    [Fact]
    public void AFileIsWholeAtEveryMoment()
    {
        using var folder = new TemporaryFolder();
        for (var id = 10U; id < 60; id++)
        {
            process.Add(id, $"thread {id}", id, 1);
        }
        using var sampler = process.NewSampler();
        var files = Begin(sampler, folder.FullName, TimeSpan.FromMilliseconds(1));
        WaitUntil(() => File.Exists(folder["shop.svg"]), "no file");
        for (var read = 0; read < 200; read++)
        {
            Assert.EndsWith("</svg>\n", File.ReadAllText(folder["shop.svg"]));
            Assert.EndsWith("}\n", File.ReadAllText(folder["shop.speedscope.json"]));
        }
        files.End();
        Assert.Empty(complaints);
    }

    [Fact]
    public void AFailureInMidFileLeavesTheOldOne()
    {
        using var folder = new TemporaryFolder();
        new Profiles().Thread(1, "old", "A.Main").ToProfile().Save(folder.FullName, "shop");
        Directory.CreateDirectory(folder["shop.svg.new"]);
        Assert.ThrowsAny<Exception>(() => new Profiles().Thread(1, "new", "A.Main").ToProfile().Save(folder.FullName, "shop"));
        Assert.Contains("old", File.ReadAllText(folder["shop.svg"]));
    }
}
