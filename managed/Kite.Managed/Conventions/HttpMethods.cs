using System;

namespace Corvane.Instrumentation.Conventions;

// The methods of HTTP. Any other one might be anything, and is not told.
internal static class HttpMethods
{
    private const string Other = "_OTHER";

    private static readonly string[] known =
        ["GET", "POST", "PUT", "DELETE", "HEAD", "OPTIONS", "PATCH", "CONNECT", "TRACE", "QUERY"];

    internal static string? Known(string? method) => method == null || Array.IndexOf(known, method) >= 0 ? method : Other;

    // As it is part of the name of a span.
    internal static string Name(string? known) => known is null or Other ? "HTTP" : known;
}
