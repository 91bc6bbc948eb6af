// Reads a trace as its viewers do, and says what is wrong with it.
using System;
using System.Collections.Generic;
using System.Linq;
using System.Text.Json;
using Xunit;

namespace Kite.Managed.Tests.Export;

internal static class ChromeTraceFile
{
    // Every line is an event; of a file that was cut off the last one may be part of one, or there is none at all.
    internal static JsonElement[] Read(string text, bool mayBeCut)
    {
        if (mayBeCut && text.Length == 0)
        {
            return [];
        }
        var lines = text.Split('\n');
        Assert.Equal("[", lines[0]);
        var events = new List<JsonElement>();
        for (var index = 1; index < lines.Length; index++)
        {
            var line = lines[index].TrimEnd(',');
            if (line is "]" or "" && index >= lines.Length - 2)
            {
                continue;
            }
            try
            {
                events.Add(JsonDocument.Parse(line).RootElement);
            }
            catch (JsonException) when (mayBeCut && index == lines.Length - 1)
            {
            }
        }
        Validate(events);
        return events.ToArray();
    }

    internal static void Validate(IReadOnlyCollection<JsonElement> events)
    {
        var threads = new Dictionary<int, List<(decimal From, decimal To)>>();
        foreach (var one in events)
        {
            Assert.True(one.GetProperty("pid").GetInt32() > 0);
            var phase = one.Text("ph");
            if (phase == "M")
            {
                continue;
            }
            var from = one.GetProperty("ts").GetDecimal();
            var thread = one.GetProperty("tid").GetInt32();
            switch (phase)
            {
                case "X":
                    if (!threads.TryGetValue(thread, out var slices))
                    {
                        threads.Add(thread, slices = []);
                    }
                    slices.Add((from, from + one.GetProperty("dur").GetDecimal()));
                    Assert.NotEmpty(one.GetProperty("args").Text("span_id")!);
                    break;
                case "b" or "e" or "s":
                    Assert.StartsWith("0x", one.Text("id"));
                    break;
                case "f":
                    Assert.Equal("e", one.Text("bp"));
                    break;
                default:
                    Assert.Fail($"no event of mine: {phase}");
                    break;
            }
        }
        Assert.Equal(events.Count(one => one.Text("ph") == "b"), events.Count(one => one.Text("ph") == "e"));
        Assert.Equal(events.Count(one => one.Text("ph") == "s"), events.Count(one => one.Text("ph") == "f"));
        foreach (var slices in threads.Values)
        {
            var open = new Stack<decimal>();
            foreach (var (from, to) in slices.OrderBy(slice => slice.From).ThenByDescending(slice => slice.To))
            {
                while (open.Count > 0 && open.Peek() <= from)
                {
                    open.Pop();
                }
                Assert.True(open.Count == 0 || to <= open.Peek(), $"slices cross each other: {from} to {to}, {open.FirstOrDefault()}");
                open.Push(to);
            }
        }
        foreach (var arrow in events.Where(one => one.Text("ph") is "s" or "f"))
        {
            var at = arrow.GetProperty("ts").GetDecimal();
            Assert.Contains(
                threads[arrow.GetProperty("tid").GetInt32()], slice => slice.From <= at && at <= slice.To);
        }
    }
}
