// The program that the demonstration runs: a little of what programs do, nothing of the profiler's.
using System;
using System.Linq;
using System.Threading.Tasks;

Console.WriteLine($"Hello from .NET {Environment.Version}.");

string[] orders = ["tea", "coffee", "tea", "cake"];
foreach (var order in orders.GroupBy(name => name).OrderByDescending(group => group.Count()))
{
    Console.WriteLine($"{order.Count()} x {order.Key}");
}

try
{
    await Serve("soup");
}
catch (InvalidOperationException error)
{
    Console.WriteLine($"Sorry: {error.Message}");
}

static async Task Serve(string dish)
{
    await Task.Yield();
    throw new InvalidOperationException($"we are out of {dish}.");
}
