// What the trimmer reads, for the build whose platform has none of it.
#if !NET
namespace System.Diagnostics.CodeAnalysis;

[AttributeUsage(AttributeTargets.All, Inherited = false, AllowMultiple = true)]
internal sealed class UnconditionalSuppressMessageAttribute : Attribute
{
    public UnconditionalSuppressMessageAttribute(string category, string checkId)
    {
        Category = category;
        CheckId = checkId;
    }

    internal string Category { get; }

    internal string CheckId { get; }

    public string? Justification { get; set; }
}
#endif
