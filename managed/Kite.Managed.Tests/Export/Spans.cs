// Spans to write, and what the formats say of them.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text.Json;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Export;

internal static class Spans
{
    private static readonly long begin = Stopwatch.GetTimestamp();
    private static readonly long microsecond = Stopwatch.Frequency / 1_000_000;

    // Times are microseconds.
    internal static Span Of(ulong id, long from = 0, long to = 1, ulong parent = 0, int thread = 1, string name = "work") =>
        new(new TraceId(0xF0, 7), id, parent, name, "Shop.Cart." + name, Span.CallScope)
        {
            Started = begin + (from * microsecond),
            Ended = to == 0 ? 0 : begin + (to * microsecond),
            ThreadId = thread,
        };

    internal static Resource Resource(params (string Name, string Value)[] variables) =>
        Corvane.Instrumentation.Export.Resource.From(Variables(_ => { }, variables));

    internal static Variables Variables(Action<string> complain, params (string Name, string Value)[] variables) =>
        new(name => variables.FirstOrDefault(variable => variable.Name == name).Value, complain);

    internal static DrainedSpans Drained(params Span[] spans)
    {
        var drained = new DrainedSpans();
        Array.ForEach(spans, drained.Add);
        return drained;
    }

    // What an independent reader with the official definitions finds.
    internal static List<JsonElement> Read(string path, bool isJson) => RunReader("read.js", isJson ? "json" : "protobuf", path);

    // What a script prints, a value on each line.
    internal static List<JsonElement> RunReader(string script, params string[] arguments)
    {
        script = Path.Combine(Path.GetDirectoryName(ChildProgram.Assembly)!, "reader", script);
        using var reader = Process.Start(new ProcessStartInfo("node", [script, .. arguments])
        {
            RedirectStandardOutput = true,
            RedirectStandardError = true,
        })!;
        var errors = reader.StandardError.ReadToEndAsync();
        var lines = reader.StandardOutput.ReadToEnd();
        reader.WaitForExit();
        Assert.True(reader.ExitCode == 0, errors.Result);
        return lines.Split('\n', StringSplitOptions.RemoveEmptyEntries).Select(line => JsonDocument.Parse(line).RootElement).ToList();
    }

    // All spans of such requests.
    internal static IEnumerable<JsonElement> In(IEnumerable<JsonElement> requests) =>
        from request in requests
        from resource in request.GetProperty("resourceSpans").EnumerateArray()
        from scope in resource.GetProperty("scopeSpans").EnumerateArray()
        from span in scope.GetProperty("spans").EnumerateArray()
        select span;

    internal static string? Text(this JsonElement element, string name) =>
        element.TryGetProperty(name, out var value) ? value.ToString() : null;

    // "key=type:value" for each.
    internal static string[] Attributes(this JsonElement element) =>
        !element.TryGetProperty("attributes", out var attributes) ? [] : attributes.EnumerateArray().Select(attribute =>
        {
            var value = attribute.GetProperty("value").EnumerateObject().Single();
            return $"{attribute.Text("key")}={value.Name}:{value.Value}";
        }).ToArray();

    internal static string Id(ulong id) => Convert.ToBase64String(Convert.FromHexString(id.ToString("x16")));
}
