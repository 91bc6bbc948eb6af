// That the public members of the library are those of the listing, no more and no less, in both of its builds: who builds
// on it relies on them. With CORVANE_REBASE=1 the listing is written again.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Runtime.CompilerServices;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests;

public class PublicApiTests
{
    private const BindingFlags Declared =
        BindingFlags.Public | BindingFlags.NonPublic | BindingFlags.Static | BindingFlags.Instance | BindingFlags.DeclaredOnly;

    private static readonly NullabilityInfoContext nullability = new();

    [Fact]
    public void IsTheOneThatIsListed()
    {
        var api = Listing(typeof(span).Assembly);
        if (Environment.GetEnvironmentVariable("CORVANE_REBASE") == "1")
        {
            File.WriteAllLines(Path.Combine(Path.GetDirectoryName(ThisFile())!, "..", "Kite.Managed", "PublicApi.txt"), api);
            return;
        }
        using var listed = new StreamReader(typeof(PublicApiTests).Assembly.GetManifestResourceStream("PublicApi.txt")!);
        Assert.Equal(listed.ReadToEnd().TrimEnd('\n').Split('\n'), api);
    }

    // Of each kind of member.
    public abstract class Sample<T>(T value) : IDisposable
        where T : class, new()
    {
        public const int Number = 3;
        public static readonly string? Text;
        protected int field;

        public event Action? Happened;

        public T Value { get; protected set; } = value;

        public abstract List<string?>? Find(ref int number, out T value, in double price, string text = "x", params object?[] rest);

        public void Dispose()
        {
            Happened?.Invoke();
            Secret();
        }

        protected internal virtual unsafe TOther Pick<TOther>(TOther other, byte* address) => other;

        internal void Hidden()
        {
        }

        private protected void AlsoHidden()
        {
        }

        private void Secret() => field++;

        public enum Kind : byte
        {
            None,
            Some = 3,
        }
    }

    public sealed class Sealed : EventArgs
    {
        public override string ToString() => "";

        internal struct Hidden
        {
        }
    }

    public readonly struct Small
    {
        public static string Word => "";
    }

    public delegate string? Asks(Sealed? who, int[] what);

    [Fact]
    public void IsListedWithAllThatItsUsersSee()
    {
        const string Name = "Kite.Managed.Tests.PublicApiTests.";
        Assert.Equal(
            [
                $"abstract class {Name}Sample<T> : System.IDisposable where T : class, new()",
                "  abstract System.Collections.Generic.List<string?>? Find(ref int number, out T value, in double price, " +
                "string text = \"x\", params object?[] rest)",
                "  const int Number = 3",
                "  event System.Action? Happened",
                "  protected int field",
                "  protected Sample(T value)",
                "  protected virtual TOther Pick<TOther>(TOther other, byte* address)",
                "  static readonly string? Text",
                "  T Value { get; protected set; }",
                "  void Dispose()",
            ],
            Describe(typeof(Sample<>)));
        Assert.Equal(
            [$"readonly struct {Name}Small", "  static string Word { get; }"], Describe(typeof(Small)));
        Assert.Equal(
            [$"enum {Name}Sample<T>.Kind : byte", "  None = 0", "  Some = 3"], Describe(typeof(Sample<>.Kind)));
        Assert.Equal(
            [$"sealed class {Name}Sealed : System.EventArgs", "  override string ToString()", "  Sealed()"],
            Describe(typeof(Sealed)));
        Assert.Equal([$"delegate string? {Name}Asks({Name}Sealed? who, int[] what)"], Describe(typeof(Asks)));
    }

    private static string ThisFile([CallerFilePath] string path = "") => path;

    private static string[] Listing(Assembly assembly) =>
        [.. assembly.GetExportedTypes().OrderBy(type => type.FullName, StringComparer.Ordinal).SelectMany(Describe)];

    private static IEnumerable<string> Describe(Type type)
    {
        if (typeof(Delegate).IsAssignableFrom(type))
        {
            var invoke = type.GetMethod("Invoke")!;
            return [$"delegate {Result(invoke)} {Name(type)}({Parameters(invoke)})"];
        }
        var members = type.IsEnum
            ? Enum.GetValuesAsUnderlyingType(type).Cast<object>().Select(value => $"{Enum.GetName(type, value)} = {value}")
            : type.GetMembers(Declared).Select(Describe).OfType<string>().Order(StringComparer.OrdinalIgnoreCase);
        return members.Select(member => "  " + member).Prepend(Head(type));
    }

    private static string Head(Type type)
    {
        if (type.IsEnum)
        {
            return $"enum {Name(type)} : {Name(Enum.GetUnderlyingType(type))}";
        }
        var kind = type.IsInterface ? "interface"
            : type.IsValueType ? (IsReadOnly(type) ? "readonly struct" : "struct")
            : type is { IsAbstract: true, IsSealed: true } ? "static class"
            : type.IsAbstract ? "abstract class"
            : type.IsSealed ? "sealed class"
            : "class";
        var bases = type.GetInterfaces().Select(Name).Order(StringComparer.Ordinal).ToList();
        if (type.BaseType != null && type.BaseType != typeof(object) && type.BaseType != typeof(ValueType))
        {
            bases.Insert(0, Name(type.BaseType));
        }
        return $"{kind} {Name(type)}{(bases.Count == 0 ? "" : " : ")}{string.Join(", ", bases)}{Constraints(type.GetGenericArguments())}";
    }

    // Null for what no user sees.
    private static string? Describe(MemberInfo member) => member switch
    {
        MethodInfo { IsSpecialName: true } => null,
        MethodInfo method when IsSeen(method) =>
            $"{Modifiers(method)}{Result(method)} {method.Name}{TypeParameters(method)}({Parameters(method)})" +
            Constraints(method.GetGenericArguments()),
        ConstructorInfo { IsStatic: false } constructor when IsSeen(constructor) =>
            $"{Modifiers(constructor)}{Simple(constructor.DeclaringType!.Name)}({Parameters(constructor)})",
        PropertyInfo property when property.GetAccessors(nonPublic: true).Where(IsSeen).ToList() is { Count: > 0 } accessors =>
            $"{Modifiers(accessors.Find(accessor => accessor.IsPublic) ?? accessors[0])}{Annotated(nullability.Create(property))} " +
            $"{property.Name} {{ {string.Join(" ", accessors.Select(accessor => Accessor(accessor, accessors)))} }}",
        EventInfo happening when IsSeen(happening.AddMethod!) =>
            $"{Modifiers(happening.AddMethod!)}event {Annotated(nullability.Create(happening))} {happening.Name}",
        FieldInfo { IsSpecialName: false } field when field.IsPublic || field.IsFamily || field.IsFamilyOrAssembly =>
            (field.IsPublic ? "" : "protected ") +
            (field.IsLiteral ? "const " : (field.IsStatic ? "static " : "") + (field.IsInitOnly ? "readonly " : "")) +
            $"{Annotated(nullability.Create(field))} {field.Name}" +
            (field.IsLiteral ? $" = {Literal(field.GetRawConstantValue())}" : ""),
        _ => null,
    };

    private static string Accessor(MethodInfo accessor, List<MethodInfo> all) =>
        (accessor.IsPublic || all.TrueForAll(one => !one.IsPublic) ? "" : "protected ") + accessor.Name[..3] + ";";

    private static bool IsSeen(MethodBase method) => method.IsPublic || method.IsFamily || method.IsFamilyOrAssembly;

    private static string Modifiers(MethodBase method)
    {
        var isOverride = method is MethodInfo info && info.GetBaseDefinition() != info;
        return (method.IsPublic ? "" : "protected ") + (method.IsStatic ? "static " : "") +
               (isOverride ? "override " : method.IsAbstract ? "abstract " : method is { IsVirtual: true, IsFinal: false } ? "virtual " : "");
    }

    private static string Result(MethodInfo method) => Annotated(nullability.Create(method.ReturnParameter));

    private static string Parameters(MethodBase method) => string.Join(", ", method.GetParameters().Select(parameter =>
        (parameter.IsDefined(typeof(ParamArrayAttribute)) ? "params "
            : !parameter.ParameterType.IsByRef ? ""
            : parameter.IsOut ? "out "
            : parameter.IsIn ? "in "
            : "ref ") +
        $"{Annotated(nullability.Create(parameter))} {parameter.Name}" +
        (parameter.HasDefaultValue ? $" = {Literal(parameter.RawDefaultValue)}" : "")));

    private static string TypeParameters(MethodInfo method) =>
        method.IsGenericMethod ? $"<{string.Join(", ", method.GetGenericArguments().Select(Name))}>" : "";

    private static string Constraints(Type[] parameters) => string.Concat(
        parameters.Where(parameter => parameter.IsGenericParameter).Select(parameter =>
        {
            var attributes = parameter.GenericParameterAttributes;
            var all = parameter.GetGenericParameterConstraints().Where(one => one != typeof(ValueType)).Select(Name).ToList();
            all.InsertRange(0, attributes.HasFlag(GenericParameterAttributes.ReferenceTypeConstraint) ? ["class"]
                : attributes.HasFlag(GenericParameterAttributes.NotNullableValueTypeConstraint) ? ["struct"]
                : []);
            if (attributes.HasFlag(GenericParameterAttributes.DefaultConstructorConstraint) && !all.Contains("struct"))
            {
                all.Add("new()");
            }
            return all.Count == 0 ? "" : $" where {parameter.Name} : {string.Join(", ", all)}";
        }));

    private static string Literal(object? value) => value switch
    {
        null => "null",
        string text => $"\"{text}\"",
        bool truth => truth ? "true" : "false",
        _ => $"{value}",
    };

    // A type where it is used, with what may be null in it.
    private static string Annotated(NullabilityInfo used)
    {
        var type = used.Type.IsByRef ? used.Type.GetElementType()! : used.Type;
        var mark = !type.IsValueType && !type.IsGenericParameter && used.ReadState == NullabilityState.Nullable ? "?" : "";
        if (type.IsArray)
        {
            return $"{(used.ElementType == null ? Name(type.GetElementType()!) : Annotated(used.ElementType))}[]{mark}";
        }
        if (type.IsGenericType && used.GenericTypeArguments.Length > 0 && Nullable.GetUnderlyingType(type) == null)
        {
            return $"{Simple(type.GetGenericTypeDefinition().FullName!)}<{string.Join(", ", used.GenericTypeArguments.Select(Annotated))}>{mark}";
        }
        return Name(type) + mark;
    }

    private static string Name(Type type)
    {
        if (Nullable.GetUnderlyingType(type) is { } underlying)
        {
            return Name(underlying) + "?";
        }
        if (type.IsArray)
        {
            return Name(type.GetElementType()!) + "[]";
        }
        if (type.IsPointer)
        {
            return Name(type.GetElementType()!) + "*";
        }
        if (type.IsGenericParameter)
        {
            return type.Name;
        }
        if (keywords.TryGetValue(type, out var keyword))
        {
            return keyword;
        }
        var outer = type.DeclaringType;
        var own = (outer == null ? $"{type.Namespace}." : $"{Name(outer)}.").TrimStart('.') + Simple(type.Name);
        var arguments = type.GetGenericArguments().Skip(outer?.GetGenericArguments().Length ?? 0).Select(Name).ToList();
        return arguments.Count == 0 ? own : $"{own}<{string.Join(", ", arguments)}>";
    }

    private static string Simple(string name) => name.Split('`')[0];

    // A library for a platform without the attribute has one of its own.
    private static bool IsReadOnly(Type type) =>
        type.CustomAttributes.Any(attribute => attribute.AttributeType.FullName == typeof(IsReadOnlyAttribute).FullName);

    private static readonly Dictionary<Type, string> keywords = new()
    {
        [typeof(void)] = "void", [typeof(object)] = "object", [typeof(string)] = "string", [typeof(bool)] = "bool",
        [typeof(byte)] = "byte", [typeof(int)] = "int", [typeof(uint)] = "uint", [typeof(long)] = "long",
        [typeof(ulong)] = "ulong", [typeof(double)] = "double",
    };
}
