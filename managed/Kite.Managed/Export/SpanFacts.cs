using System;
using System.Collections.Generic;
using System.Diagnostics;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// What every format says of a span.
internal static class SpanFacts
{
    private const int MaxKnown = 1000;

    private static readonly Dictionary<string, bool> secret = new Dictionary<string, bool>(StringComparer.Ordinal);

    // One that is still open lasts until it is written.
    internal static long Ended(in SpanRecord span) => span.Ended != 0 ? span.Ended : Stopwatch.GetTimestamp();

    // Those of the span, and then those that follow from it, unless the span has one of that name.
    internal static List<KeyValuePair<string, object>> Attributes(in SpanRecord span)
    {
        var all = new List<KeyValuePair<string, object>>();
        AddOwn(all, span);
        if (span.Method != null)
        {
            AddMissing(all, "code.function.name", span.Method);
        }
        if (span.ThreadId != 0)
        {
            AddMissing(all, "thread.id", (long)span.ThreadId);
        }
        if (span.HasError)
        {
            AddMissing(all, "error.type", span.ErrorType ?? "_OTHER");
        }
        if (span.EndsAtReturn)
        {
            AddMissing(all, "corvane.ends_at_return", true);
        }
        if (span.Ended == 0)
        {
            AddMissing(all, "corvane.unfinished", true);
        }
        return all;
    }

    // Its thread may still add some to one that is open.
    private static void AddOwn(List<KeyValuePair<string, object>> all, in SpanRecord span)
    {
        try
        {
            foreach (var attribute in span.Attributes)
            {
                var isSecret = attribute.Value is string && NamesSecret(attribute.Key);
                all.Add(isSecret ? new KeyValuePair<string, object>(attribute.Key, SecretText.Mask) : attribute);
            }
        }
        catch (Exception)
        {
            // It is open, and its thread goes on with it: what was read so far is written.
        }
    }

    private static void AddMissing(List<KeyValuePair<string, object>> all, string key, object value)
    {
        foreach (var attribute in all)
        {
            if (attribute.Key == key)
            {
                return;
            }
        }
        all.Add(new KeyValuePair<string, object>(key, value));
    }

    // Whoever sets attributes keeps secrets out of them; a name that says secret is looked at here once more.
    private static bool NamesSecret(string key)
    {
        lock (secret)
        {
            if (!secret.TryGetValue(key, out var isSecret))
            {
                isSecret = SecretNames.IsSecret(key);
                if (secret.Count < MaxKnown)
                {
                    secret.Add(key, isSecret);
                }
            }
            return isSecret;
        }
    }
}
