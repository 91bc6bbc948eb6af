using System;
using System.Runtime.CompilerServices;

namespace Corvane.Instrumentation;

/// <summary>
/// What the managed side asks of the injected code of one call: to go on with other arguments. The injected
/// code makes one for every call and reads the indexes after the prologue.
/// </summary>
public sealed class InstrumentationDirectives
{
    private static readonly int[] none = new int[0];

    // Null unless there are callbacks: every call makes two of these objects, and nearly all stay empty.
    private Replacement? replacement;

    /// <summary>Makes one that asks for nothing.</summary>
    [MethodImpl(EveryCall.Options)]
    public InstrumentationDirectives()
    {
    }

    /// <summary>The indexes of the replaced arguments, in the order in which they were first replaced.</summary>
    [MethodImpl(EveryCall.Options)]
    public int[] GetIndexes() => replacement == null ? none : replacement.Indexes;

    /// <summary>
    /// Replaces an argument of the call that a <see cref="MethodArgumentCallback"/> is told of.
    /// </summary>
    /// <remarks>
    /// Only parameters of a class or interface, of object, or of a primitive type, passed by value, can be
    /// replaced: strings, arrays, generic types and type parameters, other value types (enumerations and
    /// nullables among them) and parameters passed by reference cannot. Nor can null take the place of a
    /// value: the injected code takes null for "leave it as it is".
    /// </remarks>
    /// <param name="index">The parameter's position; the receiver is not counted.</param>
    /// <param name="value">Its new value, of exactly the type for a primitive.</param>
    /// <returns>Whether the method will see the value. If not, the argument stays as it was.</returns>
    public bool ReplaceArgument(int index, object? value)
    {
        var arguments = replacement?.Arguments;
        if (arguments == null || value == null || index < 0 || index >= arguments.Length ||
            !replacement!.Method.CanReplace(index, value))
        {
            return false;
        }
        arguments[index] = value;
        var indexes = replacement.Indexes;
        if (Array.IndexOf(indexes, index) < 0)
        {
            var longer = new int[indexes.Length + 1];
            indexes.CopyTo(longer, 0);
            longer[indexes.Length] = index;
            replacement.Indexes = longer;
        }
        return true;
    }

    // Between the two calls the callbacks of one call run; before and after, nothing would be written back.
    internal void Open(MethodData method, object?[] arguments) => replacement = new Replacement(method, arguments);

    internal void Close() => replacement!.Arguments = null;

    private sealed class Replacement
    {
        internal Replacement(MethodData method, object?[] arguments)
        {
            Method = method;
            Arguments = arguments;
        }

        internal MethodData Method { get; }

        internal object?[]? Arguments { get; set; } // until the callbacks have run

        internal int[] Indexes { get; set; } = none;
    }
}
