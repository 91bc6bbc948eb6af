// Calls methods that the profiler instruments by its own table, without any mark: a database command that
// cannot be executed, web requests that are answered by a server in the program itself, and a generic method.
using System;
using System.Data.SqlClient;
using System.IO;
using System.Net;
using System.Net.Sockets;
using System.Text;
using System.Threading.Tasks;

internal static class Program
{
    private static int Main(string[] arguments)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        switch (arguments)
        {
            case ["database"]:
                ExecuteOnAClosedConnection();
                return 42;
            case ["web"]:
                RequestFromOurselves("200 OK", "hello");
                RequestFromOurselves("404 Not Found", "nothing");
                return 42;
            case ["generic"]:
                Console.WriteLine(Corvane.Instrumentation.MethodArguments.InstrumentedMethod<string>("text"));
                Console.WriteLine(Corvane.Instrumentation.MethodArguments.InstrumentedMethod<Uri>("more"));
                return 42;
            default:
                return 99;
        }
    }

    private static void ExecuteOnAClosedConnection()
    {
        using var connection = new SqlConnection("Server=nowhere");
        using var command = new SqlCommand("SELECT 1", connection);
        try
        {
            command.ExecuteReader();
            Console.WriteLine("executed");
        }
        catch (InvalidOperationException exception)
        {
            Console.WriteLine($"caught {exception.Message}");
        }
    }

    private static void RequestFromOurselves(string status, string content)
    {
        var listener = new TcpListener(IPAddress.Loopback, 0);
        listener.Start();
        var answering = Task.Run(() => Answer(listener, status, content));
        var request = WebRequest.CreateHttp($"http://127.0.0.1:{((IPEndPoint)listener.LocalEndpoint).Port}/page");
        request.Proxy = null;
        try
        {
            using var response = (HttpWebResponse)request.GetResponse();
            using var reader = new StreamReader(response.GetResponseStream());
            Console.WriteLine($"{response.StatusCode} {reader.ReadToEnd()}");
        }
        catch (WebException exception)
        {
            Console.WriteLine($"{exception.Status} {((HttpWebResponse?)exception.Response)?.StatusCode}");
        }
        Console.WriteLine(answering.Result);
        listener.Stop();
    }

    // One request, whose first line it gives.
    private static string Answer(TcpListener listener, string status, string content)
    {
        using var client = listener.AcceptTcpClient();
        using var reader = new StreamReader(client.GetStream(), Encoding.ASCII);
        var first = reader.ReadLine()!;
        while (reader.ReadLine() is { Length: > 0 })
        {
        }
        var answer = $"HTTP/1.1 {status}\r\nContent-Length: {content.Length}\r\nConnection: close\r\n\r\n{content}";
        client.GetStream().Write(Encoding.ASCII.GetBytes(answer));
        return first;
    }
}

namespace Corvane.Instrumentation
{
    internal static class MethodArguments
    {
        [System.Runtime.CompilerServices.MethodImpl(System.Runtime.CompilerServices.MethodImplOptions.NoInlining)]
        public static string InstrumentedMethod<T>(string text) => $"{text} of {typeof(T).Name}";
    }
}
