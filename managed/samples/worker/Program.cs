// A worker service that asks for a price again and again, until it is stopped or has asked so many times. The package
// Microsoft.Extensions.Hosting.WindowsServices and a call of AddWindowsService make it a Windows service.
//
//     corvane run --otlp http://localhost:4318 -- worker.exe --address http://localhost:5000/price/tea --rounds 3
//
// It has no OpenTelemetry of its own: kite.managed sends its calls and its requests to the collector. Each request
// carries the trace along, so that the spans of the program that answers are of the same trace.
using Corvane.Instrumentation;
using Microsoft.Extensions.Hosting;
using Microsoft.Extensions.Configuration;
using Microsoft.Extensions.DependencyInjection;
using Microsoft.Extensions.Logging;

var builder = Host.CreateApplicationBuilder(args);
builder.Logging.SetMinimumLevel(LogLevel.Warning);
builder.Services.AddHostedService<PriceWatcher>();
builder.Build().Run();

internal sealed class PriceWatcher(IConfiguration configuration, IHostApplicationLifetime lifetime) : BackgroundService
{
    private readonly HttpClient client = new();
    private readonly string address = configuration["address"] ?? "http://localhost:5000/price/tea";
    private readonly int rounds = configuration.GetValue("rounds", int.MaxValue);

    protected override async Task ExecuteAsync(CancellationToken stopping)
    {
        for (var round = 1; round <= rounds && !stopping.IsCancellationRequested; round++)
        {
            Console.WriteLine($"round {round}: {await AskAsync()}");
            await Task.Delay(200, stopping);
        }
        lifetime.StopApplication();
    }

    // Its span lasts until the answer is there.
    [Trace]
    private async Task<string> AskAsync()
    {
        try
        {
            return await client.GetStringAsync(address);
        }
        catch (HttpRequestException exception)
        {
            return $"no answer ({exception.HttpRequestError})";
        }
    }
}

// The profiler looks for an attribute of this name, whoever declares it. So no reference is needed.
namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method | AttributeTargets.Constructor)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}
