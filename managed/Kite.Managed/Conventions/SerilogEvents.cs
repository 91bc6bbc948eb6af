using System;
using System.Reflection;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Spans;
#if NET
using System.Diagnostics;
#endif

namespace Corvane.Instrumentation.Conventions;

// Gives events of Serilog the ids of a span: those that an event has for them, as it has from the current activity,
// or properties where it has none (before 3.1). What has ids already keeps them.
internal static class SerilogEvents
{
    private const BindingFlags Any = BindingFlags.Instance | BindingFlags.Public | BindingFlags.NonPublic;

    private static readonly ConditionalWeakTable<Type, Stamp> stamps = new ConditionalWeakTable<Type, Stamp>();
    private static readonly Stamp none = new Stamp((_, _) => { });

    internal static void Stamp(Span span, object?[] arguments)
    {
        SerilogTemplates.ExtendAnnounced();
        if (span.Trace.IsNone)
        {
            return;
        }
        foreach (var argument in arguments)
        {
            if (argument != null && stamps.GetValue(argument.GetType(), Make) is var stamp && stamp != none)
            {
                stamp.Write(argument, span);
                return;
            }
        }
    }

    private static Stamp Make(Type type)
    {
        var add = Array.Find(type.GetMethods(), IsAdd);
        if (add == null)
        {
            return none;
        }
        return new Stamp(OwnIds(type) ?? Properties(add));
    }

    private static bool IsAdd(MethodInfo method) =>
        method.Name == "AddPropertyIfAbsent" && method.GetParameters() is [{ ParameterType.IsByRef: false }];

    private static Action<object, Span> Properties(MethodInfo add)
    {
        var property = add.GetParameters()[0].ParameterType;
        var scalar = property.Assembly.GetType("Serilog.Events.ScalarValue", throwOnError: true)!;
        var makeScalar = scalar.GetConstructor([typeof(object)])!;
        var makeProperty = Array.Find(property.GetConstructors(), IsOfNameAndValue)!;
        var adder = (IAdder)Activator.CreateInstance(typeof(Adder<,>).MakeGenericType(add.DeclaringType!, property))!;
        var write = adder.Bind(add);
        object Property(string name, string id) => makeProperty.Invoke([name, makeScalar.Invoke([id])]);
        return (to, span) =>
        {
            write(to, Property(LogConvention.TraceIdName, span.Trace.ToString()));
            write(to, Property(LogConvention.SpanIdName, SpanId.Text(span.Id)));
        };
    }

    private static bool IsOfNameAndValue(ConstructorInfo constructor) =>
        constructor.GetParameters() is [var name, _] && name.ParameterType == typeof(string);

#if NET
    // They are fields that only its constructor writes.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static Action<object, Span>? OwnIds(Type type)
    {
        var traceId = type.GetField("_traceId", Any);
        var spanId = type.GetField("_spanId", Any);
        if (traceId?.FieldType != typeof(ActivityTraceId) || spanId?.FieldType != typeof(ActivitySpanId))
        {
            return null;
        }
        return (to, span) =>
        {
            if (traceId.GetValue(to) is ActivityTraceId known && known == default)
            {
                traceId.SetValue(to, ActivityTraceId.CreateFromString(span.Trace.ToString().AsSpan()));
                spanId.SetValue(to, ActivitySpanId.CreateFromString(SpanId.Text(span.Id).AsSpan()));
            }
        };
    }
#else
    private static Action<object, Span>? OwnIds(Type type) => null;
#endif

    private interface IAdder
    {
        Action<object, object> Bind(MethodInfo add);
    }

    private sealed class Adder<TEvent, TProperty> : IAdder
    {
        public Action<object, object> Bind(MethodInfo add)
        {
            var write = (Action<TEvent, TProperty>)Delegate.CreateDelegate(typeof(Action<TEvent, TProperty>), add);
            return (to, property) => write((TEvent)to, (TProperty)property);
        }
    }
}

internal sealed class Stamp
{
    internal Stamp(Action<object, Span> write) => Write = write;

    internal Action<object, Span> Write { get; }
}
