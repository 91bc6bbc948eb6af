// Profiles as samplings give them, of threads whose stacks are told as texts.
using System;
using System.Collections.Generic;
using System.Linq;
using Corvane.Sampling;

namespace Kite.Managed.Tests;

internal sealed class Profiles
{
    private readonly FunctionTable functions = new();
    private readonly StackTable stacks = new();
    private readonly Dictionary<string, double> ids = [];
    private readonly List<ThreadProfile> threads = [];

    internal SamplingCost Cost { get; } = new();

    // A sample each 10 ms: its functions with bars between, outermost first, "~" in front of what waits; null is a gap.
    internal Profiles Thread(uint id, string? name, params string?[] samples) => ThreadAt(0, id, name, samples);

    internal Profiles ThreadAt(long microseconds, uint id, string? name, params string?[] samples)
    {
        threads.Add(new ThreadProfile(
            new SampledThread(id, name),
            [.. samples.Select((stack, i) => new Sample(
                microseconds + 10_000 * i,
                stack == null ? null : Stack(stack.TrimStart('~')),
                stack?.StartsWith('~') == true))]));
        return this;
    }

    internal Profile ToProfile() => new(TimeSpan.FromMilliseconds(10), threads, Cost, null);

    private SampledStack Stack(string text)
    {
        var names = text.Length == 0 ? [] : text.Split('|');
        return stacks.Get([.. names.Reverse().Select(Id)], names.Length, functions);
    }

    private double Id(string name)
    {
        if (!ids.TryGetValue(name, out var id))
        {
            ids.Add(name, id = ids.Count + 1);
            functions.Get(id).Resolve(null, name);
        }
        return id;
    }
}
