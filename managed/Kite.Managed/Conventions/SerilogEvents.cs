using System;
using System.Reflection;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// Gives events of Serilog the ids of a span: those that an event has for them, as it has from the current activity,
// or properties where it has none (before 3.1). What has ids already keeps them.
internal static class SerilogEvents
{
    private static readonly ConditionalWeakTable<Type, Stamp> stamps = new ConditionalWeakTable<Type, Stamp>();
    private static readonly Stamp none = new Stamp((_, _) => { });

    internal static void Write(Span span, object?[] arguments)
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
        var add = Members.Method(type, "AddPropertyIfAbsent", takes => takes.Length == 1 && !takes[0].ParameterType.IsByRef);
        return add == null ? none : new Stamp(OwnIds(type) ?? Properties(add));
    }

    // They are fields that only its constructor writes, of types that this library cannot name on every platform.
    private static Action<object, Span>? OwnIds(Type type)
    {
        var traceId = Members.Field(type, "_traceId");
        var spanId = Members.Field(type, "_spanId");
        if (traceId == null || spanId == null || Members.Constructor(traceId.FieldType, IsText) is not { } makeTraceId ||
            Members.Constructor(spanId.FieldType, IsText) is not { } makeSpanId)
        {
            return null;
        }
        var unset = Members.New(traceId.FieldType);
        return (to, span) =>
        {
            if (Equals(traceId.GetValue(to), unset))
            {
                traceId.SetValue(to, makeTraceId.Invoke([span.Trace.ToString()]));
                spanId.SetValue(to, makeSpanId.Invoke([SpanId.Text(span.Id)]));
            }
        };
    }

    private static bool IsText(ParameterInfo[] takes) => takes.Length == 1 && takes[0].ParameterType == typeof(string);

    private static Action<object, Span> Properties(MethodInfo add)
    {
        var property = add.GetParameters()[0].ParameterType;
        var scalar = Members.Beside(property, "Serilog.Events.ScalarValue")!;
        var makeScalar = Members.Constructor(scalar, takes => takes.Length == 1)!;
        var makeProperty = Members.Constructor(property, takes => takes.Length == 2)!;
        var write = ((IAdder)Members.New(typeof(Adder<,>), add.DeclaringType!, property)).Bind(add);
        object Property(string name, string id) => makeProperty.Invoke([name, makeScalar.Invoke([id])]);
        return (to, span) =>
        {
            write(to, Property(LogConvention.TraceIdName, span.Trace.ToString()));
            write(to, Property(LogConvention.SpanIdName, SpanId.Text(span.Id)));
        };
    }

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

    private sealed class Stamp
    {
        internal Stamp(Action<object, Span> write) => Write = write;

        internal Action<object, Span> Write { get; }
    }
}
