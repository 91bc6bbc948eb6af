using System;
using System.Globalization;

namespace Corvane.Instrumentation.Conventions;

// The server that a connection names as its source, in the forms of the usual databases:
//     tcp:host\instance,1433    host:port    tcp://host:port    (DESCRIPTION=(ADDRESS=(HOST=host)(PORT=port))...)
// What is none of these may be anything, and is not told.
internal readonly struct DataSource
{
    private const int MaxLength = 1_024;

    private static readonly string[] protocols = ["tcp:", "np:", "lpc:", "admin:"];

    private DataSource(string? server, int? port = null, string? instance = null)
    {
        Server = server;
        Port = port;
        Instance = instance;
    }

    internal string? Server { get; }

    internal int? Port { get; }

    internal string? Instance { get; }

    internal static DataSource Of(string source)
    {
        source = source.Trim();
        if (source.Length > MaxLength || source.IndexOf('@') >= 0)
        {
            return default;
        }
        if (source.StartsWith("(", StringComparison.Ordinal) && source.IndexOf('=') >= 0)
        {
            return Named(Described(source, "HOST"), Described(source, "PORT"));
        }
        foreach (var protocol in protocols)
        {
            if (source.StartsWith(protocol, StringComparison.OrdinalIgnoreCase))
            {
                source = source.Substring(protocol.Length);
                break;
            }
        }
        return Plain(source.TrimStart('\\', '/'));
    }

    private static DataSource Plain(string source)
    {
        var path = source.IndexOf('/');
        source = path < 0 ? source : source.Substring(0, path);
        var port = source.LastIndexOf(',');
        port = port < 0 && source.IndexOf(':') == source.LastIndexOf(':') ? source.IndexOf(':') : port;
        var server = port < 0 ? source : source.Substring(0, port);
        var instance = server.IndexOf('\\');
        return Named(
            instance < 0 ? server : server.Substring(0, instance),
            port < 0 ? "" : source.Substring(port + 1).Trim(),
            instance < 0 ? null : server.Substring(instance + 1));
    }

    // Of several addresses the first one.
    private static string Described(string source, string name)
    {
        var at = source.IndexOf("(" + name + "=", StringComparison.OrdinalIgnoreCase);
        var from = at + name.Length + 2;
        var end = at < 0 ? -1 : source.IndexOf(')', from);
        return end < 0 ? "" : source.Substring(from, end - from).Trim();
    }

    private static DataSource Named(string server, string port, string? instance = null)
    {
        if (!IsName(server) || (instance != null && !IsName(instance)))
        {
            return default;
        }
        if (!int.TryParse(port, NumberStyles.None, CultureInfo.InvariantCulture, out var number))
        {
            return port.Length == 0 ? new DataSource(server, null, instance) : default;
        }
        return new DataSource(server, number, instance);
    }

    private static bool IsName(string text)
    {
        foreach (var character in text)
        {
            if (!char.IsLetterOrDigit(character) && "-._()[]:$#".IndexOf(character) < 0)
            {
                return false;
            }
        }
        return text.Length is > 0 and <= 255;
    }
}
