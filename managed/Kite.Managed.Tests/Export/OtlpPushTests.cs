// Spans that are sent, to end points of all kinds.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Net;
using System.Net.Sockets;
using Corvane.Instrumentation.Export;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class OtlpPushTests
{
    // Whose answer may take long on a busy machine. The first of two values of a variable counts.
    private static OtlpPush To(string address, params (string Name, string Value)[] variables)
    {
        var all = Spans.Variables(
            _ => { },
            [
                .. variables, ("OTEL_EXPORTER_OTLP_ENDPOINT", address), ("OTEL_EXPORTER_OTLP_PROTOCOL", "http/json"),
                ("OTEL_EXPORTER_OTLP_TIMEOUT", "600000"),
            ]);
        return new OtlpPush(OtlpEndpoint.From(all)!, Spans.Resource());
    }

    private static void Send(OtlpPush push, int from, int count) =>
        push.Write(Spans.Drained(Enumerable.Range(from, count).Select(id => Spans.Of((ulong)id)).ToArray()));

    // How long it took.
    private static TimeSpan End(OtlpPush push, double most = 600)
    {
        var clock = Stopwatch.StartNew();
        push.End(DateTime.UtcNow.AddSeconds(most));
        return clock.Elapsed;
    }

    [Theory]
    [InlineData("http/json", "application/json")]
    [InlineData("http/protobuf", "application/x-protobuf")]
    [InlineData("", "application/x-protobuf")]
    public void EverySpanArrivesOnceInBatches(string protocol, string type)
    {
        using var collector = new Collector();
        var push = To(
            collector.Address + "/base/", ("OTEL_EXPORTER_OTLP_TRACES_PROTOCOL", protocol), ("OTEL_EXPORTER_OTLP_PROTOCOL", protocol),
            ("OTEL_EXPORTER_OTLP_HEADERS", "api-key=a%20b, x = y"));
        push = protocol.Length > 0 ? push : new OtlpPush(
            OtlpEndpoint.From(Spans.Variables(
                _ => { }, ("OTEL_EXPORTER_OTLP_ENDPOINT", collector.Address + "/base/"),
                ("OTEL_EXPORTER_OTLP_HEADERS", "api-key=a%20b, x = y"), ("OTEL_EXPORTER_OTLP_TIMEOUT", "600000")))!,
            Spans.Resource());
        Send(push, 1, 1200);
        Send(push, 1201, 100);
        End(push);
        Assert.Equal(0, push.Losses.Spans);
        Assert.Equal(
            Enumerable.Range(1, 1300).Select(id => Spans.Id((ulong)id)), collector.Spans().Select(span => span.Text("spanId")));
        Assert.All(collector.Requests, request =>
        {
            Assert.Equal("POST /base/v1/traces HTTP/1.1", request.Line);
            Assert.Equal(type, request.Headers["content-type"]);
            Assert.Equal("a b", request.Headers["api-key"]);
            Assert.Equal("y", request.Headers["x"]);
            Assert.DoesNotContain("traceparent", request.Headers.Keys);
        });
        Assert.InRange(collector.Requests.Count, 3, 4);
    }

    [Fact]
    public void AFullBatchDoesNotWaitForTheTimeOfOthers()
    {
        using var collector = new Collector();
        var push = To(collector.Address, ("OTEL_BSP_SCHEDULE_DELAY", "60000"), ("OTEL_BSP_MAX_EXPORT_BATCH_SIZE", "10"));
        Send(push, 1, 4);
        Send(push, 5, 5);
        Assert.Empty(collector.Requests);
        Send(push, 10, 1);
        collector.Wait(1);
        Assert.Equal(10, collector.Spans().Count());
        Send(push, 11, 1);
        Assert.InRange(End(push), TimeSpan.Zero, TimeSpan.FromSeconds(30));
        Assert.Equal(11, collector.Spans().Count());
        Assert.Equal(0, push.Losses.Spans);
    }

    [Fact]
    public void TheAddressForTracesAloneIsTakenAsItIs()
    {
        using var collector = new Collector();
        var push = To("http://127.0.0.1:1", ("OTEL_EXPORTER_OTLP_TRACES_ENDPOINT", collector.Address + "/mine"));
        Send(push, 1, 1);
        End(push);
        Assert.Equal("POST /mine HTTP/1.1", Assert.Single(collector.Requests).Line);
    }

    [Theory]
    [InlineData("429 Too Many Requests\nRetry-After: 1", 1)]
    [InlineData("503 Unavailable\nRetry-After: 2", 2)]
    [InlineData("502 Bad Gateway", 0.5)]
    [InlineData("504 Timeout", 0.5)]
    [InlineData("raw:nonsense\r\n\r\n", 0.5)]
    public void WhatMayPassIsTriedAgainAfterAPause(string answer, double pause)
    {
        using var collector = new Collector(request => request == 1 ? answer : Collector.Accepted);
        var push = To(collector.Address);
        Send(push, 1, 3);
        collector.Wait(2);
        Assert.Equal(0, push.Losses.Spans);
        End(push);
        Assert.Equal(0, push.Losses.Spans);
        var requests = collector.Requests.ToArray();
        Assert.Equal(2, requests.Length);
        Assert.Equal(requests[0].Body, requests[1].Body);
        Assert.InRange(Stopwatch.GetElapsedTime(requests[0].Time, requests[1].Time).TotalSeconds, pause - 0.05, pause + 15);
    }

    [Theory]
    [InlineData("500 Internal Server Error")]
    [InlineData("400 Bad Request\n\n{\"code\":3}")]
    [InlineData("401 Unauthorized")]
    [InlineData("302 Found\nLocation: http://127.0.0.1:1/")]
    public void WhatIsRefusedForGoodIsLostAndCounted(string answer)
    {
        using var collector = new Collector(request => request == 1 ? answer : Collector.Accepted);
        var push = To(collector.Address);
        Send(push, 1, 3);
        collector.Wait(1);
        Send(push, 4, 2);
        End(push);
        Assert.Equal(3, push.Losses.Spans);
        Assert.Equal(2, collector.Requests.Count);
    }

    [Theory]
    [InlineData("http/json", "{\"partialSuccess\":{\"rejectedSpans\":\"2\",\"errorMessage\":\"too old\"}}", 2)]
    [InlineData("http/json", "{ \"partialSuccess\" : { \"rejectedSpans\" : 1 } }", 1)]
    [InlineData("http/json", "{\"partialSuccess\":{}}", 0)]
    [InlineData("http/json", "{\"partialSuccess\":{\"rejectedSpans\":\"99999999999999999999\"}}", 0)]
    [InlineData("http/json", "{\"rejectedSpans\"", 0)]
    [InlineData("http/json", "{\"partialSuccess\":{\"rejectedSpans\":\"77\"}}", 3)]
    [InlineData("http/protobuf", "\n\x04\b\x02\x12\0", 2)]
    [InlineData("http/protobuf", "\n\x02\b", 0)]
    [InlineData("http/protobuf", "\n\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 0)]
    [InlineData("http/protobuf", "<html>", 0)]
    [InlineData("http/protobuf", "", 0)]
    public void WhatIsRejectedOfABatchIsCountedAndAGarbledAnswerIsAnAnswer(string protocol, string body, int lost)
    {
        using var collector = new Collector("200 OK\n\n" + body);
        var push = To(collector.Address, ("OTEL_EXPORTER_OTLP_TRACES_PROTOCOL", protocol));
        Send(push, 1, 3);
        End(push);
        Assert.Single(collector.Requests);
        Assert.Equal(lost, push.Losses.Spans);
    }

    // It takes longer than others, which matters where time is short.
    private static void SendTheFirstOfAll()
    {
        using var collector = new Collector();
        var push = To(collector.Address);
        Send(push, 1, 1);
        End(push);
    }

    [Fact]
    public void AnAnswerWithoutAnEndIsAnAnswer()
    {
        SendTheFirstOfAll();
        using var collector = new Collector("raw:HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{");
        var push = To(collector.Address, ("OTEL_EXPORTER_OTLP_TIMEOUT", "15000"));
        Send(push, 1, 3);
        End(push);
        Assert.Single(collector.Requests);
        Assert.Equal(0, push.Losses.Spans);
    }

    [Fact]
    public void AnEndPointThatHangsKeepsNobodyWaiting()
    {
        using var collector = new Collector(_ => null);
        var push = To(collector.Address, ("OTEL_EXPORTER_OTLP_TIMEOUT", "600000"));
        Send(push, 1, 600);
        collector.Wait(1);
        Assert.InRange(End(push, 1).TotalSeconds, 0.9, 15);
        Assert.Equal(600, push.Losses.Spans);
    }

    [Fact]
    public void AnEndPointThatHangsIsGivenUpAfterItsTime()
    {
        SendTheFirstOfAll();
        using var collector = new Collector(request => request == 1 ? null : Collector.Accepted);
        var push = To(collector.Address, ("OTEL_EXPORTER_OTLP_TIMEOUT", "15000"));
        Send(push, 1, 3);
        collector.Wait(2);
        End(push);
        Assert.Equal(0, push.Losses.Spans);
        Assert.Equal(2, collector.Requests.Count);
    }

    [Fact]
    public void AnEndPointThatComesLateGetsWhatTheQueueKept()
    {
        // Nobody else comes to listen there, either.
        using var socket = new Socket(SocketType.Stream, ProtocolType.Tcp);
        socket.Bind(new IPEndPoint(IPAddress.Loopback, 0));
        var port = ((IPEndPoint)socket.LocalEndPoint!).Port;
        var push = To($"http://127.0.0.1:{port}", ("OTEL_BSP_MAX_QUEUE_SIZE", "10"), ("OTEL_BSP_MAX_EXPORT_BATCH_SIZE", "4"));
        Send(push, 1, 12);
        Assert.True(push.Losses.Spans >= 2);
        Assert.InRange(End(push).TotalSeconds, 0, 30);
        Assert.Equal(12, push.Losses.Spans);
        Assert.StartsWith($"12 not sent to http://127.0.0.1:{port} (", push.Losses.AtEnd());
    }

    [Fact]
    public void AFullQueueKeepsTheNewest()
    {
        using var collector = new Collector(request => request == 1 ? "503 Later\nRetry-After: 1" : Collector.Accepted);
        var push = To(collector.Address, ("OTEL_BSP_MAX_QUEUE_SIZE", "10"), ("OTEL_BSP_MAX_EXPORT_BATCH_SIZE", "20"));
        Send(push, 1, 1);
        collector.Wait(1);
        Send(push, 2, 30);
        End(push);
        Assert.Equal(20, push.Losses.Spans);
        Assert.Null(push.Losses.AtEnd()); // the first line has the number
        Assert.Equal(
            [1, .. Enumerable.Range(22, 10)],
            collector.Spans().Skip(1).Select(span => Convert.FromBase64String(span.Text("spanId")!)[7]).Select(id => (int)id));
    }
}
