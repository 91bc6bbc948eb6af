using System;
using System.Globalization;
using System.Threading.Tasks;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// A call of an HTTP client. The receiver or an argument is the request, which goes out with the span's ids.
internal sealed class HttpConvention : ISpanConvention
{
    private const int FirstError = 400;
    private const string WebException = "System.Net.WebException";

    private static readonly PropertyReader method = new PropertyReader("Method");
    private static readonly PropertyReader requestUri = new PropertyReader("RequestUri");
    private static readonly PropertyReader response = new PropertyReader("Response");
    private static readonly PropertyReader statusCode = new PropertyReader("StatusCode");
    private static readonly PropertyReader taskResult = new PropertyReader("Result");

    internal HttpConvention(SpanKind kind) => Kind = kind;

    public SpanKind Kind { get; }

    public void Begin(Span span, object? receiver, object?[] arguments)
    {
        if (span.IsRecorded)
        {
            DescribeRequest(span, receiver, arguments);
        }
        TraceContext.Inject(span, receiver, arguments);
    }

    public void End(Span span, object? receiver, object?[] arguments, object? result)
    {
        DescribeStatus(span, result is not Task task ? result : task.Status == TaskStatus.RanToCompletion ? taskResult.Read(task) : null);
    }

    // The exception has the response where there is one.
    public void Fail(Span span, Exception exception)
    {
        if (exception.GetType().FullName == WebException)
        {
            DescribeStatus(span, response.Read(exception));
        }
    }

    // A request that was made, as the platform tells of it.
    internal static void DescribeExchange(Span span, object? request, object? response)
    {
        if (requestUri.Read(request) is Uri uri)
        {
            Describe(span, request!, uri);
        }
        DescribeStatus(span, response);
    }

    private static void DescribeStatus(Span span, object? response)
    {
        if (statusCode.ReadNumber(response) is not { } status)
        {
            return;
        }
        span.SetAttribute(AttributeNames.HttpStatus, (long)status);
        if (status >= FirstError)
        {
            span.SetAttribute(AttributeNames.ErrorType, status.ToString(CultureInfo.InvariantCulture));
            if (!span.HasError)
            {
                span.Fail(null, null);
            }
        }
    }

    private static void DescribeRequest(Span span, object? receiver, object?[] arguments)
    {
        if (requestUri.Read(receiver) is Uri own)
        {
            Describe(span, receiver!, own);
            return;
        }
        foreach (var argument in arguments)
        {
            if (requestUri.Read(argument) is Uri uri)
            {
                Describe(span, argument!, uri);
                return;
            }
        }
    }

    private static void Describe(Span span, object request, Uri uri)
    {
        var name = MethodOf(request);
        if (name != null)
        {
            span.SetAttribute(AttributeNames.HttpMethod, name);
        }
        if (span.Kind == SpanKind.Client)
        {
            span.Name = HttpMethods.Name(name);
        }
        if (!uri.IsAbsoluteUri)
        {
            return;
        }
        span.SetAttribute(AttributeNames.Url, UrlText.Of(uri.AbsoluteUri));
        Server.Describe(span, uri);
    }

    // A text, or an object that has it.
    private static string? MethodOf(object request)
    {
        var value = method.Read(request);
        return HttpMethods.Known(value as string ?? method.ReadText(value));
    }
}
