using System;
using System.Collections.Concurrent;
using System.Diagnostics;
using System.Threading.Tasks;
using Corvane.Instrumentation.Export;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class OwnTrafficTests
{
    [Fact]
    public async Task NobodyWhoListensToRequestsHearsOfOurs()
    {
        using var collector = new Collector();
        var heard = new ConcurrentQueue<string?>();
        using var listener = new ActivityListener
        {
            ShouldListenTo = source => source.Name == "System.Net.Http",
            Sample = (ref ActivityCreationOptions<ActivityContext> _) => ActivitySamplingResult.AllDataAndRecorded,
            ActivityStopped = activity => heard.Enqueue(activity.GetTagItem("server.port")?.ToString()),
        };
        ActivitySource.AddActivityListener(listener);
        var endpoint = OtlpEndpoint.From(Spans.Variables(
            _ => { }, ("OTEL_EXPORTER_OTLP_ENDPOINT", collector.Address), ("OTEL_EXPORTER_OTLP_TIMEOUT", "600000")))!;
        using (var client = new OtlpClient(endpoint, "application/json"))
        {
            Assert.True(client.Post([], TimeSpan.FromSeconds(60)).IsAccepted);
        }
        Assert.DoesNotContain(new Uri(collector.Address).Port.ToString(), heard);
        // The listener hears of others' requests.
        using (var other = new System.Net.Http.HttpClient())
        {
            using var content = new System.Net.Http.ByteArrayContent([]);
            await other.PostAsync(collector.Address, content);
        }
        Assert.Contains(new Uri(collector.Address).Port.ToString(), heard);
    }
}
