// A span of a call as the conventions leave it.
using System;
using System.Linq;
using System.Reflection;
using Corvane.Instrumentation.Conventions;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Conventions;

internal static class KnownCall
{
    internal static readonly TraceId Trace = new(0x0102030405060708, 0x090a0b0c0d0e0f10);

    internal const ulong Id = 0xabc;
    internal const ulong Parent = 0xdef;

    internal static ISpanConvention? Convention(Type type, string method) =>
        KnownMethods.Find(type.GetMember(method, (BindingFlags)62).OfType<MethodBase>().First());

    internal static Span NewSpan(ulong id = Id, ulong parent = Parent) => new(Trace, id, parent, "as made", "Some.Method", Span.CallScope);

    internal static Span BeginOf(Type type, string method, object? receiver, params object?[] arguments)
    {
        var convention = Convention(type, method);
        Assert.NotNull(convention);
        var span = NewSpan();
        span.Kind = convention.Kind;
        convention.Begin(span, receiver, arguments);
        return span;
    }

    internal static Span Begin(object receiver, string method, params object?[] arguments) =>
        BeginOf(receiver.GetType(), method, receiver, arguments);

    internal static Span Run(object receiver, string method, object? result, params object?[] arguments)
    {
        var span = Begin(receiver, method, arguments);
        Convention(receiver.GetType(), method)!.End(span, receiver, arguments, result);
        return span;
    }

    // Name and kind, then the attributes in their order. The secret of all tests is in none of them.
    internal static string[] Lines(Span span)
    {
        string[] lines = [$"{span.Name} ({span.Kind})", .. span.Attributes.Select(attribute => $"{attribute.Key}={attribute.Value}")];
        Assert.DoesNotContain(lines, line => line.Contains("hunter2", StringComparison.OrdinalIgnoreCase));
        return lines;
    }
}
