using System;
using System.Linq;
using System.Reflection;

namespace Probe;

// For every argument another value of its parameter's type, or of one that it cannot be, whether or not
// injected code takes it.
internal static class Replacements
{
    public static void Make(ParameterInfo[] parameters, object?[] arguments, bool wrongly)
    {
        for (int i = 0; i < arguments.Length; ++i)
        {
            Type type = parameters[i].ParameterType;
            arguments[i] = wrongly ? new Version() : Another(type.IsByRef ? type.GetElementType()! : type, arguments[i]);
        }
    }

    // None where null stands for it.
    private static object? Another(Type type, object? value) => value switch
    {
        bool flag => !flag,
        char character => (char)(character + 1),
        sbyte number => (sbyte)(number + 1),
        byte number => (byte)(number + 1),
        short number => (short)(number + 1),
        ushort number => (ushort)(number + 1),
        int number => number + 1,
        uint number => number + 1,
        long number => number + 1,
        ulong number => number + 1,
        float number => number + 1,
        double number => number + 1,
        nint number => number + 1,
        nuint number => number + 1,
        string => "replaced",
        Array array => Array.CreateInstance(array.GetType().GetElementType()!, Enumerable.Repeat(1, array.Rank).ToArray()),
        _ when type == typeof(object) => "replaced",
        _ when type.IsAbstract || type.GetConstructor(Type.EmptyTypes) == null && !type.IsValueType => null,
        _ => Activator.CreateInstance(type),
    };
}
