using System;
using System.IO;
using System.Linq;
using Corvane.Sampling;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Results;

public class FoldedStacksTests
{
    private static string Folded(Profiles profiles, bool byThread = true)
    {
        using var writer = new StringWriter { NewLine = "\n" };
        profiles.ToProfile().WriteFolded(writer, byThread);
        return writer.ToString();
    }

    [Fact]
    public void EachStackIsALineWithItsSamples() => Assert.Equal(
        """
        main;A.Main 1
        main;A.Main;A.Do 1
        main;A.Main;A.Do;B.Work 3
        main;A.Main;B.Work 1

        """,
        Folded(new Profiles().Thread(1, "main",
            "A.Main|B.Work", "A.Main|A.Do|B.Work", "A.Main|A.Do|B.Work", "A.Main", "A.Main|A.Do|B.Work", "A.Main|A.Do")));

    [Fact]
    public void WaitingIsALineOfItsOwn() => Assert.Equal(
        "t;A.Main;(waiting) 1\nt;A.Main;A.Do 1\nt;A.Main;A.Do;(waiting) 2\n",
        Folded(new Profiles().Thread(1, "t", "~A.Main|A.Do", "A.Main|A.Do", "~A.Main|A.Do", "~A.Main")));

    [Fact]
    public void ThreadsOfOneNameAreOne()
    {
        var profiles = new Profiles()
            .Thread(1, "worker", "A.Run", "A.Run").Thread(2, "worker", "A.Run", "A.Stop").Thread(30, null, "A.Run");
        Assert.Equal("thread 30;A.Run 1\nworker;A.Run 3\nworker;A.Stop 1\n", Folded(profiles));
        Assert.Equal("A.Run 4\nA.Stop 1\n", Folded(profiles, byThread: false));
    }

    [Fact]
    public void SamplesWithoutManagedCodeAreLeftOut() =>
        Assert.Equal("main;A.Main 2\n", Folded(new Profiles().Thread(1, "main", "", "A.Main", null, "A.Main").Thread(2, "idle", "", "")));

    [Fact]
    public void AnEmptyProfileIsAnEmptyFile() => Assert.Equal("", Folded(new Profiles()));

    // In the text above a bar stands between two functions.
    [Fact]
    public void WhatTheFormatCannotHoldIsReplaced() => Assert.Equal(
        "a:b;<Main>x__0 1;List`1.Add x 1\nhalf \uFFFD\uFFFD, whole \U0001F600;A.B 1\n",
        Folded(new Profiles()
            .Thread(1, "a;b", "<Main>x__0 1|List`1.Add\tx").Thread(2, "half \uDE00\uD83D, whole \U0001F600", "A.B")));

    [Fact]
    public void FunctionsOfOneNameAreOne()
    {
        var functions = new FunctionTable();
        var stacks = new StackTable();
        functions.Get(1).Resolve("A", "Of");
        functions.Get(2).Resolve("A", "Of");
        var samples = new[] { 1.0, 2, 3, 4 }.Select(id => new Sample(0, stacks.Get([id], 1, functions))).ToArray();
        var profile = new Profile(
            TimeSpan.FromMilliseconds(1), [new ThreadProfile(new SampledThread(1, "t"), samples)], new SamplingCost(), null);
        using var writer = new StringWriter { NewLine = "\n" };
        profile.WriteFolded(writer);
        Assert.Equal("t;(no name) 2\nt;A.Of 2\n", writer.ToString());
    }

    [Fact]
    public void RecursionMayBeDeep()
    {
        var stack = string.Join('|', Enumerable.Repeat("R", 20_000));
        var folded = Folded(new Profiles().Thread(1, "t", stack, stack + "|Leaf"));
        Assert.Equal($"t;{stack.Replace('|', ';')} 1\nt;{stack.Replace('|', ';')};Leaf 1\n", folded);
    }
}
