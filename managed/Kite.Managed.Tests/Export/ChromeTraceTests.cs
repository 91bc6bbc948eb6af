using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Text;
using System.Text.Json;
using System.Threading;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class ChromeTraceTests
{
    private readonly MemoryStream bytes = new();
    private readonly ChromeTrace trace;

    public ChromeTraceTests() =>
        trace = new ChromeTrace(new BlockFile(() => bytes, ""), Spans.Resource(("OTEL_SERVICE_NAME", "shop")));

    private JsonElement[] Events()
    {
        trace.End(DateTime.UtcNow);
        var events = JsonDocument.Parse(bytes.ToArray()).RootElement.EnumerateArray().ToArray();
        ChromeTraceFile.Validate(events);
        return events;
    }

    private static string[] Summary(IEnumerable<JsonElement> events) =>
        events.Select(one => $"{one.Text("ph")} {one.Text("name")} {one.Text("tid")}").ToArray();

    [Fact]
    public void SpansOfAThreadAreSlicesWithAllThatIsKnown()
    {
        var inner = Spans.Of(2, 100, 200, parent: 1, name: "inner");
        inner.SetAttribute("text", "\"a\"");
        inner.SetAttribute("number", 5L);
        inner.SetAttribute("real", 0.5);
        inner.SetAttribute("truth", true);
        inner.Fail("System.Exception", "on purpose");
        trace.Write(Spans.Drained(inner, Spans.Of(1, 0, 500, name: "outer")));
        var events = Events();
        Assert.Equal(["M process_name ", "X inner 1", "X outer 1"], Summary(events));
        Assert.Equal("shop", events[0].GetProperty("args").Text("name"));
        Assert.Equal(100, events[1].GetProperty("dur").GetDouble());
        Assert.Equal(100, Math.Round(events[1].GetProperty("ts").GetDouble() - events[2].GetProperty("ts").GetDouble(), 3));
        Assert.Equal(
            "{\"trace_id\":\"00000000000000f00000000000000007\",\"span_id\":\"0000000000000002\"," +
            "\"parent_span_id\":\"0000000000000001\",\"exception.message\":\"on purpose\",\"text\":\"\\\"a\\\"\",\"number\":5," +
            "\"real\":0.5,\"truth\":true,\"code.function.name\":\"Shop.Cart.inner\",\"thread.id\":1,\"error.type\":\"System.Exception\"}",
            events[1].GetProperty("args").GetRawText());
    }

    [Fact]
    public void ArrowsGoFromParentsToChildrenOnOtherThreads()
    {
        trace.Write(Spans.Drained(
            Spans.Of(2, 100, 200, parent: 1, thread: 2, name: "within"), Spans.Of(3, 300, 400, parent: 1, name: "same"),
            Spans.Of(1, 0, 500, name: "outer")));
        trace.Write(Spans.Drained(Spans.Of(4, 600, 700, parent: 1, thread: 3, name: "later")));
        var events = Events();
        Assert.Equal(
            ["M process_name ", "X within 2", "X same 1", "X outer 1", "s call 1", "f call 2", "X later 3", "s call 1", "f call 3"],
            Summary(events));
        Assert.Equal(events[1].Text("ts"), events[4].Text("ts"));
        Assert.Equal(events[6].Text("ts"), events[8].Text("ts"));
        // Within the parent, which has ended by then.
        Assert.Equal(
            events[3].GetProperty("ts").GetDouble() + 500, events[7].GetProperty("ts").GetDouble(), 3);
    }

    [Fact]
    public void ASpanThatDoesNotFitOnItsThreadIsAnAsynchronousEvent()
    {
        var drained = Spans.Drained(
            Spans.Of(1, 0, 100, name: "first"), Spans.Of(2, 50, 150, name: "across"), Spans.Of(3, 120, 160, name: "third"));
        drained.Add(Spans.Of(4, 170, 180, name: "elsewhere"));
        drained.EndedOn[^1] = 7;
        trace.Write(drained);
        Assert.Equal(
            ["M process_name ", "X first 1", "b across 1", "e across 1", "X third 1", "b elsewhere 1", "e elsewhere 1"],
            Summary(Events()));
    }

    [Fact]
    public void ThreadsHaveTheirNames()
    {
        var drained = Spans.Drained(Spans.Of(1));
        drained.Threads.Add(new Thread(() => { }) { Name = "wor\"ker" });
        drained.Threads.Add(new Thread(() => { }));
        trace.Write(drained);
        var named = Assert.Single(Events(), one => one.Text("name") == "thread_name");
        Assert.Equal("wor\"ker", named.GetProperty("args").Text("name"));
    }

    [Fact]
    public void WhereverItIsCutOffAllLinesButTheLastAreWhole()
    {
        for (ulong round = 0; round < 3; round++)
        {
            trace.Write(Spans.Drained(Spans.Of((2 * round) + 1), Spans.Of((2 * round) + 2)));
        }
        var whole = bytes.ToArray();
        for (var length = 1; length <= whole.Length; length++)
        {
            var events = ChromeTraceFile.Read(Encoding.UTF8.GetString(whole, 0, length), mayBeCut: true);
            Assert.Equal(
                Encoding.UTF8.GetString(whole, 0, length).Split("\"X\"").Length - 1,
                events.Count(one => one.Text("ph") == "X"), 1.0);
        }
    }

    // Calls of a thread as they come, with some that go on after their call.
    [Fact]
    public void WhateverComesSlicesDoNotCrossEachOther()
    {
        var random = new Random(7);
        var ends = new List<Span>();
        ulong id = 0;
        long time = 0;
        void Call(int depth, ulong parent)
        {
            var own = ++id;
            var begin = ++time;
            for (var children = random.Next(depth > 6 ? 1 : 4); children > 0; children--)
            {
                Call(depth + 1, own);
            }
            ends.Add(Spans.Of(own, begin, ++time + (random.Next(5) == 0 ? random.Next(100) : 0), parent));
        }
        for (var round = 0; round < 500; round++)
        {
            Call(0, 0);
        }
        foreach (var part in ends.OrderBy(span => span.Ended).Chunk(100))
        {
            trace.Write(Spans.Drained(part));
        }
        var events = Events();
        Assert.Equal(ends.Count, events.Count(one => one.Text("ph") is "X" or "b"));
        Assert.InRange(events.Count(one => one.Text("ph") == "X"), ends.Count * 0.6, ends.Count);
    }
}
