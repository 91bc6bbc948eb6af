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

    /// <summary>Both names with a dot between them.</summary>
    public string Name { get; private set; } = NoName;

    internal double Id { get; }

    // Whoever is there does nothing but wait.
    internal bool IsWait { get; private set; }

    /// <inheritdoc/>
    public override string ToString() => Name;

    internal void Resolve(string? typeName, string? methodName)
    {
        TypeName = typeName;
        MethodName = methodName;
        IsWait = WaitFunctions.Contains(typeName, methodName);
        Name = methodName == null ? NoName : string.IsNullOrEmpty(typeName) ? methodName : typeName + "." + methodName;
    }
}
