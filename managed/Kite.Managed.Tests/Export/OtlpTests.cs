// OTLP in both forms, read by somebody else.
using System;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text.Json;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Export;

public sealed class OtlpTests : IDisposable
{
    private readonly TemporaryFolder folder = new();
    private readonly Resource resource = Spans.Resource(
        ("OTEL_SERVICE_NAME", "shop"), ("OTEL_RESOURCE_ATTRIBUTES", "deployment.environment.name=test%20one,service.name=other"));

    private SpanClock.Reading clock = SpanClock.OfProcess.Newest; // by which spans were written last

    public void Dispose() => folder.Dispose();

    private JsonElement ReadBack(bool isJson, params Span[] spans)
    {
        IOtlpEncoding encoding = isJson ? new OtlpJson() : new OtlpProtobuf();
        do
        {
            clock = SpanClock.OfProcess.Newest;
            encoding.Bytes.Clear();
            OtlpTraces.Write(encoding, resource, Spans.Drained(spans).Spans, 0, spans.Length);
        }
        while (SpanClock.OfProcess.Newest != clock); // exporters of other tests renew it
        File.WriteAllBytes(folder["request"], encoding.Bytes.ToArray());
        return Assert.Single(Spans.Read(folder["request"], isJson));
    }

    [Theory]
    [InlineData(".NET 8.0.30", ".NET", "8.0.30")]
    [InlineData(".NET Framework 4.8.9300.0", ".NET Framework", "4.8.9300.0")]
    [InlineData("Mono 6.8.0.105 (Debian 6.8.0.105+dfsg-3.3 Sat Jun 21 UTC 2025)", "Mono", "6.8.0.105")]
    public void ARuntimeHasANameAndAVersion(string description, string name, string version) =>
        Assert.Equal((name, version), Resource.Runtime(description));

    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void EveryFieldIsWhereTheDefinitionsHaveIt(bool isJson)
    {
        var outer = Spans.Of(0x0102030405060708, 0, 500, name: "outer");
        outer.Kind = SpanKind.Server;
        var inner = Spans.Of(0xFF00000000000001, 100, 300, parent: outer.Id, thread: 12, name: "inner");
        inner.SetAttribute("text", "a \"quote\", ä, \u2028, 😀, \u0001");
        inner.SetAttribute("number", -5L);
        inner.SetAttribute("largest", long.MaxValue);
        inner.SetAttribute("real", 0.1);
        inner.SetAttribute("truth", false);
        inner.SetAttribute("thread.id", 99L);
        inner.EndsAtReturn = true;
        inner.Fail("System.InvalidOperationException", "on purpose");
        var foreign = new Span(new TraceId(1, 2), 3, 0, "GET", null, "System.Net.Http") { Started = outer.Started, Ended = outer.Ended };

        var version = FileVersionInfo.GetVersionInfo(typeof(Span).Assembly.Location).ProductVersion;
        var read = ReadBack(isJson, outer, foreign, inner);
        var process = Assert.Single(read.GetProperty("resourceSpans").EnumerateArray());
        var attributes = process.GetProperty("resource").Attributes();
        Assert.Contains("service.name=stringValue:shop", attributes);
        Assert.Contains("deployment.environment.name=stringValue:test one", attributes);
        Assert.Contains($"process.pid=intValue:{Environment.ProcessId}", attributes);
        Assert.Contains($"process.executable.name=stringValue:{Path.GetFileName(Environment.ProcessPath)}", attributes);
        Assert.Contains("process.runtime.name=stringValue:.NET", attributes);
        Assert.Contains($"process.runtime.version=stringValue:{Environment.Version}", attributes);
        Assert.Contains($"host.name=stringValue:{Environment.MachineName}", attributes);
        Assert.Contains("telemetry.sdk.name=stringValue:corvane", attributes);
        Assert.Contains("telemetry.sdk.language=stringValue:dotnet", attributes);
        Assert.Contains($"telemetry.sdk.version=stringValue:{version}", attributes);
        Assert.Equal(10, attributes.Length);

        var scopes = process.GetProperty("scopeSpans").EnumerateArray().ToArray();
        Assert.Equal(["Corvane.Instrumentation", "System.Net.Http"], scopes.Select(scope => scope.GetProperty("scope").Text("name")));
        Assert.Equal([version, null], scopes.Select(scope => scope.GetProperty("scope").Text("version")));
        Assert.Equal(["outer", "inner", "GET"], Spans.In([read]).Select(span => span.Text("name")));

        var first = Spans.In([read]).First();
        Assert.Equal(Convert.ToBase64String(Convert.FromHexString("00000000000000f00000000000000007")), first.Text("traceId"));
        Assert.Equal("AQIDBAUGBwg=", first.Text("spanId"));
        Assert.True(first.Text("parentSpanId") is null or "");
        Assert.Equal("2", first.Text("kind"));
        Assert.Equal(clock.UnixNanoseconds(outer.Started).ToString(), first.Text("startTimeUnixNano"));
        Assert.Equal(clock.UnixNanoseconds(outer.Ended).ToString(), first.Text("endTimeUnixNano"));
        Assert.Equal(["code.function.name=stringValue:Shop.Cart.outer", "thread.id=intValue:1"], first.Attributes());
        Assert.False(first.TryGetProperty("status", out var status) && status.Text("code") == "2");

        var second = Spans.In([read]).ElementAt(1);
        Assert.Equal("AQIDBAUGBwg=", second.Text("parentSpanId"));
        Assert.Equal("1", second.Text("kind"));
        Assert.Equal(
            [
                "text=stringValue:a \"quote\", ä, \u2028, 😀, \u0001", "number=intValue:-5", $"largest=intValue:{long.MaxValue}",
                "real=doubleValue:0.1", $"truth=boolValue:{false}", "thread.id=intValue:99",
                "code.function.name=stringValue:Shop.Cart.inner", "error.type=stringValue:System.InvalidOperationException",
                $"corvane.ends_at_return=boolValue:{true}",
            ],
            second.Attributes());
        Assert.Equal("2", second.GetProperty("status").Text("code"));
        var exception = Assert.Single(second.GetProperty("events").EnumerateArray());
        Assert.Equal("exception", exception.Text("name"));
        Assert.Equal(second.Text("endTimeUnixNano"), exception.Text("timeUnixNano"));
        Assert.Equal(
            ["exception.type=stringValue:System.InvalidOperationException", "exception.message=stringValue:on purpose"],
            exception.Attributes());

        Assert.Empty(Spans.In([read]).Last().Attributes());
    }

    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void AnErrorThatIsNoExceptionHasNoEvent(bool isJson)
    {
        var span = Spans.Of(1);
        span.SetAttribute("error.type", "404");
        span.Fail(null, null);
        var read = Assert.Single(Spans.In([ReadBack(isJson, span)]));
        Assert.Contains("error.type=stringValue:404", read.Attributes());
        Assert.Equal("2", read.GetProperty("status").Text("code"));
        Assert.True(!read.TryGetProperty("events", out var events) || events.GetArrayLength() == 0);
    }

    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void ASpanThatIsOpenEndsNowAndSaysSo(bool isJson)
    {
        var read = Assert.Single(Spans.In([ReadBack(isJson, Spans.Of(1, to: 0))]));
        Assert.Contains($"corvane.unfinished=boolValue:{true}", read.Attributes());
        Assert.InRange(
            long.Parse(read.Text("endTimeUnixNano")!), long.Parse(read.Text("startTimeUnixNano")!),
            (DateTimeOffset.UtcNow.ToUnixTimeMilliseconds() + 1000) * 1_000_000);
    }

    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void TextsThatNoEncodingCanWriteAreWrittenAllTheSame(bool isJson)
    {
        var span = Spans.Of(1);
        span.SetAttribute("halves", "a\uD800b\uDC00");
        span.SetAttribute("long", new string('ü', 100_000));
        span.SetAttribute("none", double.NaN);
        var attributes = Assert.Single(Spans.In([ReadBack(isJson, span)])).Attributes();
        Assert.Equal("halves=stringValue:a\uFFFDb\uFFFD", attributes[0]);
        Assert.Equal("long=stringValue:" + new string('ü', 100_000), attributes[1]);
        Assert.Equal("none=doubleValue:NaN", attributes[2]);
    }

    [Fact]
    public void WhatHasASecretsNameIsHidden()
    {
        var span = Spans.Of(1);
        span.SetAttribute("db.password", "hunter2");
        span.SetAttribute("enduser.token_count", 3L);
        Assert.Contains("db.password=stringValue:***", Assert.Single(Spans.In([ReadBack(true, span)])).Attributes());
        Assert.Contains("enduser.token_count=intValue:3", Assert.Single(Spans.In([ReadBack(true, span)])).Attributes());
        Assert.DoesNotContain("hunter2", File.ReadAllText(folder["request"]));
    }

    [Fact]
    public void AFileHasARequestOnEachLine()
    {
        var bytes = new MemoryStream();
        var file = new OtlpFile(new BlockFile(() => bytes, ""), resource);
        file.Write(Spans.Drained(Enumerable.Range(1, 1100).Select(id => Spans.Of((ulong)id)).ToArray()));
        file.Write(Spans.Drained(Spans.Of(2000)));
        File.WriteAllBytes(folder["lines"], bytes.ToArray());
        Assert.Equal(4, File.ReadAllLines(folder["lines"]).Length);
        Assert.Equal((byte)'\n', bytes.ToArray()[^1]);
        Assert.Equal(
            Enumerable.Range(1, 1100).Append(2000).Select(id => Spans.Id((ulong)id)),
            Spans.In(Spans.Read(folder["lines"], isJson: true)).Select(span => span.Text("spanId")));
    }
}
