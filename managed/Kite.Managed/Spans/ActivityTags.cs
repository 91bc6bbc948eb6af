using System;
using System.Collections.Generic;
using Corvane.Instrumentation.Conventions;
using Corvane.Instrumentation.Privacy;

namespace Corvane.Instrumentation.Spans;

// What an activity says of itself, as far as a span may say it: what the semantic conventions name and is not
// confidential, URLs without what may be, and queries without their data. All else counts as values of the program.
internal static class ActivityTags
{
    private const int MaxText = 1_000;

    private enum Content
    {
        Value,
        Plain,
        Url,
        Name,
        Query,
    }

    private static readonly Dictionary<string, Content> known = new Dictionary<string, Content>
    {
        ["url.full"] = Content.Url,
        ["url.path"] = Content.Url,
        ["http.url"] = Content.Url,
        ["http.target"] = Content.Url,
        ["db.query.text"] = Content.Query,
        ["db.query.summary"] = Content.Query,
        ["db.statement"] = Content.Query,
        ["http.request.method"] = Content.Plain,
        ["http.response.status_code"] = Content.Plain,
        ["http.route"] = Content.Name,
        ["http.method"] = Content.Plain,
        ["http.status_code"] = Content.Plain,
        ["http.scheme"] = Content.Plain,
        ["url.scheme"] = Content.Plain,
        ["server.address"] = Content.Plain,
        ["server.port"] = Content.Plain,
        ["net.peer.name"] = Content.Plain,
        ["net.peer.port"] = Content.Plain,
        ["network.protocol.name"] = Content.Plain,
        ["network.protocol.version"] = Content.Plain,
        ["network.transport"] = Content.Plain,
        ["network.type"] = Content.Plain,
        ["error.type"] = Content.Plain,
        ["db.system"] = Content.Plain,
        ["db.system.name"] = Content.Plain,
        ["db.name"] = Content.Plain,
        ["db.namespace"] = Content.Plain,
        ["db.operation"] = Content.Plain,
        ["db.operation.name"] = Content.Plain,
        ["db.collection.name"] = Content.Plain,
        ["db.stored_procedure.name"] = Content.Plain,
        ["db.response.status_code"] = Content.Plain,
        ["rpc.system"] = Content.Plain,
        ["rpc.service"] = Content.Plain,
        ["rpc.method"] = Content.Plain,
        ["messaging.system"] = Content.Plain,
        ["messaging.operation"] = Content.Plain,
        ["messaging.operation.name"] = Content.Plain,
        ["messaging.operation.type"] = Content.Plain,
        ["messaging.destination.name"] = Content.Plain,
    };

    // Null if nothing of it may be recorded. The system is the database that the activity says it is about.
    internal static object? Redact(string source, string? system, string key, object? value, RecordedValues values)
    {
        var plain = Plain(value);
        var content = known.TryGetValue(key, out var found) ? found : Content.Value;
        if (plain is not string text)
        {
            return content != Content.Value || (values != RecordedValues.None && !SecretNames.IsSecret(key)) ? plain : null;
        }
        switch (content)
        {
            case Content.Url:
                return UrlText.Of(text);
            case Content.Name:
                return NameText.Of(text);
            case Content.Query when DatabaseSystem.DialectOf(source, system) is { } dialect:
                return SqlText.Of(text, dialect).Text;
            case Content.Plain:
                return SecretText.Redact(text, MaxText);
            default:
                return values == RecordedValues.All && !SecretNames.IsSecret(key) ? SecretText.OfValue(text, MaxText) : null;
        }
    }

    // Of the kinds that an attribute can have. The text of any other one would be the program's code.
    private static object? Plain(object? value) => value switch
    {
        string or bool or long or double => value,
        int number => (long)number,
        uint number => (long)number,
        short number => (long)number,
        ushort number => (long)number,
        byte number => (long)number,
        sbyte number => (long)number,
        float number => (double)number,
        _ => null,
    };
}
