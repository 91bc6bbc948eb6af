using System;
using System.Runtime.CompilerServices;
using System.Text;

namespace Corvane.Instrumentation.Recording;

// Names of types as C# writes them, with namespaces and without keywords:
//     System.Collections.Generic.List<System.Int32[]>
// Remembered as long as the type lives. Any thread.
internal static class TypeNames
{
    private const int MaxDepth = 8;

    private static readonly ConditionalWeakTable<Type, string> known = new ConditionalWeakTable<Type, string>();

    internal static string Of(Type type) => known.GetValue(type, Describe);

    private static string Describe(Type type)
    {
        var text = new StringBuilder();
        Append(text, type, 0);
        return text.ToString();
    }

    private static void Append(StringBuilder text, Type type, int depth)
    {
        if (depth > MaxDepth)
        {
            text.Append("...");
        }
        else if (type.IsArray)
        {
            AppendArray(text, type, depth);
        }
        else if (type.HasElementType)
        {
            text.Append(type.IsByRef ? "ref " : "");
            Append(text, type.GetElementType()!, depth + 1);
            text.Append(type.IsPointer ? "*" : "");
        }
        else if (type.IsGenericParameter)
        {
            text.Append(type.Name);
        }
        else
        {
            AppendNamed(text, type, depth);
        }
    }

    // The outermost array's brackets stand first.
    private static void AppendArray(StringBuilder text, Type type, int depth)
    {
        var brackets = new StringBuilder();
        while (type.IsArray)
        {
            brackets.Append('[').Append(',', type.GetArrayRank() - 1).Append(']');
            type = type.GetElementType()!;
        }
        Append(text, type, depth + 1);
        text.Append(brackets);
    }

    // A nested type has the type arguments of the types around it in front of its own.
    private static void AppendNamed(StringBuilder text, Type type, int depth)
    {
        if (!string.IsNullOrEmpty(type.Namespace))
        {
            text.Append(type.Namespace).Append('.');
        }
        var levels = type.DeclaringType == null ? new[] { type } : Levels(type);
        var arguments = type.GetGenericArguments();
        var used = 0;
        for (var level = 0; level < levels.Length; level++)
        {
            text.Append(level == 0 ? "" : ".");
            var name = levels[level].Name;
            var tick = name.LastIndexOf('`');
            text.Append(tick < 0 ? name : name.Substring(0, tick));
            var until = levels[level].GetGenericArguments().Length;
            if (until > used)
            {
                text.Append('<');
                for (var argument = used; argument < until; argument++)
                {
                    text.Append(argument == used ? "" : ", ");
                    Append(text, arguments[argument], depth + 1);
                }
                text.Append('>');
                used = until;
            }
        }
    }

    private static Type[] Levels(Type type)
    {
        var count = 0;
        for (Type? level = type; level != null; level = level.DeclaringType)
        {
            count++;
        }
        var levels = new Type[count];
        for (Type? level = type; level != null; level = level.DeclaringType)
        {
            levels[--count] = level;
        }
        return levels;
    }
}
