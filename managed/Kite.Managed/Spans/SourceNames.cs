using System;
using System.Linq;

namespace Corvane.Instrumentation.Spans;

// The activity sources of the platform and of well-known libraries, and those that CORVANE_SOURCES adds. A name may
// end in "*".
internal sealed class SourceNames
{
    internal const string Variable = "CORVANE_SOURCES";

    private static readonly string[] usual =
        ["Microsoft.AspNetCore", "System.Net.Http", "Npgsql", "MySqlConnector", "Microsoft.Data.SqlClient"];

    private readonly string[] names;

    internal SourceNames(string? added) =>
        names = usual.Concat((added ?? "").Split(',', ';').Select(name => name.Trim()).Where(name => name.Length > 0)).ToArray();

    internal static SourceNames FromEnvironment() => new SourceNames(Environment.GetEnvironmentVariable(Variable));

    // Calls have spans of their own.
    internal bool Contain(string source) => source != Span.CallScope && Array.Exists(names, name => Matches(name, source));

    private static bool Matches(string name, string source) =>
        name.EndsWith("*", StringComparison.Ordinal)
            ? source.StartsWith(name.Substring(0, name.Length - 1), StringComparison.Ordinal)
            : source == name;
}
