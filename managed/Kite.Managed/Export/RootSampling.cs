using System.Globalization;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// Which traces are recorded, by OTEL_TRACES_SAMPLER and OTEL_TRACES_SAMPLER_ARG.
internal static class RootSampling
{
    private const string Sampler = "OTEL_TRACES_SAMPLER";
    private const string Argument = "OTEL_TRACES_SAMPLER_ARG";
    private const string ByParent = "parentbased_";

    // As many low bits of a trace's id are random.
    private const int RandomBits = 56;

    internal static RootSampler From(Variables variables)
    {
        var name = variables.Text(Sampler) ?? "parentbased_always_on";
        var followsParent = name.StartsWith(ByParent, System.StringComparison.Ordinal);
        RootSampler? sampler = (followsParent ? name.Substring(ByParent.Length) : name) switch
        {
            "always_on" => (_, _) => true,
            "always_off" => (_, _) => false,
            "traceidratio" => Ratio(ReadRatio(variables)),
            _ => null,
        };
        if (sampler == null)
        {
            variables.Complain($"{Sampler} names none of the samplers that there are: parentbased_always_on is taken");
            return (_, parentIsSampled) => parentIsSampled ?? true;
        }
        return followsParent ? (trace, parentIsSampled) => parentIsSampled ?? sampler(trace, null) : sampler;
    }

    // Each process decides the same about a trace. What a smaller ratio records, a larger one does, too.
    private static RootSampler Ratio(double ratio)
    {
        const ulong All = 1UL << RandomBits;
        var dropped = (ulong)((1 - ratio) * All);
        return (trace, _) => (trace.Low & (All - 1)) >= dropped;
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
