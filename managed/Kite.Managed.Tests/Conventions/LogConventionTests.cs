using System;
using System.Collections;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Conventions;
using Corvane.Instrumentation.Spans;
using log4net.Core;
using log4net.Layout;
using log4net.Layout.Pattern;
using Serilog;
using Serilog.Context;
using Serilog.Core;
using Serilog.Events;
using Serilog.Formatting;
using Serilog.Formatting.Compact;
using Serilog.Formatting.Display;
using Serilog.Formatting.Json;
using Serilog.Parsing;
using Serilog.Sinks.Murrel;
using Xunit;

namespace Kite.Managed.Tests.Conventions;

// Serilog is the real one. log4net, the compact formatter and Murrel's converter are stand-ins with the same names.
public class LogConventionTests
{
    private const string Trace = "0102030405060708090a0b0c0d0e0f10";
    private const string InSpan = "0000000000000abc";

    private static LogEvent Event() =>
        new(DateTimeOffset.UnixEpoch, LogEventLevel.Information, null, new MessageTemplateParser().Parse("ordered"), []);

    private static string Line(ITextFormatter formatter, LogEvent line)
    {
        using var writer = new StringWriter();
        formatter.Format(line, writer);
        return writer.ToString().TrimEnd();
    }

    [Theory]
    [InlineData(typeof(LogContext), "Enrich")]
    [InlineData(typeof(CompactJsonFormatter), "Format")]
    [InlineData(typeof(LogEventConverter), "CreateMurrelEvent")]
    public void ALineCarriesTheIdsOfTheSpanThatItIsWrittenIn(Type type, string method)
    {
        var line = Event();
        Assert.Equal(SpanKind.None, KnownCall.Convention(type, method)!.Kind);
        KnownCall.BeginOf(type, method, null, line, null);
        Assert.Equal($"{Trace} {InSpan} ordered", Line(new MessageTemplateTextFormatter("{TraceId} {SpanId} {Message:lj}"), line));
        Assert.Contains($"\"TraceId\":\"{Trace}\",\"SpanId\":\"{InSpan}\"", Line(new JsonFormatter(), line));
        Assert.Equal((Trace, InSpan), (line.TraceId.ToString(), line.SpanId.ToString()));
    }

    [Fact]
    public void ALineOutsideOfSpansHasNoIds()
    {
        var line = Event();
        KnownCall.Convention(typeof(LogContext), "Enrich")!.Begin(Span.None, null, [line, null]);
        Assert.Null(line.TraceId);
        Assert.Empty(line.Properties);
    }

    [Fact]
    public void ALineKeepsTheIdsThatItHas()
    {
        using var activity = new Activity("of the program");
        activity.Start();
        LogEvent? seen = null;
        using var log = new LoggerConfiguration().WriteTo.Sink(new Sink(line => seen = line)).CreateLogger();
        log.Information("ordered");
        KnownCall.BeginOf(typeof(LogContext), "Enrich", null, seen, null);
        Assert.Equal((activity.TraceId, activity.SpanId), (seen!.TraceId, seen.SpanId));
    }

    // As versions of Serilog before 3.1 do.
    [Fact]
    public void WhereAnEventHasNoPlaceForIdsTheyAreProperties()
    {
        var line = new OlderEvent();
        for (var time = 0; time < 2; time++)
        {
            KnownCall.BeginOf(typeof(LogContext), "Enrich", null, line, null);
        }
        Assert.Equal([$"TraceId: \"{Trace}\"", $"SpanId: \"{InSpan}\""], line.Properties.Values.Select(property => $"{property.Name}: {property.Value}"));
    }

    [Theory]
    [InlineData("[{Level:u3}] {Message:lj}{NewLine}{Exception}", "[INF] ordered " + Trace)]
    [InlineData("{Message:lj}", "ordered " + Trace)]
    [InlineData("{Message:lj}{NewLine}-{NewLine}", "ordered\n- " + Trace)]
    [InlineData("{TraceId} {Message:lj}{NewLine}", Trace + " ordered")]
    [InlineData("{TraceId,40}|{Message:lj}", "        " + Trace + "|ordered")]
    public void ATextFormatterWritesTheTraceId(string template, string expected)
    {
        var formatter = new MessageTemplateTextFormatter(template);
        KnownCall.Begin(formatter, ".ctor", template, null);
        var line = Event();
        KnownCall.BeginOf(typeof(LogContext), "Enrich", null, line, null);
        Assert.Equal(expected, Line(formatter, line).Replace(Environment.NewLine, "\n"));
    }

    [Fact]
    public void WhatIsNoFormatterOrIsNotConstructedIsLeftAlone()
    {
        var unfinished = (MessageTemplateTextFormatter)RuntimeHelpers.GetUninitializedObject(typeof(MessageTemplateTextFormatter));
        foreach (var receiver in new[] { null, new object(), unfinished })
        {
            KnownCall.BeginOf(typeof(MessageTemplateTextFormatter), ".ctor", receiver, "{Message:lj}", null);
        }
        var line = Event();
        KnownCall.BeginOf(typeof(LogContext), "Enrich", null, line, null);
        typeof(MessageTemplateTextFormatter).GetConstructors()[0].Invoke(unfinished, ["{Message:lj}", null]);
        Assert.Equal("ordered", Line(unfinished, line));
        KnownCall.BeginOf(typeof(LogContext), "Enrich", null, line, null);
        Assert.Equal("ordered " + Trace, Line(unfinished, line));
    }

    [Fact]
    public void EventsOfLog4NetHaveTheIdsAsProperties()
    {
        var properties = new Hashtable();
        KnownCall.Begin(new log4net.Repository.Hierarchy.Logger(), "CallAppenders", new LoggingEvent(properties));
        Assert.Equal((Trace, InSpan), (properties["TraceId"], properties["SpanId"]));

        properties["TraceId"] = "own";
        KnownCall.Begin(new PropertyPatternConverter(), "Convert", new StringWriter(), new LoggingEvent(properties));
        Assert.Equal("own", properties["TraceId"]);
    }

    [Fact]
    public void ALineOfTheSimpleLayoutBeginsWithTheTraceId()
    {
        using var writer = new StringWriter();
        KnownCall.Begin(new SimpleLayout(), "Format", writer, new LoggingEvent(new Hashtable()));
        writer.Write("INFO - ordered");
        Assert.Equal(Trace + " INFO - ordered", writer.ToString());
    }

    [Fact]
    public void NothingIsKnownOutsideOfSpans()
    {
        var properties = new Hashtable();
        using var writer = new StringWriter();
        KnownCall.Convention(typeof(log4net.Repository.Hierarchy.Logger), "CallAppenders")!.Begin(Span.None, null, [new LoggingEvent(properties)]);
        KnownCall.Convention(typeof(SimpleLayout), "Format")!.Begin(Span.None, null, [writer, null]);
        Assert.Empty(properties);
        Assert.Equal("", writer.ToString());
    }

    [Fact]
    public void AskingForALoggerIsNoSpan() => Assert.Equal(SpanKind.None, KnownCall.Convention(typeof(LoggerManager), "GetLogger")!.Kind);

    [Fact]
    public void WhatFailsDoesNotReachTheProgramAndRests()
    {
        var calls = 0;
        var convention = new Guarded(new LogConvention((_, _, _) =>
        {
            calls++;
            throw new InvalidOperationException();
        }));
        for (var time = 0; time < 5; time++)
        {
            convention.Begin(KnownCall.NewSpan(), null, []);
        }
        Assert.Equal(3, calls);
    }

    private sealed class Sink(Action<LogEvent> seen) : ILogEventSink
    {
        public void Emit(LogEvent logEvent) => seen(logEvent);
    }

    private sealed class OlderEvent
    {
        public Dictionary<string, LogEventProperty> Properties { get; } = [];

        public void AddPropertyIfAbsent(LogEventProperty property) => Properties.TryAdd(property.Name, property);
    }
}
