using System;
using System.Collections.Generic;
using System.Reflection;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// What is known of the methods that the profiler instruments by its own table, and of their likes that a program may
// choose. A request or command has one client or server span; its other steps are internal ones.
internal static class KnownMethods
{
    private static readonly ISpanConvention httpCall = new Guarded(new HttpConvention(SpanKind.Client));
    private static readonly ISpanConvention httpStep = new Guarded(new HttpConvention(SpanKind.Internal));
    private static readonly ISpanConvention webRequest = new Guarded(new MvcConvention(SpanKind.Server));
    private static readonly ISpanConvention webAction = new Guarded(new MvcConvention(SpanKind.Internal));
    private static readonly ISpanConvention serviceRequest = new Guarded(new ServiceConvention(SpanKind.Server));
    private static readonly ISpanConvention serviceCall = new Guarded(new ServiceConvention(SpanKind.Client));
    private static readonly ISpanConvention serviceStep = new Guarded(new ServiceConvention(SpanKind.Internal));
    private static readonly ISpanConvention noSpan = Log((_, _, _) => { });
    private static readonly ISpanConvention serilogEvent = Log((span, _, arguments) => SerilogEvents.Write(span, arguments));
    private static readonly ISpanConvention serilogTemplate = Log((_, receiver, _) => SerilogTemplates.Announce(receiver));
    private static readonly ISpanConvention log4netEvent = Log((span, _, arguments) => Log4NetEvents.Write(span, arguments));
    private static readonly ISpanConvention log4netLine = Log((span, _, arguments) => Log4NetEvents.WriteTraceId(span, arguments));

    private static readonly Dictionary<string, ISpanConvention> all = new Dictionary<string, ISpanConvention>
    {
        ["System.Net.Http.HttpClientHandler.SetRequestHeaders"] = httpStep,
        ["System.Net.Http.HttpClientHandler.Send"] = httpCall,
        ["System.Net.Http.HttpClientHandler.SendAsync"] = httpCall,
        ["System.Net.HttpWebRequest.GetRequestStream"] = httpStep,
        ["System.Net.HttpWebRequest.BeginGetRequestStream"] = httpStep,
        ["System.Net.HttpWebRequest.GetResponse"] = httpCall,
        ["System.Net.HttpWebRequest.BeginGetResponse"] = httpCall,
        ["System.Net.HttpWebRequest.EndGetResponse"] = httpStep,

        ["System.Web.Mvc.MvcHandler.BeginProcessRequest"] = webRequest,
        ["System.Web.Mvc.ReflectedActionDescriptor.Execute"] = webAction,
        ["System.Web.Mvc.Async.TaskAsyncActionDescriptor.BeginExecute"] = webAction,

        ["System.ServiceModel.Dispatcher.ChannelHandler.HandleRequest"] = serviceRequest,
        ["System.ServiceModel.Dispatcher.SyncMethodInvoker.Invoke"] = serviceStep,
        ["System.ServiceModel.Channels.ServiceChannel.Call"] = serviceCall,
        ["System.ServiceModel.Channels.ServiceChannel.BeginCall"] = serviceCall,
        ["System.ServiceModel.Channels.ServiceChannel.EndCall"] = serviceStep,

        ["Serilog.Context.LogContext.Enrich"] = serilogEvent,
        ["Serilog.Formatting.Compact.CompactJsonFormatter.Format"] = serilogEvent,
        ["Serilog.Sinks.Murrel.LogEventConverter.CreateMurrelEvent"] = serilogEvent,
        ["Serilog.Formatting.Display.MessageTemplateTextFormatter..ctor"] = serilogTemplate,
        ["log4net.Core.LoggerManager.GetLogger"] = noSpan,
        ["log4net.Layout.SimpleLayout.Format"] = log4netLine,
        ["log4net.Layout.Pattern.PropertyPatternConverter.Convert"] = log4netEvent,
        ["log4net.Repository.Hierarchy.Logger.CallAppenders"] = log4netEvent,
    };

    // False where a trimmed program lacks what it takes.
    private static readonly Lazy<bool> isPossible = new Lazy<bool>(Rehearse, LazyThreadSafetyMode.PublicationOnly);

    internal static ISpanConvention? FindIfPossible(MethodBase? method) => isPossible.Value ? Find(method) : null;

    // Null for nearly all methods.
    internal static ISpanConvention? Find(MethodBase? method)
    {
        return method?.DeclaringType?.FullName is { } type ? Find(type, method.Name) : null;
    }

    internal static ISpanConvention? Find(string type, string method) =>
        all.TryGetValue(type + "." + method, out var convention) ? convention : FindCommand(type, method);

    private static bool Rehearse()
    {
        try
        {
            Find(typeof(Invokers).GetMethod(nameof(Invokers.ContainsKey)));
            new PropertyReader(nameof(MethodBase.Name)).Read(typeof(Invokers));
            return true;
        }
        catch (Exception)
        {
            return false;
        }
    }

    private static ISpanConvention Log(Action<Span, object?, object?[]> begin) => new Guarded(new LogConvention(begin));

    // All databases have the same commands. What begins one is the client's part, and what ends it a step.
    private static ISpanConvention? FindCommand(string typeName, string method)
    {
        var isExecuted = method.StartsWith("Execute", StringComparison.Ordinal) || method.StartsWith("BeginExecute", StringComparison.Ordinal);
        if ((!isExecuted && !method.StartsWith("EndExecute", StringComparison.Ordinal)) ||
            !typeName.EndsWith("Command", StringComparison.Ordinal) || DatabaseSystem.Of(typeName) is not { } system)
        {
            return null;
        }
        var isCall = isExecuted && !method.EndsWith("Internal", StringComparison.Ordinal);
        return new Guarded(new DatabaseConvention(system, isCall ? SpanKind.Client : SpanKind.Internal));
    }
}
