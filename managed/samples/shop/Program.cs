// The program that ./dev demo profiles: a small shop that asks a price service over HTTP and stores its
// orders in a database, which cannot be reached. All it has to do with the profiler are the marks on its own
// methods; the calls of the HTTP and SQL clients are seen without any.
using System;
using System.Data.SqlClient;
using System.Globalization;
using System.IO;
using System.Net;
using Corvane.Instrumentation;

namespace Shop;

internal static class Program
{
    private static int Main(string[] args)
    {
        Console.WriteLine($"The shop opens, on .NET {Environment.Version}.");
        using var prices = new PriceService();
        var shop = new Shop(prices.Address);
        foreach (var (name, count) in new[] { ("tea", 2), ("cake", 1) })
        {
            Console.WriteLine($"{count} x {name} is {shop.Order(name, count).ToString("0.00", CultureInfo.InvariantCulture)}.");
        }
        Console.WriteLine("The shop closes.");
        return 0;
    }
}

internal sealed class Shop(string priceService)
{
    [Trace]
    internal decimal Order(string name, int count)
    {
        var total = count * PriceOf(name);
        try
        {
            Store(name, count, total);
        }
        catch (InvalidOperationException error)
        {
            Console.WriteLine($"Not stored: {error.Message}");
        }
        return total;
    }

    [Trace]
    private decimal PriceOf(string name)
    {
        var request = (HttpWebRequest)WebRequest.Create(priceService + name);
        using var response = request.GetResponse();
        using var reader = new StreamReader(response.GetResponseStream());
        return decimal.Parse(reader.ReadToEnd(), CultureInfo.InvariantCulture);
    }

    [Trace]
    private static void Store(string name, int count, decimal total)
    {
        using var connection = new SqlConnection("Server=nowhere");
        using var command = new SqlCommand("INSERT INTO Orders VALUES (@name, @count, @total)", connection);
        command.Parameters.AddWithValue("@name", name);
        command.Parameters.AddWithValue("@count", count);
        command.Parameters.AddWithValue("@total", total);
        command.ExecuteNonQuery(); // nobody has opened the connection
    }
}
