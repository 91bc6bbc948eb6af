using System;
using System.Collections;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using Corvane.Instrumentation.Conventions;
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
    private const string InSpan = "0000000000000def";

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
        var span = KnownCall.BeginOf(type, method, null, line, null);
        Assert.False(span.IsSampled);
        Assert.Equal($"{Trace} {InSpan} ordered", Line(new MessageTemplateTextFormatter("{TraceId} {SpanId} {Message:lj}"), line));
        Assert.Contains($"\"TraceId\":\"{Trace}\",\"SpanId\":\"{InSpan}\"", Line(new JsonFormatter(), line));
        Assert.Equal((Trace, InSpan), (line.TraceId.ToString(), line.SpanId.ToString()));
    }

    [Fact]
    public void ALineOutsideOfSpansHasNoIds()
    {
        var line = Event();
        var span = KnownCall.NewSpan(parent: 0);
        KnownCall.Convention(typeof(LogContext), "Enrich")!.Begin(span, null, [line, null]);
        Assert.Null(line.TraceId);
        Assert.Empty(line.Properties);
        Assert.False(span.IsSampled);
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
        KnownCall.Run(formatter, ".ctor", null, template, null);
        var line = Event();
        KnownCall.BeginOf(typeof(LogContext), "Enrich", null, line, null);
        Assert.Equal(expected, Line(formatter, line).Replace(Environment.NewLine, "\n"));
    }

    [Fact]
    public void WhatIsNoFormatterIsLeftAlone()
    {
        var convention = KnownCall.Convention(typeof(MessageTemplateTextFormatter), ".ctor")!;
        convention.End(KnownCall.NewSpan(), null, ["{Message}", null], null);
        convention.End(KnownCall.NewSpan(), new object(), ["{Message}", null], null);
        convention.End(KnownCall.NewSpan(), new MessageTemplateTextFormatter("{Message}"), [null, null], null);
        convention.End(KnownCall.NewSpan(), new MessageTemplateTextFormatter("{Message}"), [], null);
        var formatter = new MessageTemplateTextFormatter("{Message:lj}");
        convention.End(KnownCall.NewSpan(), formatter, ["{Message:lj}", null], null);
        Assert.Equal("ordered", Line(formatter, Event()));
    }

    [Fact]
    public void EventsOfLog4NetHaveTheIdsAsProperties()
    {
        var properties = new Hashtable();
        var span = KnownCall.Begin(new log4net.Repository.Hierarchy.Logger(), "CallAppenders", new LoggingEvent(properties));
        Assert.False(span.IsSampled);
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
    public void AskingForALoggerIsNoSpan() => Assert.False(KnownCall.BeginOf(typeof(LoggerManager), "GetLogger", null, "a", "b").IsSampled);

    [Fact]
    public void WhatFailsDoesNotReachTheProgramAndRests()
    {
        var convention = new Guarded(new LogConvention(
            (_, _) => throw new InvalidOperationException(), (_, _) => throw new InvalidOperationException()));
        for (var time = 0; time < 5; time++)
        {
            convention.Begin(KnownCall.NewSpan(), null, []);
            convention.End(KnownCall.NewSpan(), null, [], null);
        }
        var span = KnownCall.NewSpan();
        convention.Begin(span, null, []);
        Assert.True(span.IsSampled);
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
