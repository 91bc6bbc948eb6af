using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Runtime.InteropServices;
using System.Threading;
using Corvane.Sampling;
using Corvane.Sampling.Platform;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class SamplerTests
{
    private static readonly TimeSpan longest = SamplerOptions.MaxInterval;

    private readonly FakeProcess process = new();

    private static string Names(Sample sample) =>
        sample.Stack == null ? "missed" : string.Join(" ", sample.Stack.ToArray().Select(function => function.Name));

    private static IEnumerable<string> Distinct(ThreadProfile thread) => thread.Samples.Select(Names).Distinct();

    [Fact]
    public void EveryThreadIsSampledButTheSamplersOwn()
    {
        process.Add(FakeProcess.Sampler, null, 5);
        process.Add(10, null, 3, 2, 1);
        process.Add(20, "worker", 4, 1);
        var profile = process.Sample();
        Assert.Equal([10U, 20U], process.Snapshots.Distinct());
        Assert.Equal([10U, 20U], profile.Threads.Select(thread => thread.Thread.Id));
        Assert.Equal([null, "worker"], profile.Threads.Select(thread => thread.Thread.Name));
        Assert.Equal(["Type.F1 Type.F2 Type.F3"], Distinct(profile.Threads[0]));
        Assert.Equal(["Type.F1 Type.F4"], Distinct(profile.Threads[1]));
        Assert.Null(profile.Failure);
    }

    [Fact]
    public void TheLibrarysThreadsAreNotSampled()
    {
        process.Add(10, "worker", 1);
        process.Add(20, "Corvane exporter", 1);
        process.Add(30, "Corvaneer", 1);
        Assert.Equal([10U, 30U], process.Sample().Threads.Select(thread => thread.Thread.Id));
    }

    [Fact]
    public void ASampleHasTheTimeOfItsSnapshot()
    {
        process.Add(10, null, 1);
        var samples = process.Sample().Threads[0].Samples;
        Assert.Equal(Enumerable.Range(0, samples.Count).Select(i => (long)FakeProcess.Start + i),
            samples.Select(sample => sample.Microseconds));
        Assert.Equal(new DateTime(2023, 11, 14, 22, 13, 20, DateTimeKind.Utc), samples[0].Time);
        Assert.Equal(10, (samples[1].Time - samples[0].Time).Ticks);
    }

    [Fact]
    public void EqualStacksAreOneObject()
    {
        process.Add(10, null, 2, 1);
        process.Add(20, null, 3, 2, 1);
        var profile = process.Sample();
        var stack = Assert.Single(profile.Threads[0].Samples.Select(sample => sample.Stack).Distinct());
        var deeper = Assert.Single(profile.Threads[1].Samples.Select(sample => sample.Stack).Distinct());
        Assert.Same(stack, deeper!.Caller);
        Assert.Equal(3, deeper.Depth);
        Assert.Same(stack!.Function, deeper.ToArray()[1]);
    }

    [Fact]
    public void ADeepStackIsSampledWhole()
    {
        process.Add(10, null, Enumerable.Range(1, 10_000).Select(id => (double)id).Reverse().ToArray());
        var stack = process.Sample(rounds: 1).Threads[0].Samples[0].Stack!;
        Assert.Equal(10_000, stack.Depth);
        Assert.Equal("Type.F10000", stack.Function!.Name);
        Assert.Equal("Type.F1", stack.ToArray()[0].Name);
    }

    [Fact]
    public void AThreadWithoutManagedCodeHasAnEmptyStack()
    {
        process.Add(10);
        var stack = Assert.Single(process.Sample().Threads[0].Samples.Select(sample => sample.Stack).Distinct());
        Assert.Equal(0, stack!.Depth);
        Assert.Null(stack.Function);
        Assert.Empty(stack.ToArray());
    }

    [Fact]
    public void AFunctionIsAskedForItsNameOnceAndBeforeTheNextSnapshot()
    {
        FakeThread[] threads = [process.Add(10, null, 1), process.Add(20, null, 2, 1)];
        var seen = new HashSet<double>();
        var asked = new List<bool>();
        process.OnSnapshot = number =>
        {
            asked.Add(seen.SetEquals(process.Named));
            foreach (var thread in threads)
            {
                thread.Stack = [number + 2, 2, 1];
            }
            seen.UnionWith(threads[0].Stack);
        };
        process.Sample(rounds: 5);
        Assert.Equal(process.Named.Distinct(), process.Named);
        Assert.True(asked.Count >= 10);
        Assert.All(asked, Assert.True);
    }

    [Fact]
    public void AFunctionWhoseNameCannotBeReadHasNone()
    {
        process.NameOf = id => id switch
        {
            1 => new FunctionNames("Type", null),
            2 => new FunctionNames(null, "Method"),
            3 => new FunctionNames("", "Global"),
            _ => default,
        };
        process.Add(10, null, 4, 3, 2, 1);
        Assert.Equal(["(no name) Method Global (no name)"], Distinct(process.Sample().Threads[0]));
    }

    public static TheoryData<Exception> Errors =>
        new() { new SEHException(), new COMException(), new OutOfMemoryException(), new InvalidOperationException() };

    [Theory]
    [MemberData(nameof(Errors))]
    public void NamesThatCannotBeHadAreDoneWithout(Exception error)
    {
        process.NameOf = _ => throw error;
        process.Add(10, null, 1);
        var profile = process.Sample();
        Assert.Equal(["(no name)"], Distinct(profile.Threads[0]));
        Assert.Null(profile.Failure);
        Assert.Equal([1.0], process.Named);
        Assert.Equal(1, profile.Cost.Failed);
    }

    [Theory]
    [MemberData(nameof(Errors))]
    public void ASnapshotThatFailsIsCountedAndTriedAgain(Exception error)
    {
        var thread = process.Add(10, null, 1);
        thread.Failure = error;
        process.OnSnapshot = number => thread.Failure = number is <= 2 or 4 ? error : null;
        var profile = process.Sample(rounds: 6);
        Assert.Equal(["Type.F1", "missed", "Type.F1"], profile.Threads[0].Samples.Take(3).Select(Names));
        Assert.Equal((3, 1), (profile.Cost.Failed, profile.Cost.Missed));
        Assert.Null(profile.Failure);
    }

    [Fact]
    public void ThreadsThatCannotBeListedAreThoseOfTheLastList()
    {
        var lists = 0;
        process.OnList = () => ++lists % 2 == 0;
        process.Add(10, null, 1);
        using var sampler = process.NewSampler();
        sampler.Start();
        process.WaitForRounds(2);
        process.Add(20, null, 2);
        process.WaitForRounds(4);
        var profile = sampler.Stop();
        Assert.Equal([10U, 20U], profile.Threads.Select(thread => thread.Thread.Id));
        Assert.Null(profile.Failure);
        Assert.Equal(0, process.OpenThreads);
    }

    [Fact]
    public void ThreadsComeAndGo()
    {
        process.Add(10, null, 1);
        using var sampler = process.NewSampler();
        sampler.Start();
        process.WaitForRounds();
        var other = process.Add(20, "first", 2);
        process.WaitForRounds(2);
        // Between two rounds: one that ends just before its snapshot is missed.
        process.OnList = () =>
        {
            process.End(other);
            return true;
        };
        process.WaitForRounds(3);
        Assert.Equal(1, process.OpenThreads);
        // The same id again is another thread.
        process.Add(20, "second", 3);
        process.WaitForRounds(2);
        var profile = sampler.Stop();
        Assert.Equal([null, "first", "second"], profile.Threads.Select(thread => thread.Thread.Name));
        Assert.Equal(["Type.F2"], Distinct(profile.Threads[1]));
        Assert.Equal(["Type.F3"], Distinct(profile.Threads[2]));
        Assert.Null(profile.Failure);
        Assert.Equal(0, process.OpenThreads);
    }

    // Its id may be another thread's by then, even another process's.
    [Fact]
    public void AThreadThatHasEndedIsNotSampledAgain()
    {
        process.Add(10, null, 1);
        var ending = process.Add(20, null, 2);
        process.OnSnapshot = number => ending.HasEnded |= number >= 4;
        process.Sample(rounds: 4);
        Assert.Equal([10U, 20U, 10U, 20U], process.Snapshots.Take(4));
        Assert.All(process.Snapshots.Skip(4), id => Assert.Equal(10U, id));
    }

    [Fact]
    public void AThreadThatEndsBeforeItIsOpenedIsPassedOver()
    {
        process.Add(10, null, 1);
        var profile = new Sampler(process, new ListsOneMore(process), new SamplerOptions { Interval = TimeSpan.FromMilliseconds(1) });
        profile.Start();
        process.WaitForRounds(2);
        Assert.Equal([10U], profile.Stop().Threads.Select(thread => thread.Thread.Id));
        Assert.DoesNotContain(99U, process.Snapshots);
    }

    [Fact]
    public void AThreadThatWasNeverSeenIsLeftOut()
    {
        process.Add(10, null, 1);
        process.Add(20).Status = 2;
        var profile = process.Sample();
        Assert.Equal([10U], profile.Threads.Select(thread => thread.Thread.Id));
        Assert.Equal(0, profile.Cost.Missed);
        Assert.Contains(20U, process.Snapshots);
    }

    [Theory]
    [InlineData(2, false)]
    [InlineData(1, false)]
    [InlineData(0, true)]
    public void AThreadThatIsMissedLeavesOneGap(int status, bool throws)
    {
        var thread = process.Add(10, null, 1);
        using var sampler = process.NewSampler();
        sampler.Start();
        process.WaitForRounds(2);
        process.Do(() =>
        {
            thread.Status = status;
            thread.Failure = throws ? new SEHException() : null;
        });
        process.WaitForRounds(3);
        process.Do(() => (thread.Status, thread.Failure) = (0, null));
        process.WaitForRounds();
        var profile = sampler.Stop();
        var names = profile.Threads[0].Samples.Select(Names).ToArray();
        Assert.Single(names, "missed");
        Assert.Equal("Type.F1", names[0]);
        Assert.Equal("Type.F1", names[^1]);
        Assert.True(profile.Cost.Missed >= 2);
        Assert.Null(profile.Failure);
    }

    [Fact]
    public void TheFilterChoosesByIdAndName()
    {
        process.Add(10, "one", 1);
        var late = process.Add(20, null, 2);
        process.Add(30, "three", 3);
        using var sampler = process.NewSampler(new SamplerOptions
        {
            Interval = SamplerOptions.MinInterval,
            Filter = thread => thread.Name == "two" || thread.Id == 30,
        });
        sampler.Start();
        process.WaitForRounds(2);
        process.Do(() => Assert.DoesNotContain(20U, process.Snapshots));
        late.Name = "two";
        process.WaitForRounds(2);
        Assert.Equal([(30U, "three"), (20U, "two")],
            sampler.Stop().Threads.Select(thread => (thread.Thread.Id, thread.Thread.Name!)));
        Assert.DoesNotContain(10U, process.Snapshots);
    }

    [Fact]
    public void AThreadKeepsTheLastNameThatItHad()
    {
        var thread = process.Add(10, "first", 1);
        using var sampler = process.NewSampler();
        sampler.Start();
        process.WaitForRounds();
        thread.Name = "second";
        process.WaitForRounds();
        thread.Name = "";
        process.WaitForRounds();
        thread.Name = null;
        process.WaitForRounds();
        Assert.Equal("second", sampler.Stop().Threads[0].Thread.Name);
    }

    [Fact]
    public void AFilterThatThrowsEndsTheSampling()
    {
        process.Add(10, null, 1);
        var asked = 0;
        using var sampler = process.NewSampler(new SamplerOptions
        {
            Interval = SamplerOptions.MinInterval,
            Filter = _ => ++asked < 3 ? true : throw new FormatException("on purpose"),
        });
        sampler.Start();
        // The third round does not come: what ends with the sampling is the clock.
        Assert.True(SpinWait.SpinUntil(() => process is { SharpenedClocks: 1, SharpClocks: 0 }, 30_000));
        var profile = sampler.Stop();
        Assert.IsType<FormatException>(profile.Failure);
        Assert.True(profile.Threads[0].Samples.Count >= 2);
        Assert.EndsWith("; ended early by System.FormatException: on purpose", profile.ToString());
        Assert.Equal(0, process.OpenThreads);
        Assert.Equal(0, process.SharpClocks);
    }

    public static TheoryData<Action<Sampler>, string> CallsOfAFilter => new()
    {
        { sampler => sampler.Stop(), "A sampler cannot be stopped by its own filter." },
        { sampler => sampler.Dispose(), "A sampler cannot be stopped by its own filter." },
        { sampler => sampler.Start(), "A sampler can be started once." },
    };

    // While another thread waits for the sampling to end, for they could wait for each other.
    [Theory]
    [MemberData(nameof(CallsOfAFilter))]
    public void AFilterCannotStopOrStartItsSampler(Action<Sampler> call, string message)
    {
        process.Add(10, null, 1);
        Sampler? sampler = null;
        using var stopping = new ManualResetEventSlim();
        sampler = process.NewSampler(new SamplerOptions
        {
            Interval = SamplerOptions.MinInterval,
            Filter = _ =>
            {
                stopping.Wait();
                Thread.Sleep(10);
                call(sampler!);
                return true;
            },
        });
        sampler.Start();
        process.WaitForLists();
        stopping.Set();
        Assert.Equal(message, sampler.Stop(TimeSpan.FromSeconds(30))?.Failure?.Message);
    }

    [Theory]
    [InlineData("return", 5, new[] { "out", "0 threads, 0 clocks" })]
    [InlineData("interrupt", 5, new[] { "out", "0 threads, 0 clocks" })]
    [InlineData("throw", 134, new[] { "out", "0 threads, 0 clocks" })]
    [InlineData("return after an exception that ended nothing", 5, new[] { "out", "1 threads, 1 clocks", "0 threads, 0 clocks" })]
    public void OneThatIsForgottenEndsBeforeTheProcess(string end, int exitCode, string[] output)
    {
        var run = ChildProgram.Run(["forget sampler", end]);
        Assert.Equal(output, run.Output);
        Assert.Equal(exitCode, run.ExitCode);
    }

    [Fact]
    public void TheProgramMayEndInAFilter()
    {
        var run = ChildProgram.Run(["exit in filter"]);
        Assert.Equal(["out", "at once"], run.Output);
        Assert.Equal(6, run.ExitCode);
    }

    [Fact]
    public void WhoeverWaitsForTheEndKeepsNobodyFromGivingUpSooner()
    {
        process.Add(10, null, 1);
        using var goOn = new ManualResetEventSlim();
        using var inSnapshot = new ManualResetEventSlim();
        process.OnSnapshot = _ =>
        {
            inSnapshot.Set();
            goOn.Wait();
        };
        var sampler = process.NewSampler();
        sampler.Start();
        Assert.True(inSnapshot.Wait(30_000));
        Profile? profile = null;
        var patient = new Thread(() => profile = sampler.Stop());
        patient.Start();
        Assert.True(SpinWait.SpinUntil(() => patient.ThreadState.HasFlag(System.Threading.ThreadState.WaitSleepJoin), 30_000));
        Assert.Null(sampler.Stop(TimeSpan.Zero));
        goOn.Set();
        Assert.True(patient.Join(30_000));
        Assert.Same(profile, sampler.Stop());
    }

    [Fact]
    public void OptionsAreTakenAsTheyWere()
    {
        process.Add(10, null, 1);
        var options = new SamplerOptions { Interval = SamplerOptions.MinInterval };
        using var sampler = process.NewSampler(options);
        options.Filter = _ => false;
        options.Interval = longest;
        sampler.Start();
        process.WaitForRounds();
        Assert.Single(sampler.Stop().Threads);
    }

    [Fact]
    public void StoppingDoesNotWaitForTheNextRound()
    {
        using var sampler = process.NewSampler(new SamplerOptions { Interval = longest });
        sampler.Start();
        var stopping = Stopwatch.StartNew();
        var profile = sampler.Stop();
        Assert.True(stopping.Elapsed < longest / 4, $"it took {stopping.Elapsed}");
        Assert.Equal(0, profile.Cost.Rounds);
    }

    [Fact]
    public void StoppingDoesNotWaitForTheEndOfARound()
    {
        for (var id = 10U; id < 1000; id++)
        {
            process.Add(id, null, id);
        }
        using var sampler = process.NewSampler();
        using var inRound = new ManualResetEventSlim();
        using var goOn = new ManualResetEventSlim();
        process.OnSnapshot = number =>
        {
            if (number == 5)
            {
                inRound.Set();
                goOn.Wait();
            }
        };
        sampler.Start();
        Assert.True(inRound.Wait(30_000));
        Assert.Null(sampler.Stop(TimeSpan.Zero)); // as long as a snapshot takes it has to wait
        goOn.Set();
        var profile = sampler.Stop();
        Assert.Equal(5, process.Snapshots.Count);
        // The last one has seen the stopping, perhaps.
        Assert.Equal([10U, 11U, 12U, 13U], profile.Threads.Select(thread => thread.Thread.Id));
        Assert.Equal("Type.F13", Names(profile.Threads[3].Samples[0]));
    }

    // From any thread.
    [Fact]
    public void WhatThereIsSoFarMayBeReadAtAnyTime()
    {
        process.Add(10, null, 1);
        using var sampler = process.NewSampler();
        Assert.Equal("The sampler was not started.", Assert.Throws<InvalidOperationException>(sampler.Read).Message);
        sampler.Start();
        process.WaitForRounds();
        var early = sampler.Read();
        var count = early.Threads[0].Samples.Count;
        Assert.Equal(count, early.Cost.Snapshots);
        process.WaitForRounds(2);
        Assert.Equal(count, early.Threads[0].Samples.Count);
        Assert.Equal(count, early.Cost.Snapshots);
        var threads = Enumerable.Range(0, 4).Select(_ => new Thread(() =>
        {
            for (var reads = 0; reads < 200; reads++)
            {
                var profile = sampler.Read();
                Assert.Equal(profile.Threads[0].Samples.Sum(sample => sample.Count), profile.Cost.Snapshots);
            }
        })).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        var last = sampler.Stop();
        Assert.True(last.Threads[0].Samples.Count > count);
        Assert.Equal(last.Threads[0].Samples.Count, sampler.Read().Threads[0].Samples.Count);
    }

    [Fact]
    public void ItIsStartedOnceAndStoppedAnyNumberOfTimes()
    {
        using var sampler = process.NewSampler();
        Assert.Equal("The sampler was not started.", Assert.Throws<InvalidOperationException>(sampler.Stop).Message);
        sampler.Start();
        Assert.Equal("A sampler can be started once.", Assert.Throws<InvalidOperationException>(sampler.Start).Message);
        var profile = sampler.Stop();
        Assert.Same(profile, sampler.Stop());
        Assert.Throws<InvalidOperationException>(sampler.Start);
        sampler.Dispose();
    }

    [Fact]
    public void DisposingStopsIt()
    {
        process.Add(10, null, 1);
        var sampler = process.NewSampler();
        sampler.Start();
        process.WaitForRounds();
        sampler.Dispose();
        Assert.Equal(0, process.OpenThreads);
        Assert.Equal((1, 0), (process.SharpenedClocks, process.SharpClocks));
        var snapshots = process.Snapshots.Count;
        Thread.Sleep(20);
        Assert.Equal(snapshots, process.Snapshots.Count);
        process.NewSampler().Dispose();
    }

    [Fact]
    public void SamplesBeyondTheMostAreCountedAndDropped()
    {
        process.Add(10, null, 1);
        process.Add(20, null, 2);
        var profile = process.Sample(new SamplerOptions { Interval = SamplerOptions.MinInterval, MaxSamples = 3 }, rounds: 5);
        Assert.Equal([2, 1], profile.Threads.Select(thread => thread.Samples.Count));
        Assert.True(profile.Cost.Snapshots >= 10);
        Assert.Equal(profile.Cost.Snapshots - 3, profile.Cost.Dropped);
    }

    // Not even their functions, for deep stacks are many.
    [Theory]
    [InlineData(3)]
    [InlineData(4)]
    public void OfSamplesBeyondTheMostNothingIsKept(int most)
    {
        var thread = process.Add(10, null, 1);
        process.OnSnapshot = number =>
        {
            thread.Stack = [number, 1];
            thread.Status = number % 2 == 0 ? 2 : 0;
        };
        var profile = process.Sample(new SamplerOptions { Interval = SamplerOptions.MinInterval, MaxSamples = most }, rounds: 10);
        string[] samples = ["Type.F1 Type.F1", "missed", "Type.F1 Type.F3", "missed"];
        Assert.Equal(samples.Take(most), profile.Threads[0].Samples.Select(Names));
        Assert.Equal([1, 3], process.Named);
        Assert.True(profile.Cost.Missed >= 5);
        Assert.Equal(profile.Cost.Snapshots - 2, profile.Cost.Dropped);
    }

    [Fact]
    public void AThreadThatWasNeverSeenIsNoSnapshotsCost()
    {
        process.Add(10).Status = 2;
        process.OnSnapshot = _ => Thread.Sleep(2);
        var cost = process.Sample().Cost;
        Assert.Equal(TimeSpan.Zero, cost.InSnapshots);
        Assert.True(cost.MostStopped >= TimeSpan.FromMilliseconds(6), $"{cost.MostStopped}"); // for all that is known
        Assert.True(cost.Besides >= TimeSpan.FromMilliseconds(6), $"{cost.Besides}");
    }

    [Fact]
    public void TheCostIsCounted()
    {
        process.Add(10, null, 1);
        process.OnSnapshot = _ => Thread.Sleep(2);
        var running = Stopwatch.StartNew();
        var profile = process.Sample(rounds: 5);
        var cost = profile.Cost;
        Assert.InRange(cost.Duration, TimeSpan.FromMilliseconds(10), running.Elapsed);
        Assert.InRange(cost.InSnapshots, TimeSpan.FromMilliseconds(2 * cost.Snapshots), cost.Duration);
        Assert.InRange(cost.Besides, TimeSpan.Zero, cost.Duration - cost.InSnapshots);
        Assert.Equal(cost.InSnapshots, cost.MostStopped); // there is one thread
        Assert.InRange(cost.Share, cost.InSnapshots / cost.Duration, 1);
        Assert.True(cost.Rounds >= 5);
        Assert.InRange(cost.Snapshots, 5, process.Snapshots.Count);
    }

    [Fact]
    public void TheCostIsTold()
    {
        var cost = new SamplingCost
        {
            Duration = TimeSpan.FromSeconds(12.34),
            Rounds = 1000,
            Snapshots = 4000,
            Missed = 1000,
            Rested = 5000,
            Dropped = 7,
            Failed = 1234,
            MostStopped = TimeSpan.FromMilliseconds(123.4),
            InSnapshots = TimeSpan.FromMilliseconds(500),
            Besides = TimeSpan.FromMilliseconds(117),
        };
        Assert.Equal(0.05, cost.Share, 9);
        Assert.Equal(0.01, cost.StoppedShare, 9);
        Assert.Equal(
            "4,000 snapshots in 12.3 s, 5,000 more were not needed because the thread waited; the sampler was busy 5.0 % of the time, " +
            "no thread was stopped for more than 1.0 % of the run; 1,000 snapshots were missed, because the runtime cannot walk a stack at every " +
            "moment; 7 were dropped, because there were too many; 1,234 calls of the profiler failed",
            cost.ToString());
        Assert.Equal(
            "0 snapshots in 0.0 s; the sampler was busy 0.0 % of the time, no thread was stopped for more than 0.0 % of the run",
            new SamplingCost().ToString());
        cost = new SamplingCost { Rounds = 1, Failed = 1 };
        Assert.Equal(
            $"0 threads every 2.5 ms: {cost}; no managed code was sampled: the calls of the profiler failed",
            new Profile(TimeSpan.FromMilliseconds(2.5), [], cost, null).ToString());
    }

    [Fact]
    public void WhyThereIsNothingIsSaid()
    {
        string? Why(long rounds, long failed = 0, Exception? failure = null, params ThreadProfile[] threads) => new Profile(
            SamplerOptions.DefaultInterval, threads, new SamplingCost { Rounds = rounds, Failed = failed }, failure).WhyEmpty;
        const string Empty = "no managed code was sampled: ";
        Assert.Equal(Empty + "sampling ended before the first snapshot", Why(0));
        Assert.Equal(Empty + "the calls of the profiler failed", Why(1, 1));
        Assert.Equal(Empty + "sampling ended early by System.FormatException: on purpose", Why(0, 0, new FormatException("on purpose")));
        Assert.Equal(Empty + "no thread ran any, or its stack could not be walked", Why(1));
        process.Add(10, "native");
        var native = process.Sample();
        Assert.Equal(Empty + "no thread ran any, or its stack could not be walked", native.WhyEmpty);
        Assert.EndsWith("; " + native.WhyEmpty, native.ToString());
        process.Add(11, "managed", 1);
        Assert.Null(process.Sample().WhyEmpty);
        using var folder = new TemporaryFolder();
        native.Save(folder.FullName, "profile");
        Assert.Contains(native.WhyEmpty!, File.ReadAllText(folder["profile.svg"]));
        Assert.Contains($"\"name\":\"profile: {native.WhyEmpty}\"", File.ReadAllText(folder["profile.speedscope.json"]));
        Assert.Equal("", File.ReadAllText(folder["profile.folded"]));
    }

    [Theory]
    [InlineData(99, "; that is too short to say anything: 99 samples in all")]
    [InlineData(100, "of the run")]
    public void ARunThatIsTooShortSaysSo(int samples, string end) =>
        Assert.EndsWith(end, new Profiles().Thread(1, "t", [.. Enumerable.Repeat("A", samples), "", null]).ToProfile().ToString());

    [Fact]
    public void OptionsHaveLimits()
    {
        var options = new SamplerOptions();
        Assert.Equal(TimeSpan.FromMilliseconds(10), options.Interval);
        Assert.Equal(10_000_000, options.MaxSamples);
        Assert.Null(options.Filter);
        Assert.Throws<ArgumentOutOfRangeException>(() => options.Interval = TimeSpan.FromMilliseconds(0.999));
        Assert.Throws<ArgumentOutOfRangeException>(() => options.Interval = TimeSpan.FromSeconds(60) + TimeSpan.FromTicks(1));
        Assert.Throws<ArgumentOutOfRangeException>(() => options.MaxSamples = 0);
        options.Interval = TimeSpan.FromMilliseconds(1);
        options.Interval = TimeSpan.FromSeconds(60);
        options.MaxSamples = 1;
        Assert.Equal(1, options.MaxSamples);
    }

    // Rounds are those of the process; one thread more is listed, which has ended before it can be opened.
    private sealed class ListsOneMore(FakeProcess process) : IProcessThreads
    {
        public uint CurrentId => process.CurrentId;

        public List<uint> Ids() => [99, .. process.Ids()!];

        public IOpenThread? Open(uint id) => process.Open(id);

        public IDisposable? SharpenClock() => process.SharpenClock();

        public ProcessorClock ProcessorClock => process.ProcessorClock;
    }

    private static IEnumerable<string> States(ThreadProfile thread) =>
        thread.Samples.Select(sample => $"{Names(sample)} {(sample.IsWaiting ? "waits" : "runs")}");

    [Fact]
    public void AThreadWhoseTimeDoesNotMoveIsNotStoppedAgain()
    {
        process.ProcessorClock = new ProcessorClock(noise: 100, grain: TimeSpan.Zero);
        process.Add(10, null, 1).Uses = () => 1000;
        var profile = process.Sample(rounds: 5);
        Assert.Equal([10U], process.Snapshots);
        Assert.Equal(["Type.F1 waits"], States(profile.Threads[0]));
        var sample = profile.Threads[0].Samples[0];
        Assert.InRange(sample.Count, 5, profile.Cost.Rounds);
        Assert.Equal((1, sample.Count - 1), (profile.Cost.Snapshots, profile.Cost.Rested));
    }

    [Fact]
    public void AThreadThatRunsAgainIsStoppedAgain()
    {
        process.ProcessorClock = new ProcessorClock(noise: 100, grain: TimeSpan.Zero);
        var reads = 0;
        ulong[] times = [1000, 1100, 1101, 1201, 1202, 1302];
        process.Add(10, null, 1).Uses = () => times[Math.Min(reads++, times.Length - 1)];
        var profile = process.Sample(rounds: 8);
        Assert.Equal(3, process.Snapshots.Count);
        Assert.Equal(["Type.F1 waits", "Type.F1 runs", "Type.F1 waits", "Type.F1 runs", "Type.F1 waits"], States(profile.Threads[0]));
        Assert.Equal([2, 1, 1, 1], profile.Threads[0].Samples.Take(4).Select(sample => sample.Count));
        Assert.Equal(profile.Threads[0].Samples.Sum(sample => sample.Count), profile.Cost.Snapshots + profile.Cost.Rested);
    }

    // What was seen until then was waiting as well, but for the sample after which the time did not move any more.
    [Fact]
    public void WhereTheClockIsCoarseWaitingIsKnownLater()
    {
        // Long enough for a snapshot in the meantime, whatever else the machine does.
        process.ProcessorClock = new ProcessorClock(noise: 0, grain: TimeSpan.FromSeconds(1));
        var thread = process.Add(10, null, 1);
        var time = 1000UL;
        thread.Uses = () => time;
        process.OnSnapshot = number =>
        {
            time = number == 1 ? 1001UL : time;
            thread.Stack = [number + 1];
        };
        using var sampler = process.NewSampler();
        sampler.Start();
        Assert.True(SpinWait.SpinUntil(() => sampler.Read().Cost.Rested > 2, 30_000));
        var states = States(sampler.Stop().Threads[0]).ToArray();
        Assert.True(states.Length > 3);
        Assert.Equal(["Type.F2 runs", "Type.F3 runs"], states.Take(2));
        Assert.All(states.Skip(2), state => Assert.EndsWith(" waits", state));
    }

    // However unequal the rounds were.
    [Fact]
    public void AThreadThatRestsInTheEndDoesSoUntilThen()
    {
        process.ProcessorClock = new ProcessorClock(noise: 100, grain: TimeSpan.Zero);
        using var sampler = process.NewSampler(new SamplerOptions { Interval = TimeSpan.FromMilliseconds(50) });
        process.OnList = () =>
        {
            Thread.Sleep(process.Rounds == 1 ? 2000 : 0);
            return true;
        };
        sampler.Start();
        process.WaitForRounds();
        var clock = Stopwatch.StartNew();
        process.Add(10, null, 1).Uses = () => 1000;
        process.WaitForRounds(3);
        var profile = sampler.Stop();
        var time = Assert.Single(profile.Threads[0].Timed(profile.LastMicroseconds)).Microseconds;
        Assert.InRange(time, profile.LastMicroseconds, (long)Math.Ceiling(clock.Elapsed.TotalMicroseconds) + profile.LastMicroseconds);
    }

    // It may be none of the runtime's: to try that costs as much as a snapshot.
    [Fact]
    public void AThreadThatWasNeverSeenIsTriedAgainWhenItHasRun()
    {
        process.ProcessorClock = new ProcessorClock(noise: 0, grain: TimeSpan.Zero);
        var thread = process.Add(10, null, 1);
        thread.Status = 2;
        var reads = 0UL;
        thread.Uses = () => ++reads < 4 ? 1UL : 2UL;
        process.OnSnapshot = number => thread.Status = number == 1 ? 2 : 0;
        var profile = process.Sample(rounds: 8);
        Assert.Equal([10U, 10U], process.Snapshots);
        Assert.Equal(["Type.F1 runs", "Type.F1 waits"], States(profile.Threads[0]));
    }

    [Fact]
    public void AThreadWhoseTimeIsNotKnownIsAlwaysStopped()
    {
        process.Add(10, null, 1).Uses = () => null;
        var profile = process.Sample(rounds: 5);
        Assert.Equal(0, profile.Cost.Rested);
        Assert.True(process.Snapshots.Count >= 5);
        Assert.Equal(["Type.F1 runs"], States(profile.Threads[0]).Distinct());
    }

    [Fact]
    public void AFunctionThatOnlyWaitsIsWaiting()
    {
        process.NameOf = id => id switch
        {
            1 => new FunctionNames("System.Threading.Thread", "SleepInternal"),
            2 => new FunctionNames("Shop", "Sleep"),
            _ => new FunctionNames("System.Threading.Thread", "StartCallback"),
        };
        process.Add(10, null, 1, 2, 3);
        process.Add(20, null, 2, 1, 3);
        process.Add(30, null, 3);
        var profile = process.Sample();
        Assert.Equal([true, false, false], profile.Threads.Select(thread => thread.Samples[0].IsWaiting));
    }

    // It asks again and again whether it still has to wait.
    [Fact]
    public void AThreadThatUsesAWholeProcessorDoesNotWait()
    {
        process.NameOf = _ => new FunctionNames("System.Threading.WaitHandle", "WaitOneNoCheck");
        var time = TimeSpan.Zero;
        var part = 1.0;
        var before = TimeSpan.Zero;
        var clock = Stopwatch.StartNew();
        var thread = process.Add(10, null, 1);
        thread.Used = () =>
        {
            var now = clock.Elapsed;
            time += TimeSpan.FromTicks((long)(part * (now - before).Ticks));
            before = now;
            return time;
        };
        using var sampler = process.NewSampler();
        sampler.Start();
        bool IsWaiting() => sampler.Read().Threads is [{ Samples: [.., { IsWaiting: var isWaiting }] }] && isWaiting;
        Assert.True(SpinWait.SpinUntil(() => sampler.Read().Threads.Count > 0 && !IsWaiting(), 30_000));
        process.Do(() => part = 0.6);
        Assert.True(SpinWait.SpinUntil(IsWaiting, 30_000));
        sampler.Stop();
    }

    [Fact]
    public void EveryCollectionIsCounted()
    {
        process.Add(10, null, 1);
        using var sampler = process.NewSampler();
        sampler.Start();
        process.WaitForRounds();
        var all = GC.CollectionCount(0);
        var full = GC.CollectionCount(2);
        for (var i = 0; i < 5; i++)
        {
            GC.Collect(0);
            GC.Collect(2);
        }
        all = GC.CollectionCount(0) - all;
        full = GC.CollectionCount(2) - full;
        process.WaitForRounds();
        var collections = sampler.Stop().Collections;
        Assert.InRange(collections.Count, 1, int.MaxValue);
        Assert.True(collections.Sum(one => one.All) >= all && all >= 10);
        Assert.True(collections.Sum(one => one.Full) >= full && full >= 5);
        Assert.All(collections, one => Assert.InRange(one.Full, 0, one.All));
    }

    [Fact]
    public void OfTooManyCollectionsTwoAreOne()
    {
        List<GarbageCollections> some = [];
        for (var i = 0; i < 1000; i++)
        {
            some.Add(new GarbageCollections(i, 2, 1));
            GarbageCollections.Thin(some, 10);
            Assert.InRange(some.Count, 1, 9);
        }
        Assert.Equal((2000, 1000), (some.Sum(one => one.All), some.Sum(one => one.Full)));
        Assert.Equal(0, some[0].Microseconds);
        Assert.Equal(some.Select(one => one.Microseconds).Order(), some.Select(one => one.Microseconds));
    }

    [Fact]
    public void AMissedThreadThatRestsIsTriedAgain()
    {
        process.ProcessorClock = new ProcessorClock(noise: 0, grain: TimeSpan.Zero);
        var thread = process.Add(10, null, 1);
        var reads = 0UL;
        thread.Uses = () => Math.Min(reads++, 2);
        process.OnSnapshot = number => thread.Status = number is 2 or 3 or 4 ? 2 : 0;
        var profile = process.Sample(rounds: 10);
        Assert.Equal(["Type.F1 runs", "missed runs", "Type.F1 waits"], States(profile.Threads[0]));
    }

    [Fact]
    public void AThousandThreadsAreSampled()
    {
        process.ProcessorClock = new ProcessorClock(noise: 0, grain: TimeSpan.Zero);
        for (var id = 10U; id < 1010; id++)
        {
            process.Add(id, $"thread {id}", id, 1).Uses = () => 5;
        }
        var profile = process.Sample(rounds: 10);
        Assert.Equal(1000, profile.Threads.Count);
        Assert.Equal(1000, profile.Cost.Snapshots);
        Assert.True(profile.Cost.Rested >= 9000);
        Assert.All(profile.Threads, thread => Assert.Single(thread.Samples));
        using var folder = new TemporaryFolder();
        profile.Save(folder.FullName, "many");
        Assert.Equal(1000, File.ReadAllLines(folder["many.folded"]).Length);
    }

    [Fact]
    public void ThreadsMayLiveForAMomentOnly()
    {
        process.Add(10, "main", 1);
        using var sampler = process.NewSampler();
        sampler.Start();
        var next = 100U;
        for (var round = 0; round < 300; round++)
        {
            var threads = Enumerable.Range(0, 20).Select(_ => process.Add(next++, "short", 2, 1)).ToList();
            Thread.Sleep(1);
            threads.ForEach(process.End);
        }
        process.WaitForRounds(2);
        var profile = sampler.Stop();
        Assert.Null(profile.Failure);
        Assert.Equal(0, process.OpenThreads);
        Assert.Equal("main", profile.Threads[0].Thread.Name);
        Assert.Equal(profile.Threads.Count, profile.Threads.Select(thread => thread.Thread.Id).Distinct().Count());
        Assert.All(profile.Threads.Skip(1), thread => Assert.Equal("Type.F1 Type.F2", Names(thread.Samples[0])));
    }

    [Fact]
    public void TwoSamplersServeAtOnce()
    {
        process.Add(10, null, 1);
        using var one = process.NewSampler();
        using var other = process.NewSampler();
        one.Start();
        other.Start();
        // The rounds of the process may all be those of one sampler.
        foreach (var sampler in new[] { one, other })
        {
            Assert.True(SpinWait.SpinUntil(() => sampler.Read().Cost.Snapshots >= 4, 30_000));
        }
        var kept = one.Stop().Cost.Snapshots + other.Stop().Cost.Snapshots;
        // A snapshot during which its sampler is stopped is not kept.
        Assert.InRange(process.Snapshots.Count - kept, 0, 2);
        Assert.Equal(0, process.OpenThreads);
    }

    // The time of a snapshot is the profiler's. The clock of the process may jump.
    [Fact]
    public void AClockThatJumpsMakesNoNegativeTime()
    {
        var thread = process.Add(10, null, 1);
        process.OnSnapshot = number => process.Jump(number % 2 == 0 ? -1_000_000_000L : 5_000_000_000L);
        var profile = process.Sample(rounds: 6);
        Assert.Null(profile.Failure);
        Assert.All(profile.Threads[0].Timed(0), sample => Assert.True(sample.Microseconds >= 0));
        using var folder = new TemporaryFolder();
        profile.Save(folder.FullName, "jumps");
    }

    [Fact]
    public void AThreadIsSampledOnceARound()
    {
        process.Add(10, null, 1);
        process.Add(20, null, 2);
        var cost = process.Sample(rounds: 5).Cost;
        Assert.InRange(cost.Snapshots, 2 * cost.Rounds - 2, 2 * cost.Rounds); // the last round may be cut off
    }

    [Fact]
    public void AGapHasTheTimeAtWhichItBegan()
    {
        var thread = process.Add(10, null, 1);
        process.OnSnapshot = number =>
        {
            Thread.Sleep(20);
            thread.Status = number is 3 or 4 ? 2 : 0;
        };
        var running = Stopwatch.StartNew();
        var samples = process.Sample(rounds: 6).Threads[0].Samples;
        Assert.Null(samples[2].Stack);
        Assert.InRange(samples[2].Microseconds - samples[1].Microseconds, 20_000, running.ElapsedMilliseconds * 1000);
    }

    [Fact]
    public void AMissedSnapshotCostsToo()
    {
        var thread = process.Add(10, null, 1);
        process.OnSnapshot = number =>
        {
            Thread.Sleep(number > 1 ? 10 : 0);
            thread.Status = number > 1 ? 2 : 0;
        };
        var cost = process.Sample(rounds: 4).Cost;
        Assert.Equal(1, cost.Snapshots);
        Assert.True(cost.Missed >= 3);
        Assert.True(cost.InSnapshots >= TimeSpan.FromMilliseconds(10 * cost.Missed), $"{cost.InSnapshots}");
    }

    // What it takes is to be no more than a twentieth of the time, but new threads are not missed for long.
    [Fact]
    public void ListsThatTakeLongAreSeldom()
    {
        process.OnList = () =>
        {
            Thread.Sleep(50);
            return true;
        };
        using var sampler = process.NewSampler();
        var running = Stopwatch.StartNew();
        sampler.Start();
        process.WaitForLists();
        Thread.Sleep(400);
        sampler.Stop();
        Assert.InRange(process.Rounds, 1, 1 + (int)(running.ElapsedMilliseconds / 200));
    }

    [Fact]
    public void ListsAreMadeFiveTimesASecondWhateverTheyTake()
    {
        process.OnList = () =>
        {
            Thread.Sleep(process.Rounds == 1 ? 1000 : 0);
            return true;
        };
        using var sampler = process.NewSampler();
        var running = Stopwatch.StartNew();
        sampler.Start();
        process.WaitForRounds();
        Assert.InRange(running.Elapsed, TimeSpan.FromSeconds(0.99), TimeSpan.FromSeconds(15));
    }
}
