using System.Collections.Specialized;
using System.Net.Http.Headers;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Spans;
#if NET
using System.Diagnostics;
#endif

namespace Corvane.Instrumentation.Conventions;

// Lets a request carry the ids of its span, as W3C Trace Context has it, unless it carries some already. Later the
// platform's own HTTP client leaves the header as it is.
internal static class TraceContext
{
    private const string Parent = "traceparent";
    private const string State = "tracestate";

    private static readonly PropertyReader headers = new PropertyReader("Headers");

    // Of several requests one is made from the other one.
    internal static void Inject(Span span, object? receiver, object?[] arguments)
    {
        var carrier = Carrier(receiver);
        foreach (var argument in arguments)
        {
            carrier ??= Carrier(argument);
        }
        if (carrier == null || HasParent(receiver) || System.Array.Exists(arguments, HasParent))
        {
            return;
        }
        Set(carrier, Parent, $"00-{span.Trace}-{SpanId.Text(span.Id)}-{(span.IsRecorded ? "01" : "00")}");
        if (StateOf(span) is { Length: > 0 } state)
        {
            Set(carrier, State, state);
        }
    }

    private static object? Carrier(object? request) => headers.Read(request) is { } found && (IsList(found) || IsHttpHeaders(found)) ? found : null;

    private static bool HasParent(object? request) =>
        Carrier(request) is { } carrier && (IsList(carrier) ? HasListed(carrier) : HasHeader(carrier));

    private static void Set(object carrier, string name, string value)
    {
        if (IsList(carrier))
        {
            SetListed(carrier, name, value);
        }
        else
        {
            SetHeader(carrier, name, value);
        }
    }

    // A trimmed program may lack either of the types: each is named in methods of its own.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static bool IsList(object carrier) => carrier is NameValueCollection;

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static bool HasListed(object carrier) => ((NameValueCollection)carrier)[Parent] != null;

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void SetListed(object carrier, string name, string value) => ((NameValueCollection)carrier).Set(name, value);

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static bool IsHttpHeaders(object carrier) => carrier is HttpHeaders;

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static bool HasHeader(object carrier) => ((HttpHeaders)carrier).Contains(Parent);

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void SetHeader(object carrier, string name, string value) =>
        ((HttpHeaders)carrier).TryAddWithoutValidation(name, value);

    // What the vendors of the trace have to say, if the program's current activity is of this trace.
#if NET
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static string? StateOf(Span span) =>
        Activity.Current is { IdFormat: ActivityIdFormat.W3C } activity && activity.TraceId.ToHexString() == span.Trace.ToString()
            ? activity.TraceStateString
            : null;
#else
    private static string? StateOf(Span span) => null;
#endif
}
