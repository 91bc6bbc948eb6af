// The program that shows which methods are chosen: it calls methods of the target table, real ones and
// stand-ins, and prints what came of it. Its argument says which.
using System;
using System.Collections.Generic;
using System.Data;
using System.Data.SqlClient;
using System.IO;
using System.Net;
using System.Net.Sockets;
using System.Text;
using System.Threading;
using System.Threading.Tasks;

internal static class Program
{
    private static int Main(string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        switch (args[0])
        {
            case "database":
                Database();
                break;
            case "web":
                Web();
                break;
            case "logging":
                Logging();
                break;
            case "shapes":
                Shapes();
                break;
            case "transparent":
                new Corvane.Instrumentation.MultipleExitPoints().SomeVoidMethod();
                Console.WriteLine(Corvane.BVT.Activator.Activate());
                break;
            case "hot":
                Hot();
                break;
        }
        return 3;
    }

    // Every command is refused for want of a connection, behind the watched method's entry.
    private static void Database()
    {
        using var connection = new SqlConnection("Server=nowhere.invalid");
        using var command = new SqlCommand("SELECT 1", connection);
        Refused(() => command.ExecuteReader());
        Refused(() => command.ExecuteReader());
        Refused(() => command.ExecuteReader(CommandBehavior.SingleRow));
        Refused(() => command.ExecuteScalar());
        Refused(() => command.ExecuteNonQuery());
        Refused(() => command.ExecuteXmlReader());
        Refused(() => command.BeginExecuteReader(null, "state", CommandBehavior.Default));
        Refused(() => command.BeginExecuteNonQuery(null, "state"));
        Refused(() => command.BeginExecuteXmlReader(null, "state"));
        Refused(() => command.BeginExecuteReader());
    }

    private static void Refused(Func<object> call)
    {
        try
        {
            Console.WriteLine($"not refused: {call()}");
        }
        catch (InvalidOperationException error)
        {
            Console.WriteLine($"{error.GetType()}: {error.Message}");
        }
    }

    private static void Web()
    {
        var listener = new TcpListener(IPAddress.Loopback, 0);
        listener.Start();
        int port = ((IPEndPoint)listener.LocalEndpoint).Port;
        var server = new Thread(() => Serve(listener, 3));
        server.Start();

        using (WebResponse response = Request(port).GetResponse())
        {
            Console.WriteLine($"sync {Text(response)}");
        }
        HttpWebRequest request = Request(port);
        using (WebResponse response = request.EndGetResponse(request.BeginGetResponse(null, null)))
        {
            Console.WriteLine($"async {Text(response)}");
        }
        request = Request(port);
        request.Method = "POST";
        request.ContentLength = 4;
        using (Stream stream = request.GetRequestStream(out TransportContext? _))
        {
            stream.Write(Encoding.ASCII.GetBytes("data"));
        }
        using (WebResponse response = request.GetResponse())
        {
            Console.WriteLine($"posted {Text(response)}");
        }
        server.Join();
        listener.Stop();
    }

    private static HttpWebRequest Request(int port)
    {
        var request = (HttpWebRequest)WebRequest.Create($"http://127.0.0.1:{port}/");
        request.KeepAlive = false;
        request.Proxy = null;
        request.ServicePoint.Expect100Continue = false;
        return request;
    }

    private static string Text(WebResponse response) =>
        new StreamReader(response.GetResponseStream()).ReadToEnd();

    // Answers with the first line of each request.
    private static void Serve(TcpListener listener, int requests)
    {
        for (int i = 0; i < requests; ++i)
        {
            using TcpClient client = listener.AcceptTcpClient();
            using NetworkStream stream = client.GetStream();
            var reader = new StreamReader(stream, Encoding.ASCII);
            string? first = reader.ReadLine();
            int length = 0;
            for (string? line = first; !string.IsNullOrEmpty(line); line = reader.ReadLine())
            {
                if (line.StartsWith("Content-Length: ", StringComparison.OrdinalIgnoreCase))
                {
                    length = int.Parse(line.AsSpan(16));
                }
            }
            while (length-- > 0)
            {
                reader.Read();
            }
            string answer = $"HTTP/1.1 200 OK\r\nContent-Length: {first!.Length}\r\nConnection: close\r\n\r\n{first}";
            stream.Write(Encoding.ASCII.GetBytes(answer));
        }
    }

    private static void Logging()
    {
        Console.WriteLine(Serilog.Context.LogContext.Enrich());
        Console.WriteLine(new Serilog.Formatting.Compact.CompactJsonFormatter().Format("text"));
        Console.WriteLine(Serilog.Sinks.Murrel.LogEventConverter.CreateMurrelEvent("text"));
        Console.WriteLine(new Serilog.Formatting.Display.MessageTemplateTextFormatter("template").Template);
        Console.WriteLine(log4net.Core.LoggerManager.GetLogger("logger"));
        Console.WriteLine(new log4net.Layout.SimpleLayout().Format("layout"));
        Console.WriteLine(new log4net.Layout.SimpleLayout().format("layout"));
        Console.WriteLine(new log4net.Repository.Hierarchy.Logger().CallAppenders(new List<string> { "one" }));
        Console.WriteLine(new log4net.Layout.Pattern.PropertyPatternConverter().Convert(5));
    }

    private static void Shapes()
    {
        Console.WriteLine(global::Shapes.Static.Main(1));
        Console.WriteLine(global::Shapes.Static.main(1));
        Console.WriteLine(new global::Shapes.Instance().Main(1));
        Console.WriteLine(global::Shapes.Instance.Nested.Main());
        var marked = new global::Shapes.Marked();
        Console.WriteLine(marked.Plain(1));
        Console.WriteLine(marked.Generic("generic"));
        Console.WriteLine(marked.Unmarked(1));
        Console.WriteLine(new global::Shapes.Generic<int>().Get(8));
        Console.WriteLine(Corvane.Instrumentation.MethodArguments.InstrumentedMethod("generic target"));
        Console.WriteLine(Corvane.Instrumentation.MethodArguments.InstrumentedMethod(9));
    }

    // Often enough for the runtime to compile the method anew, with time for it.
    private static void Hot()
    {
        var target = new Corvane.Instrumentation.MultipleExitPoints();
        int sum = 0;
        for (int round = 0; round < 20; ++round)
        {
            for (int i = 0; i < 50; ++i)
            {
                sum += target.InstrumentedMethod(i);
            }
            Thread.Sleep(100);
        }
        Console.WriteLine($"sum {sum}");
    }
}
