using System;
using System.Linq;
using Corvane.Sampling;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class SampleListTests
{
    private static SampleList Filled(int count)
    {
        var list = new SampleList();
        for (var i = 0; i < count; i++)
        {
            list.Add(new Sample(i, null));
        }
        return list;
    }

    private static long Allocated(Action action)
    {
        var before = GC.GetAllocatedBytesForCurrentThread();
        action();
        return GC.GetAllocatedBytesForCurrentThread() - before;
    }

    [Theory]
    [InlineData(0)]
    [InlineData(1)]
    [InlineData(5)]
    [InlineData(2048)]
    [InlineData(2049)]
    [InlineData(10_000)]
    public void ItHoldsWhatWasAdded(int count)
    {
        var list = Filled(count);
        Assert.Equal(Enumerable.Range(0, count).Select(i => (long)i), list.Select(sample => sample.Microseconds));
        Assert.Equal(count, list.Count);
        Assert.Throws<ArgumentOutOfRangeException>(() => list[count]);
        Assert.Throws<ArgumentOutOfRangeException>(() => list[-1]);
    }

    // What is settled is not set any more; all else may be.
    [Fact]
    public void ACopyStaysAsItWas()
    {
        var list = Filled(5000);
        var copy = list.Copy(4500);
        for (var i = 4500; i < 5000; i++)
        {
            list[i] = new Sample(-1, null);
        }
        for (var i = 0; i < 5000; i++)
        {
            list.Add(new Sample(-1, null));
        }
        Assert.Equal(Enumerable.Range(0, 5000).Select(i => (long)i), copy.Select(sample => sample.Microseconds));
    }

    [Fact]
    public void ASampleTakesWhatIsSaid() => Assert.InRange(Allocated(() => Filled(1_000_000)), 32_000_000, 33_000_000);

    // Renewed results would take more of the time from time to time.
    [Fact]
    public void ACopyOfManyTakesLittle()
    {
        var list = Filled(1_000_000);
        Assert.InRange(Allocated(() => list.Copy(list.Count - 1)), 1, 150_000);
    }

    // The sums of what does not change any more are continued.
    [Fact]
    public void ReadingManySamplesAgainTakesLittle()
    {
        var process = new FakeProcess();
        using var thread = new WatchedThread(1, process.Open(process.Add(1, "t").Id)!);
        var stacks = new Profiles().Thread(1, "t", "A", "A|B", "A|C").ToProfile().Threads[0].Samples.Select(sample => sample.Stack).ToArray();
        for (var i = 0; i < 500_000; i++)
        {
            var operation = i % 5 == 0 ? SampledOperation.Enter("x") : null;
            operation?.Leave();
            thread.Samples.Add(new Sample(10 * i, stacks[i % 3], isWaiting: i % 2 == 0, operation: operation));
        }
        var operations = new OperationTable();
        thread.Read(operations.Standing);
        Assert.InRange(
            Allocated(() =>
            {
                var read = thread.Read(operations.Standing);
                var sums = read.SumUp(10, operations);
                Assert.Equal((250_000, 250_000), (sums.Total.Samples.Running, sums.Total.Samples.Waiting));
                Assert.Equal(5_000_000, sums.Total.Microseconds.All);
                Assert.Equal(2, sums.ByOperation.Count());
            }),
            1, 150_000);
    }
}
