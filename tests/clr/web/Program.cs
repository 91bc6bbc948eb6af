// A web program that calls itself: each request for /outer asks for /inner. It prints what its client got; a
// run under the profiler has to print the same. Of each request it also writes the trace and the span that the
// platform gave it into the file that its first argument names, if it has one.
using System.Diagnostics;
using Microsoft.AspNetCore.Hosting;
using Microsoft.AspNetCore.Hosting.Server;
using Microsoft.AspNetCore.Hosting.Server.Features;

Console.WriteLine($"runtime {Environment.Version}");

var seen = new List<string>();
void See(string route)
{
    lock (seen)
    {
        seen.Add($"{route} {Activity.Current?.TraceId} {Activity.Current?.SpanId}");
    }
}

var builder = WebApplication.CreateBuilder();
builder.WebHost.UseUrls("http://127.0.0.1:0");
builder.Logging.ClearProviders();
var web = builder.Build();
var client = new HttpClient();
web.MapGet("/outer/{item}", async (string item) =>
{
    See("outer");
    return await Shop.QuoteAsync(client, item);
});
web.MapGet("/inner/{item}", (string item) =>
{
    See("inner");
    return Shop.Price(item);
});
web.MapGet("/failing", () =>
{
    See("failing");
    return Shop.Fail(1);
});
web.MapGet("/plain", async () => await client.GetStringAsync("/leaf"));
web.MapGet("/leaf", () =>
{
    See("leaf");
    return "of no instrumented method";
});
web.MapGet("/slow", async () =>
{
    var hash = Slow.Hash();
    await Task.Delay(200);
    return hash;
});
await web.StartAsync();
client.BaseAddress = new Uri(
    web.Services.GetRequiredService<IServer>().Features.Get<IServerAddressesFeature>()!.Addresses.First());

if (args.Contains("plain"))
{
    Console.WriteLine(await client.GetStringAsync("/plain"));
}
else
{
    var quotes = await Task.WhenAll(Enumerable.Range(1, 8).Select(item => client.GetStringAsync($"/outer/{item}?token=a-planted-secret")));
    foreach (var quote in quotes)
    {
        Console.WriteLine(quote);
    }
    using (var failed = await client.GetAsync("/failing"))
    {
        Console.WriteLine($"failing: {(int)failed.StatusCode}");
    }
}
for (var time = 0; args.Contains("slow") && time < 6; time++)
{
    Console.WriteLine(await client.GetStringAsync("/slow"));
}
await web.StopAsync();
if (args.Length > 0)
{
    File.WriteAllLines(args[0], seen);
}

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}

internal static class Slow
{
    private static readonly TimeSpan most = TimeSpan.FromMilliseconds(1);

    // Some half of a second, wherever it runs. While other programs have the processor it makes no headway, as nobody does.
    public static string Hash()
    {
        var hash = new byte[32];
        for (var ran = TimeSpan.Zero; ran < TimeSpan.FromSeconds(0.5);)
        {
            var begin = Stopwatch.GetTimestamp();
            for (var i = 0; i < 1000; i++)
            {
                hash = System.Security.Cryptography.SHA256.HashData(hash);
            }
            var took = Stopwatch.GetElapsedTime(begin);
            ran += took < most ? took : most;
        }
        return $"{hash.Length} bytes";
    }
}

internal static class Shop
{
    [Corvane.Instrumentation.Trace]
    public static async Task<string> QuoteAsync(HttpClient client, string item)
    {
        var price = await client.GetStringAsync($"/inner/{item}?key=another-planted-secret");
        await Task.Yield();
        return $"{item}: {price}";
    }

    [Corvane.Instrumentation.Trace]
    public static string Price(string item) => (item.Length * 100).ToString();

    [Corvane.Instrumentation.Trace]
    public static string Fail(int number) =>
        number > 0 ? throw new InvalidOperationException("nobody handles this, but for the server") : "";
}
