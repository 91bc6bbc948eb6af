// Uses libraries whose methods the profiler knows, with a secret in all that it says to them, and writes to a file what
// others then see of it: the lines of its log, and the headers of a request that it answers itself.
using System;
using System.Collections.Generic;
using System.Data.SqlClient;
using System.IO;
using System.Linq;
using System.Net;
using System.Net.Sockets;
using System.Text;
using System.Threading.Tasks;
using Serilog;
using Serilog.Core;
using Serilog.Events;
using Serilog.Formatting;
using Serilog.Formatting.Compact;
using Serilog.Formatting.Display;
using Serilog.Formatting.Json;

internal static class Program
{
    private static int Main(string[] arguments)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        using var seen = new StreamWriter(arguments[0], append: false);
        Log(new MessageTemplateTextFormatter("{Message:lj}{NewLine}{Exception}"), seen);
        Log(new JsonFormatter(), seen);
        Log(new CompactJsonFormatter(), seen);
        Log(new CompactJsonFormatter(), seen, isFromContext: false);
        new log4net.Repository.Hierarchy.Logger(seen).CallAppenders(new log4net.Core.LoggingEvent("ordered"));
        Execute("SELECT * FROM Orders WHERE Card = 'hunter2'");
        foreach (var header in Request("200 OK").Concat(Request("404 Not Found")).Where(line => line.StartsWith("traceparent")))
        {
            seen.WriteLine(header);
        }
        return 42;
    }

    private static void Log(ITextFormatter formatter, TextWriter writer, bool isFromContext = true)
    {
        var configuration = new LoggerConfiguration().WriteTo.Sink(new Sink(formatter, writer));
        using var log = (isFromContext ? configuration.Enrich.FromLogContext() : configuration).CreateLogger();
        log.Information("ordered");
    }

    private static void Execute(string query)
    {
        using var connection = new SqlConnection("Server=tcp:db.example.com,1433;Database=shop;User Id=sa;Password=hunter2");
        using var command = new SqlCommand(query, connection);
        try
        {
            command.ExecuteReader();
        }
        catch (InvalidOperationException exception)
        {
            Console.WriteLine($"caught {exception.Message}");
        }
    }

    // The lines that reach the server.
    private static List<string> Request(string status)
    {
        var listener = new TcpListener(IPAddress.Loopback, 0);
        listener.Start();
        var answering = Task.Run(() => Answer(listener, status));
        var request = WebRequest.CreateHttp($"http://127.0.0.1:{((IPEndPoint)listener.LocalEndpoint).Port}/page?token=hunter2");
        request.Proxy = null;
        try
        {
            using var response = request.GetResponse();
        }
        catch (WebException exception)
        {
            Console.WriteLine($"{exception.Status}");
        }
        listener.Stop();
        return answering.Result;
    }

    private static List<string> Answer(TcpListener listener, string status)
    {
        using var client = listener.AcceptTcpClient();
        using var reader = new StreamReader(client.GetStream(), Encoding.ASCII);
        var lines = new List<string>();
        while (reader.ReadLine() is { Length: > 0 } line)
        {
            lines.Add(line);
        }
        client.GetStream().Write(Encoding.ASCII.GetBytes($"HTTP/1.1 {status}\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"));
        return lines;
    }

    private sealed class Sink(ITextFormatter formatter, TextWriter writer) : ILogEventSink
    {
        public void Emit(LogEvent logEvent) => formatter.Format(logEvent, writer);
    }
}
