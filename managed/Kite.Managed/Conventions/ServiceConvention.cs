using System;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// A call to a service of WCF or a step of serving one.
internal sealed class ServiceConvention : ISpanConvention
{
    private const string System = "dotnet_wcf";

    private static readonly PropertyReader remoteAddress = new PropertyReader("RemoteAddress");
    private static readonly PropertyReader uri = new PropertyReader("Uri");
    private static readonly PropertyReader methodName = new PropertyReader("MethodName");

    internal ServiceConvention(SpanKind kind) => Kind = kind;

    public SpanKind Kind { get; }

    // A call names its action first, a URI that ends in the service and its method. What is invoked knows its method,
    // and its first argument is the service.
    public void Begin(Span span, object? receiver, object?[] arguments)
    {
        span.SetAttribute(AttributeNames.RemoteSystem, System);
        var first = arguments.Length > 0 ? arguments[0] : null;
        if (first is string action)
        {
            var end = action.LastIndexOf('/');
            var start = end > 0 ? action.LastIndexOf('/', end - 1) : -1;
            Describe(span, end > start + 1 ? action.Substring(start + 1, end - start - 1) : null, action.Substring(end + 1));
        }
        else if (methodName.ReadText(receiver) is { } method)
        {
            Describe(span, first?.GetType().FullName, method);
        }
        if (uri.Read(remoteAddress.Read(receiver)) is Uri address)
        {
            Server.Describe(span, address);
        }
    }

    public void End(Span span, object? receiver, object?[] arguments, object? result)
    {
    }

    public void Fail(Span span, Exception exception)
    {
    }

    private static void Describe(Span span, string? service, string method)
    {
        if (!IsName(method))
        {
            return;
        }
        span.SetAttribute(AttributeNames.RemoteMethod, method);
        span.Name = method;
        if (service != null && IsName(service))
        {
            span.SetAttribute(AttributeNames.RemoteService, service);
            span.Name = service + "/" + method;
        }
    }

    private static bool IsName(string text)
    {
        foreach (var character in text)
        {
            if (!char.IsLetterOrDigit(character) && "_.+`".IndexOf(character) < 0)
            {
                return false;
            }
        }
        return text.Length is > 0 and <= 255;
    }
}
