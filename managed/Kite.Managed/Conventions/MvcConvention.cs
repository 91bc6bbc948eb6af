using System;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// A request to a program of ASP.NET MVC, or an action that serves it: the route's pattern, not what stands in the
// request for its parameters.
internal sealed class MvcConvention : ISpanConvention
{
    private static readonly PropertyReader requestContext = new PropertyReader("RequestContext");
    private static readonly PropertyReader routeData = new PropertyReader("RouteData");
    private static readonly PropertyReader route = new PropertyReader("Route");
    private static readonly PropertyReader url = new PropertyReader("Url");
    private static readonly PropertyReader httpContext = new PropertyReader("HttpContext");
    private static readonly PropertyReader request = new PropertyReader("Request");
    private static readonly PropertyReader httpMethod = new PropertyReader("HttpMethod");
    private static readonly PropertyReader controllerDescriptor = new PropertyReader("ControllerDescriptor");
    private static readonly PropertyReader controllerName = new PropertyReader("ControllerName");
    private static readonly PropertyReader actionName = new PropertyReader("ActionName");

    internal MvcConvention(SpanKind kind) => Kind = kind;

    public SpanKind Kind { get; }

    public void Begin(Span span, object? receiver, object?[] arguments)
    {
        var context = Kind == SpanKind.Server ? requestContext.Read(receiver) : arguments.Length > 0 ? arguments[0] : null;
        var pattern = url.ReadText(route.Read(routeData.Read(context)));
        if (!string.IsNullOrEmpty(pattern))
        {
            span.SetAttribute(AttributeNames.HttpRoute, pattern!);
        }
        if (Kind == SpanKind.Server)
        {
            NameRequest(span, HttpMethods.Known(httpMethod.ReadText(request.Read(httpContext.Read(context)))), pattern);
        }
        else if (controllerName.ReadText(controllerDescriptor.Read(receiver)) is { } controller && actionName.ReadText(receiver) is { } action)
        {
            span.Name = controller + "." + action;
        }
    }

    public void End(Span span, object? receiver, object?[] arguments, object? result)
    {
    }

    public void Fail(Span span, Exception exception)
    {
    }

    private static void NameRequest(Span span, string? method, string? pattern)
    {
        if (method == null)
        {
            return;
        }
        span.SetAttribute(AttributeNames.HttpMethod, method);
        span.Name = string.IsNullOrEmpty(pattern) ? HttpMethods.Name(method) : HttpMethods.Name(method) + " " + pattern;
    }
}
