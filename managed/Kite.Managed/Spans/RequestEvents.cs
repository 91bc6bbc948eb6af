#if NET
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Diagnostics.CodeAnalysis;
using System.Globalization;
using System.Reflection;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Conventions;
using Corvane.Instrumentation.Privacy;
using Corvane.Sampling;

namespace Corvane.Instrumentation.Spans;

// The activities of ASP.NET Core, and up to .NET 8 those of HttpClient, say nothing but their names. What they are
// about comes with an event just before they end. The types are known by name only.
internal sealed class RequestEvents : IObserver<DiagnosticListener>, IObserver<KeyValuePair<string, object?>>, IDisposable
{
    private const int FirstError = 500;
    private const string Request = "Microsoft.AspNetCore.Hosting.HttpRequestIn";
    private const string Call = "System.Net.Http.HttpRequestOut";

    private static readonly PropertyReader request = new PropertyReader("Request");
    private static readonly PropertyReader response = new PropertyReader("Response");
    private static readonly PropertyReader method = new PropertyReader("Method");
    private static readonly PropertyReader scheme = new PropertyReader("Scheme");
    private static readonly PropertyReader path = new PropertyReader("Path");
    private static readonly PropertyReader pathBase = new PropertyReader("PathBase");
    private static readonly PropertyReader statusCode = new PropertyReader("StatusCode");
    private static readonly PropertyReader pattern = new PropertyReader("RoutePattern");
    private static readonly PropertyReader patternText = new PropertyReader("RawText");
    private static readonly PropertyReader exception = new PropertyReader("exception");
    private static readonly PropertyReader exceptionOfCall = new PropertyReader("Exception");
    private static readonly ConditionalWeakTable<Assembly, object> endpoints = new ConditionalWeakTable<Assembly, object>();

    // The end of a request is told only to those who asked for its start.
    private static readonly Dictionary<string, string[]> wanted = new Dictionary<string, string[]>
    {
        ["Microsoft.AspNetCore"] =
        [
            Request, Request + ".Start", Request + ".Stop", "Microsoft.AspNetCore.Hosting.UnhandledException",
            "Microsoft.AspNetCore.Diagnostics.UnhandledException",
        ],
        ["HttpHandlerDiagnosticListener"] = Environment.Version.Major < 9 ? [Call, Call + ".Stop", "System.Net.Http.Exception"] : [],
    };

    private readonly Action<Action> guarded;
    private readonly List<IDisposable> subscriptions = [];

    internal RequestEvents(Action<Action> guarded) => this.guarded = guarded;

    [MethodImpl(MethodImplOptions.NoInlining)]
    internal void Begin() => Keep(DiagnosticListener.AllListeners.Subscribe(this));

    public void Dispose()
    {
        lock (subscriptions)
        {
            subscriptions.ForEach(subscription => subscription.Dispose());
            subscriptions.Clear();
        }
    }

    public void OnNext(DiagnosticListener listener) => guarded(() =>
    {
        if (wanted.TryGetValue(listener.Name, out var events) && events.Length > 0)
        {
            Keep(listener.Subscribe(this, name => Array.IndexOf(events, name) >= 0));
        }
    });

    public void OnNext(KeyValuePair<string, object?> happened) => guarded(() =>
    {
        if (ActivitySpans.Of(Activity.Current) is not { Ended: 0 } span)
        {
            return;
        }
        switch (happened.Key)
        {
            case Request + ".Start":
                if (SampledOperation.IsWanted)
                {
                    SampledOperation.EnterRequest(span, HttpMethods.Name(HttpMethods.Known(method.ReadText(request.Read(happened.Value)))));
                }
                break;
            case Request + ".Stop":
                DescribeRequest(span, happened.Value);
                SampledOperation.LeaveRequest(span);
                break;
            case Call + ".Stop":
                HttpConvention.DescribeExchange(span, request.Read(happened.Value), response.Read(happened.Value));
                break;
            default:
                if ((exception.Read(happened.Value) ?? exceptionOfCall.Read(happened.Value)) is Exception thrown)
                {
                    span.Fail(thrown.GetType().ToString(), null);
                }
                break;
        }
    });

    public void OnCompleted()
    {
    }

    public void OnError(Exception error)
    {
    }

    private void Keep(IDisposable subscription)
    {
        lock (subscriptions)
        {
            subscriptions.Add(subscription);
        }
    }

    private static void DescribeRequest(Span span, object? context)
    {
        var asked = request.Read(context);
        var name = HttpMethods.Known(method.ReadText(asked));
        var route = patternText.ReadText(pattern.Read(EndpointOf(context)));
        span.Name = HttpMethods.Name(name) + (route == null ? "" : " " + route);
        Set(span, AttributeNames.HttpMethod, name);
        Set(span, AttributeNames.HttpRoute, route);
        Set(span, "url.scheme", scheme.ReadText(asked));
        Set(span, "url.path", UrlText.Of($"{pathBase.Read(asked)}{path.Read(asked)}"));
        if (statusCode.ReadNumber(response.Read(context)) is not { } status)
        {
            return;
        }
        span.SetAttribute(AttributeNames.HttpStatus, (long)status);
        if (status >= FirstError && !span.HasError)
        {
            var text = status.ToString(CultureInfo.InvariantCulture);
            span.SetAttribute(AttributeNames.ErrorType, text);
            span.Fail(null, null);
        }
    }

    private static void Set(Span span, string key, string? value)
    {
        if (!string.IsNullOrEmpty(value))
        {
            span.SetAttribute(key, value);
        }
    }

    // What the platform's extension method of this name finds.
    [UnconditionalSuppressMessage("Trimming", "IL2026", Justification = "A request whose route is not found has none.")]
    [UnconditionalSuppressMessage("Trimming", "IL2075", Justification = "A request whose route is not found has none.")]
    private static object? EndpointOf(object? context)
    {
        var type = context?.GetType();
        while (type != null && type.FullName != "Microsoft.AspNetCore.Http.HttpContext")
        {
            type = type.BaseType;
        }
        if (type == null)
        {
            return null;
        }
        var find = endpoints.GetValue(
            type.Assembly,
            assembly => (object?)assembly.GetType("Microsoft.AspNetCore.Http.EndpointHttpContextExtensions")?.GetMethod("GetEndpoint") ?? "");
        return (find as MethodInfo)?.Invoke(null, [context]);
    }
}
#endif
