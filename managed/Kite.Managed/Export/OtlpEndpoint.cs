using System;
using System.Collections.Generic;
using System.Runtime.CompilerServices;

namespace Corvane.Instrumentation.Export;

// Where and how spans are sent, by OpenTelemetry's variables. Immutable.
internal sealed class OtlpEndpoint
{
    private const string Prefix = "OTEL_EXPORTER_OTLP_";

    private OtlpEndpoint(Variables variables, Uri address)
    {
        Address = address;
        IsJson = ReadProtocol(variables);
        Timeout = variables.Timeout(Named(variables, "TIMEOUT"), 10_000);
        Headers = variables.Headers(Named(variables, "HEADERS"));
        MaxQueue = variables.Number("OTEL_BSP_MAX_QUEUE_SIZE", 2048, 1);
        MaxBatch = Math.Min(MaxQueue, variables.Number("OTEL_BSP_MAX_EXPORT_BATCH_SIZE", 512, 1));
        MaxTrying = variables.Timeout("OTEL_BSP_EXPORT_TIMEOUT", 30_000);
        Delay = TimeSpan.FromMilliseconds(variables.Number("OTEL_BSP_SCHEDULE_DELAY", 0));
    }

    internal Uri Address { get; }

    // Without a user, a path or a query, which may hold a secret.
    internal string Name => $"{Address.Scheme}://{Address.Host}:{Address.Port}";

    // Else Protocol Buffers.
    internal bool IsJson { get; }

    internal TimeSpan Timeout { get; }

    internal IReadOnlyList<KeyValuePair<string, string>> Headers { get; }

    internal int MaxQueue { get; }

    internal int MaxBatch { get; }

    // From the first attempt for a batch to the last one.
    internal TimeSpan MaxTrying { get; }

    // Between two batches that are not full.
    internal TimeSpan Delay { get; }

    // Null where nothing is to be sent.
    internal static OtlpEndpoint? From(Variables variables)
    {
        if (variables.Choice("OTEL_TRACES_EXPORTER") == "none" || variables.Choice("OTEL_SDK_DISABLED") == "true")
        {
            return null;
        }
        var name = Named(variables, "ENDPOINT");
        return variables.Text(name) is { } text ? At(text, name, variables) : null;
    }

    // Not inlined: most programs need no addresses.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static OtlpEndpoint? At(string text, string name, Variables variables)
    {
        if (!Uri.TryCreate(text, UriKind.Absolute, out var address) || address.Scheme is not ("http" or "https"))
        {
            variables.Complain($"{name} is no address of http or https: no spans are sent");
            return null;
        }
        return new OtlpEndpoint(variables, name == Prefix + "ENDPOINT" ? WithPath(address) : address);
    }

    // The name of the variable for traces alone, if it is set, else of the one for all signals.
    private static string Named(Variables variables, string what) =>
        variables.Text(Prefix + "TRACES_" + what) != null ? Prefix + "TRACES_" + what : Prefix + what;

    private static Uri WithPath(Uri address)
    {
        var builder = new UriBuilder(address);
        builder.Path = builder.Path.TrimEnd('/') + "/v1/traces";
        return builder.Uri;
    }

    private static bool ReadProtocol(Variables variables)
    {
        var name = Named(variables, "PROTOCOL");
        switch (variables.Choice(name))
        {
            case null or "http/protobuf":
                return false;
            case "http/json":
                return true;
            default:
                variables.Complain($"{name} is none of 'http/protobuf' and 'http/json': 'http/protobuf' is taken");
                return false;
        }
    }
}
