namespace Corvane.Sampling;

/// <summary>A thread of this process, as the system knows it.</summary>
public sealed class SampledThread
{
    internal SampledThread(uint id, string? name)
    {
        Id = id;
        Name = string.IsNullOrEmpty(name) ? null : name;
    }

    /// <summary>The system's id, which is not the managed one.</summary>
    public uint Id { get; }

    /// <summary>
    /// The name that the system has for it, or null. On .NET that is <c>Thread.Name</c>; the .NET Framework
    /// does not tell the system.
    /// </summary>
    public string? Name { get; }

    /// <summary>The name, or the id where there is none.</summary>
    public override string ToString() => Name ?? "thread " + Id;
}
