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
        process.WaitForRounds(); // the longer the first files take, the longer they are the last
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
        process.WaitForRounds(2);
        files.Renew();
        Assert.Contains("<title>Type.F2", File.ReadAllText(folder["samples/shop.svg"]));
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
        Array.ForEach(folder.Files.ToArray(), file => file.Delete());
        files.Renew(); // by a thread that was late
        Assert.Empty(folder.Files);
        Assert.Empty(complaints);
    }

    // While a file has the folder's name there can be none.
    [Fact]
    public void AFolderThatVanishesMayComeBack()
    {
        using var folder = new TemporaryFolder();
        process.Add(10, "first", 1);
        using var sampler = process.NewSampler();
        var files = Begin(sampler, folder["samples"], TimeSpan.FromHours(1));
        process.WaitForRounds();
        files.Renew();
        for (var round = 1; round <= 2; round++)
        {
            Directory.Delete(folder["samples"], recursive: true);
            File.WriteAllText(folder["samples"], "");
            files.Renew();
            files.Renew();
            Assert.Equal(round, complaints.Count);
            Assert.StartsWith(
                $"not all samples were written to {folder["samples"]}: IOException shop.folded, shop.speedscope.json, shop.svg, shop.pb.gz: ",
                complaints[^1]);
            File.Delete(folder["samples"]);
            files.Renew();
            Assert.Equal(names, new DirectoryInfo(folder["samples"]).GetFiles().Select(file => file.Name).Order());
        }
        files.End();
        Assert.Equal(2, complaints.Count);
    }

    // Somebody holds it open; here a folder has its name.
    [Fact]
    public void AFileThatCannotBeWrittenKeepsNoOtherFromBeingWritten()
    {
        using var folder = new TemporaryFolder();
        Directory.CreateDirectory(folder["shop.folded.new"]);
        Directory.CreateDirectory(folder["shop.svg.new"]);
        process.Add(10, "first", 1);
        using var sampler = process.NewSampler();
        var files = Begin(sampler, folder.FullName, TimeSpan.FromHours(1));
        process.WaitForRounds();
        files.Renew();
        Assert.Equal(["shop.pb.gz", "shop.speedscope.json"], folder.Files.Select(file => file.Name).Order());
        var complaint = Assert.Single(complaints);
        Assert.StartsWith($"not all samples were written to {folder.FullName}: IOException shop.folded, shop.svg: ", complaint);

        // The same is not said again, something else and another file are.
        files.Renew();
        Assert.Single(complaints);
        Directory.CreateDirectory(folder["shop.pb.gz.new"]);
        files.Renew();
        Assert.Equal(2, complaints.Count);
        Assert.Contains("IOException shop.pb.gz: ", complaints[1]);

        // It is when it was written in between.
        Directory.Delete(folder["shop.svg.new"]);
        files.Renew();
        Assert.Equal(2, complaints.Count);
        Assert.True(File.Exists(folder["shop.svg"]));
        Directory.CreateDirectory(folder["shop.svg.new"]);
        files.Renew();
        Assert.Equal(3, complaints.Count);
        Assert.Contains("IOException shop.svg: ", complaints[2]);
        files.End();
        Assert.Equal(3, complaints.Count);
        var exception = Assert.Throws<IOException>(() => sampler.Stop().Save(folder.FullName, "shop"));
        Assert.StartsWith("shop.folded, shop.svg, shop.pb.gz: ", exception.Message);
    }

    [Fact]
    public void WritingIsPartOfTheCost()
    {
        using var folder = new TemporaryFolder();
        process.Add(10, "first", 1);
        using var sampler = process.NewSampler();
        var files = Begin(sampler, folder.FullName, TimeSpan.FromHours(1));
        process.WaitForRounds();
        Assert.Equal(TimeSpan.Zero, sampler.Read().Cost.Writing);
        var took = files.Renew() + files.Renew();
        files.End();
        var cost = sampler.Stop().Cost;
        Assert.Equal(took, cost.Writing);
        Assert.Equal((cost.InSnapshots + cost.Besides + cost.Writing) / cost.Duration, cost.Share, 9);
    }

    // It takes no more than a hundredth of the time.
    [Theory]
    [InlineData(0, 30)]
    [InlineData(0.3, 30)]
    [InlineData(0.5, 50)]
    [InlineData(60, 6000)]
    public void WhatTakesLongIsRenewedSeldom(double writing, double pause) => Assert.Equal(
        TimeSpan.FromSeconds(pause), ProfileFiles.Pause(TimeSpan.FromSeconds(30), TimeSpan.FromSeconds(writing)));

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
        var files = Begin(sampler, folder.FullName, TimeSpan.FromHours(1));
        files.Renew();
        var renewals = 0;
        var renewing = new Thread(() =>
        {
            for (; renewals < 50; renewals++)
            {
                files.Renew();
            }
        });
        renewing.Start();
        while (renewing.IsAlive)
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
