using System;
using System.Collections.Generic;
using Corvane.Sampling.Results;

namespace Corvane.Sampling;

// Samples of a thread, added up by operation and stack. Those without managed code are left out.
internal sealed class StackSums
{
    // Stands for no operation.
    private static readonly object none = new object();

    private readonly Dictionary<object, Dictionary<SampledStack, StackSum>> byOperation =
        new Dictionary<object, Dictionary<SampledStack, StackSum>>();

    // All of them together.
    internal StackSum Total { get; private set; }

    internal IEnumerable<(SampledOperation? Operation, Dictionary<SampledStack, StackSum> Sums)> ByOperation
    {
        get
        {
            foreach (var one in byOperation)
            {
                yield return (one.Key as SampledOperation, one.Value);
            }
        }
    }

    internal void Add(Sample sample, long microseconds)
    {
        if (sample.Stack is { Depth: > 0 } stack)
        {
            var sum = StackSum.Of(sample, microseconds);
            Add(Of(sample.InOperation ?? none), stack, sum);
            Total += sum;
        }
    }

    internal StackSums Copy()
    {
        var copy = new StackSums { Total = Total };
        foreach (var one in byOperation)
        {
            copy.byOperation.Add(one.Key, new Dictionary<SampledStack, StackSum>(one.Value));
        }
        return copy;
    }

    // Operations for which one stands are that one.
    internal void Unite(Func<SampledOperation, SampledOperation> standing)
    {
        foreach (var (operation, sums) in new List<(SampledOperation?, Dictionary<SampledStack, StackSum>)>(ByOperation))
        {
            var one = operation == null ? null : standing(operation);
            if (one == operation)
            {
                continue;
            }
            byOperation.Remove(operation!);
            var united = Of(one!);
            foreach (var sum in sums)
            {
                Add(united, sum.Key, sum.Value);
            }
        }
    }

    private Dictionary<SampledStack, StackSum> Of(object operation)
    {
        if (!byOperation.TryGetValue(operation, out var sums))
        {
            byOperation.Add(operation, sums = new Dictionary<SampledStack, StackSum>());
        }
        return sums;
    }

    private static void Add(Dictionary<SampledStack, StackSum> sums, SampledStack stack, StackSum more)
    {
        sums.TryGetValue(stack, out var sum);
        sums[stack] = sum + more;
    }
}

// Samples of a stack, and the time that they stand for.
internal readonly struct StackSum
{
    private StackSum(SampleCount samples, SampleCount microseconds)
    {
        Samples = samples;
        Microseconds = microseconds;
    }

    internal SampleCount Samples { get; }

    internal SampleCount Microseconds { get; }

    public static StackSum operator +(StackSum one, StackSum other) =>
        new StackSum(one.Samples + other.Samples, one.Microseconds + other.Microseconds);

    internal static StackSum Of(Sample sample, long microseconds) => sample.IsWaiting
        ? new StackSum(new SampleCount(0, sample.Count), new SampleCount(0, microseconds))
        : new StackSum(new SampleCount(sample.Count, 0), new SampleCount(microseconds, 0));
}

// Of operations with equal names one stands for all: each request is one of its own.
internal sealed class OperationTable
{
    private readonly Dictionary<(SampledOperation?, string), SampledOperation> standing =
        new Dictionary<(SampledOperation?, string), SampledOperation>();

    // One that goes on stands for itself: its name may change.
    internal SampledOperation StandingIfOver(SampledOperation operation) => operation.IsOver ? Standing(operation) : operation;

    internal SampledOperation Standing(SampledOperation operation)
    {
        var around = operation.Around == null ? null : Standing(operation.Around);
        var key = (around, operation.Name);
        if (!standing.TryGetValue(key, out var one))
        {
            standing.Add(key, one = operation);
        }
        return one;
    }
}
