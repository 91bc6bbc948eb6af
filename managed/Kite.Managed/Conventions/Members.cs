using System;
using System.Diagnostics.CodeAnalysis;
using System.Reflection;

namespace Corvane.Instrumentation.Conventions;

// Members of the program's types, by name: null where there is no such one, as in a trimmed program.
[UnconditionalSuppressMessage("Trimming", "IL2026", Justification = Reason)]
[UnconditionalSuppressMessage("Trimming", "IL2055", Justification = Reason)]
[UnconditionalSuppressMessage("Trimming", "IL2067", Justification = Reason)]
[UnconditionalSuppressMessage("Trimming", "IL2070", Justification = Reason)]
[UnconditionalSuppressMessage("Trimming", "IL2072", Justification = Reason)]
[UnconditionalSuppressMessage("Trimming", "IL2075", Justification = Reason)]
[UnconditionalSuppressMessage("AOT", "IL3050", Justification = Reason)]
internal static class Members
{
    private const string Reason = "Whoever asks does without what is not there.";
    private const BindingFlags Own = BindingFlags.Instance | BindingFlags.Public | BindingFlags.NonPublic | BindingFlags.DeclaredOnly;

    // The most derived one: a type may hide the property of its base.
    internal static MethodInfo? Getter(Type type, string name)
    {
        for (var owner = type; owner != null; owner = owner.BaseType!)
        {
            var property = owner.GetProperty(name, Own);
            if (property != null)
            {
                return property.GetIndexParameters().Length == 0 ? property.GetGetMethod(nonPublic: true) : null;
            }
        }
        return null;
    }

    internal static FieldInfo? Field(Type type, string name)
    {
        FieldInfo? field = null;
        for (var owner = type; owner != null && field == null; owner = owner.BaseType!)
        {
            field = owner.GetField(name, Own);
        }
        return field;
    }

    internal static MethodInfo? Method(Type type, string name, Predicate<ParameterInfo[]> takes) =>
        Array.Find(type.GetMethods(), method => method.Name == name && takes(method.GetParameters()));

    internal static ConstructorInfo? Constructor(Type type, Predicate<ParameterInfo[]> takes) =>
        Array.Find(type.GetConstructors(Own), constructor => takes(constructor.GetParameters()));

    internal static Type? Beside(Type type, string name) => type.Assembly.GetType(name);

    internal static object New(Type type) => Activator.CreateInstance(type)!;

    // Of a generic type, with these types in the places of its parameters.
    internal static object New(Type type, Type first, Type second) => Activator.CreateInstance(type.MakeGenericType(first, second))!;
}
