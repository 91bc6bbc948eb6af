using System;
using System.Diagnostics.CodeAnalysis;
using System.Reflection;
#if NET
using System.Reflection.Emit;
#else
using System.Linq.Expressions;
#endif
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Conventions;

namespace Corvane.Instrumentation.Spans;

// Reads a field of the platform's that is not public, by compiled code that is made once for each type. Where there
// is no such field, or no code can be made, there is no reader.
internal sealed class PrivateField
{
    private readonly ConditionalWeakTable<Type, Reader> readers = new ConditionalWeakTable<Type, Reader>();
    private readonly string name;

    internal PrivateField(string name) => this.name = name;

    // False if the object has no such field that could be read. The field is a reference.
    internal bool TryRead(object from, out object? value)
    {
        var read = readers.GetValue(from.GetType(), MakeReader).Read;
        value = read?.Invoke(from);
        return read != null;
    }

    private Reader MakeReader(Type type)
    {
        try
        {
            var field = Members.Field(type, name);
            return new Reader(field is { FieldType.IsValueType: false } ? Compile(type, field) : null);
        }
        catch (Exception)
        {
            // The program was trimmed, or no code can be made in it.
            return new Reader(null);
        }
    }

    [UnconditionalSuppressMessage("AOT", "IL3050", Justification = "Where no code can be made, there is no reader.")]
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static Func<object, object?> Compile(Type type, FieldInfo field)
    {
#if NET
        var method = new DynamicMethod(field.Name, typeof(object), [typeof(object)], typeof(PrivateField).Module, skipVisibility: true);
        var code = method.GetILGenerator();
        code.Emit(OpCodes.Ldarg_0);
        code.Emit(type.IsValueType ? OpCodes.Unbox : OpCodes.Castclass, type);
        code.Emit(OpCodes.Ldfld, field);
        code.Emit(OpCodes.Ret);
        return (Func<object, object?>)method.CreateDelegate(typeof(Func<object, object?>));
#else
        var from = Expression.Parameter(typeof(object));
        return Expression.Lambda<Func<object, object?>>(
            Expression.Convert(Expression.Field(Expression.Convert(from, type), field), typeof(object)), from).Compile();
#endif
    }

    private sealed class Reader
    {
        internal Reader(Func<object, object?>? read) => Read = read;

        internal Func<object, object?>? Read { get; }
    }
}
