// A program with an OpenTelemetry of its own, which exports to memory: the activities of calls and its own ones. At its
// end it writes them into a file: a line each, in the order of their ends.
using System;
using System.Collections.Concurrent;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using OpenTelemetry;
using OpenTelemetry.Trace;

internal static class Telemetry
{
    private static readonly ActivitySource shop = new ActivitySource("Shop");

    // Main waits before it is over, or the activity may end after what Main does then.
    private static readonly TimeSpan delay = TimeSpan.FromMilliseconds(500);

    private static async Task<int> Main(string[] arguments)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        var memory = new Memory();
        using (Sdk.CreateTracerProviderBuilder()
            .AddSource("Corvane.Instrumentation", shop.Name)
            .AddProcessor(new SimpleActivityExportProcessor(memory))
            .Build())
        {
            using (var order = shop.StartActivity("order")!)
            {
                order.DisplayName = "order of tea";
                Console.WriteLine(await Serve(3));
            }
            try
            {
                Fail();
            }
            catch (InvalidOperationException exception)
            {
                Console.WriteLine(exception.Message);
            }
        }
        File.WriteAllLines(arguments[0], memory.Lines());
        Console.WriteLine(Activity.Current == null);
        return 42;
    }

    [Trace]
    private static async Task<int> Serve(int customer)
    {
        await Task.Delay(delay);
        using (shop.StartActivity("price", ActivityKind.Client))
        {
            return Price(customer);
        }
    }

    [Trace]
    private static int Price(int customer) => customer * 14;

    [Trace]
    private static void Fail() => Throw();

    private static void Throw() => throw new InvalidOperationException("on purpose");

    private sealed class Memory : BaseExporter<Activity>
    {
        private readonly ConcurrentQueue<Activity> exported = new ConcurrentQueue<Activity>();

        public override ExportResult Export(in Batch<Activity> batch)
        {
            foreach (var activity in batch)
            {
                exported.Enqueue(activity);
            }
            return ExportResult.Success;
        }

        internal string[] Lines()
        {
            var names = exported.ToDictionary(activity => activity.SpanId, activity => activity.OperationName);
            return [.. exported.Select(activity =>
                $"{activity.OperationName} in {(names.TryGetValue(activity.ParentSpanId, out var parent) ? parent : "none")}, " +
                $"{activity.Kind}, {activity.Status}, {activity.GetTagItem("error.type") ?? "no error"}" +
                $"{(activity.OperationName.EndsWith("Serve") && activity.Duration >= delay * 0.75 ? ", with its delay" : "")}")];
        }
    }
}

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute;
}
