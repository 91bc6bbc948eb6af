// Stands in for a collector of OTLP: answers each request as the test says, and keeps what was sent.
using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Net;
using System.Net.Sockets;
using System.Text;
using System.Threading;
using Xunit;

namespace Kite.Managed.Tests.Export;

internal sealed class Collector : IDisposable
{
    private readonly TcpListener listener = new(IPAddress.Loopback, 0);
    private readonly Func<int, string?> answer;
    private readonly ConcurrentBag<TcpClient> clients = [];
    private int requests;

    // The answer to the request of a number, from 1 on; null for none at all.
    internal Collector(Func<int, string?> answer)
    {
        this.answer = answer;
        listener.Start();
        new Thread(Listen) { IsBackground = true }.Start();
    }

    internal Collector(string? answer = Accepted) : this(_ => answer)
    {
    }

    internal const string Accepted = "200 OK";

    internal ConcurrentQueue<Request> Requests { get; } = [];

    internal string Address => $"http://127.0.0.1:{((IPEndPoint)listener.LocalEndpoint).Port}";

    internal void Wait(int requests) =>
        Assert.True(SpinWait.SpinUntil(() => Requests.Count >= requests, TimeSpan.FromSeconds(60)), $"{Requests.Count} requests");

    // What was sent, in one list, by the independent reader.
    internal List<System.Text.Json.JsonElement> Spans()
    {
        using var folder = new TemporaryFolder();
        return Requests.SelectMany(request =>
        {
            File.WriteAllBytes(folder["request"], request.Body);
            return Export.Spans.In(Export.Spans.Read(folder["request"], request.Headers["content-type"] == "application/json"));
        }).ToList();
    }

    public void Dispose()
    {
        listener.Stop();
        foreach (var client in clients)
        {
            client.Dispose();
        }
    }

    private void Listen()
    {
        try
        {
            while (true)
            {
                var client = listener.AcceptTcpClient();
                clients.Add(client);
                new Thread(() => Serve(client)) { IsBackground = true }.Start();
            }
        }
        catch (Exception exception) when (exception is SocketException or InvalidOperationException)
        {
        }
    }

    private void Serve(TcpClient client)
    {
        try
        {
            var stream = client.GetStream();
            while (Read(stream) is { } request)
            {
                Requests.Enqueue(request);
                var text = answer(Interlocked.Increment(ref requests));
                if (text == null)
                {
                    Thread.Sleep(Timeout.Infinite);
                }
                var parts = text!.Split("\n\n", 2);
                var body = parts.Length == 2 ? parts[1] : "";
                var bytes = Encoding.Latin1.GetBytes(
                    text.StartsWith("raw:", StringComparison.Ordinal)
                        ? text[4..]
                        : $"HTTP/1.1 {parts[0].Replace("\n", "\r\n")}\r\nContent-Length: {body.Length}\r\n\r\n{body}");
                stream.Write(bytes);
            }
        }
        catch (Exception exception) when (exception is IOException or ObjectDisposedException or InvalidOperationException)
        {
        }
    }

    private static Request? Read(Stream stream)
    {
        var head = new StringBuilder();
        while (!head.ToString().EndsWith("\r\n\r\n", StringComparison.Ordinal))
        {
            var next = stream.ReadByte();
            if (next < 0)
            {
                return null;
            }
            head.Append((char)next);
        }
        var lines = head.ToString().Split("\r\n", StringSplitOptions.RemoveEmptyEntries);
        var headers = lines.Skip(1).Select(line => line.Split(": ", 2))
            .ToDictionary(header => header[0].ToLowerInvariant(), header => header[1]);
        var body = new byte[int.Parse(headers.GetValueOrDefault("content-length", "0"))];
        stream.ReadExactly(body);
        return new Request(lines[0], headers, body, Stopwatch.GetTimestamp());
    }

    internal sealed record Request(string Line, Dictionary<string, string> Headers, byte[] Body, long Time);
}
