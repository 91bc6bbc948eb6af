using System.Collections.Generic;

namespace Corvane.Sampling;

// Every stack that was seen, once. The sampler's thread only.
internal sealed class StackTable
{
    private readonly Dictionary<(SampledStack, SampledFunction), SampledStack> stacks =
        new Dictionary<(SampledStack, SampledFunction), SampledStack>();

    internal SampledStack Empty { get; } = new SampledStack(null, null);

    // `ids` are innermost first.
    internal SampledStack Get(double[] ids, int count, FunctionTable functions)
    {
        var stack = Empty;
        while (count-- > 0)
        {
            var function = functions.Get(ids[count]);
            if (!stacks.TryGetValue((stack, function), out var next))
            {
                next = new SampledStack(stack, function);
                stacks.Add((stack, function), next);
            }
            stack = next;
        }
        return stack;
    }
}
