// A web program that sends its traces to a collector by OpenTelemetry. The profiler adds the calls of its methods.
//
//     collector.exe --urls http://localhost:4318                         in a window of its own
//     corvane run -- aspnetcore.exe --urls http://localhost:5000 --collector http://localhost:4318
//
// Then open http://localhost:5000/price/tea: the trace has the request and, below it, the call of Prices.Of.
using Corvane.Instrumentation;
using OpenTelemetry;
using OpenTelemetry.Exporter;
using OpenTelemetry.Trace;

var builder = WebApplication.CreateBuilder(args);
var collector = builder.Configuration["collector"] ?? "http://localhost:4318";
using var tracing = Sdk.CreateTracerProviderBuilder()
    .AddSource("Microsoft.AspNetCore") // the requests
    .AddSource("Corvane.Instrumentation") // the calls that the profiler sees
    .AddOtlpExporter(options =>
    {
        options.Endpoint = new Uri(collector + "/v1/traces");
        options.Protocol = OtlpExportProtocol.HttpProtobuf;
    })
    .Build();
var app = builder.Build();
app.MapGet("/price/{item}", (string item) => Prices.Of(item));
app.Run();

internal static class Prices
{
    [Trace]
    internal static int Of(string item) => item.Length * 100;
}

// The profiler looks for an attribute of this name, whoever declares it. So no reference is needed.
namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method | AttributeTargets.Constructor)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}
