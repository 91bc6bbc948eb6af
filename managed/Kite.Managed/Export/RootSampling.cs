using System;
using System.Globalization;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// Which traces are recorded, by OTEL_TRACES_SAMPLER and OTEL_TRACES_SAMPLER_ARG. Any thread.
internal sealed class RootSampling
{
    private const string Sampler = "OTEL_TRACES_SAMPLER";
    private const string Argument = "OTEL_TRACES_SAMPLER_ARG";
    private const string ByParent = "parentbased_";

    // As many low bits of a trace's id are random.
    private const ulong AllIds = 1UL << 56;

    private readonly bool followsParent;
    private readonly ulong dropped; // of the ids
    private bool hasLeftOut;

    private RootSampling(bool followsParent, double ratio)
    {
        this.followsParent = followsParent;
        dropped = (ulong)((1 - ratio) * AllIds);
    }

    // Whether there was a trace that is not recorded.
    internal bool HasLeftOut => hasLeftOut;

    internal static RootSampling From(Variables variables)
    {
        var name = variables.Choice(Sampler) ?? "parentbased_always_on";
        var followsParent = name.StartsWith(ByParent, StringComparison.Ordinal);
        switch (followsParent ? name.Substring(ByParent.Length) : name)
        {
            case "always_on":
                return new RootSampling(followsParent, 1);
            case "always_off":
                return new RootSampling(followsParent, 0);
            case "traceidratio":
                return new RootSampling(followsParent, ReadRatio(variables));
            default:
                variables.Complain($"{Sampler} names none of the samplers that there are: parentbased_always_on is taken");
                return new RootSampling(true, 1);
        }
    }

    // Each process decides the same about a trace. What a smaller ratio records, a larger one does, too.
    internal bool IsSampled(TraceId trace, bool? parentIsSampled)
    {
        var isSampled = followsParent && parentIsSampled is { } decided ? decided : (trace.Low & (AllIds - 1)) >= dropped;
        if (!isSampled && !hasLeftOut)
        {
            hasLeftOut = true;
        }
        return isSampled;
    }

    private static double ReadRatio(Variables variables)
    {
        if (variables.Text(Argument) is not { } text)
        {
            return 1;
        }
        if (double.TryParse(text, NumberStyles.Float, CultureInfo.InvariantCulture, out var ratio) && ratio >= 0 && ratio <= 1)
        {
            return ratio;
        }
        variables.Complain($"{Argument} is no number from 0 to 1: all traces are recorded");
        return 1;
    }
}
