namespace Corvane.Sampling;

/// <summary>A function that was seen on a stack.</summary>
public sealed class SampledFunction
{
    // What stands for a function that has no metadata, such as a method made at run time.
    internal const string NoName = "(no name)";

    internal SampledFunction(double id) => Id = id;

    /// <summary>
    /// The full name of its type; of a nested type its own name only. Null if it could not be read.
    /// </summary>
    public string? TypeName { get; private set; }

    /// <summary>Its own name, without parameters. Null if it could not be read.</summary>
    public string? MethodName { get; private set; }

    /// <summary>
    /// Both names with a dot between them, with the enclosing types where they are known. What the compiler made of an
    /// async method, an iterator, a lambda or a local function has the name of the method that it stands in.
    /// </summary>
    public string Name { get; private set; } = NoName;

    internal double Id { get; }

    // Whether its code is the platform's; null if that is not known.
    internal bool? IsPlatform { get; private set; }

    // Whoever is there does nothing but wait.
    internal bool IsWait { get; private set; }

    /// <inheritdoc/>
    public override string ToString() => Name;

    // The type with those that enclose it; null if they are not known.
    internal void Place(string? type, bool? isPlatform)
    {
        IsPlatform = isPlatform;
        Name = type == null || MethodName == null ? Name : FunctionNaming.Name(type, MethodName);
    }

    internal void Resolve(string? typeName, string? methodName)
    {
        TypeName = typeName;
        MethodName = methodName;
        IsWait = WaitFunctions.Contains(typeName, methodName);
        Name = methodName == null ? NoName : FunctionNaming.Name(typeName, methodName);
    }
}
