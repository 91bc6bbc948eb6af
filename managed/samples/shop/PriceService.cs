// The other side of the shop's HTTP calls: answers with a price, in the same process.
using System;
using System.IO;
using System.Net;
using System.Net.Sockets;
using System.Threading;

namespace Shop;

internal sealed class PriceService : IDisposable
{
    private readonly TcpListener listener = new(IPAddress.Loopback, 0);

    internal PriceService()
    {
        listener.Start();
        new Thread(Serve) { IsBackground = true }.Start();
    }

    internal string Address => $"http://127.0.0.1:{((IPEndPoint)listener.LocalEndpoint).Port}/";

    public void Dispose() => listener.Stop();

    private void Serve()
    {
        try
        {
            while (true)
            {
                using var client = listener.AcceptTcpClient();
                Answer(client.GetStream());
            }
        }
        catch (SocketException)
        {
            // the listener was stopped
        }
    }

    private static void Answer(Stream stream)
    {
        using var reader = new StreamReader(stream);
        var request = reader.ReadLine() ?? "";
        while (!string.IsNullOrEmpty(reader.ReadLine()))
        {
        }
        var price = request.Contains("/tea ") ? "2.50" : "3.20";
        using var writer = new StreamWriter(stream);
        writer.Write($"HTTP/1.1 200 OK\r\nContent-Length: {price.Length}\r\nConnection: close\r\n\r\n{price}");
    }
}
