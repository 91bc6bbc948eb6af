// Takes the time of calls of an instrumented method, of the same method without instrumentation, and of one
// that does by hand what the injected code does.
//
//   call_methods OUTPUT CALLS REPEATS FILLING [listen|threads]
//
// Every time is that of CALLS calls in a row, and is taken REPEATS times, in turns. FILLING calls of an
// instrumented method come before. With "listen" somebody listens to activities and samples all. OUTPUT gets a line
// for each number of parameters: the number, then the median nanoseconds of one call, plain, instrumented and by
// hand, then the bytes that an instrumented call takes. With "threads" a last line follows: how many times as fast
// 16 threads make as many calls as one, and how many times as fast they only compute, for a machine may have other work.
using System;
using System.Diagnostics;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Runtime;
using System.Runtime.CompilerServices;
using System.Threading;
using CallMethods;
using Corvane.Instrumentation;

var calls = int.Parse(args[1], CultureInfo.InvariantCulture);
var repeats = int.Parse(args[2], CultureInfo.InvariantCulture);
var filling = int.Parse(args[3], CultureInfo.InvariantCulture);
if (args.Contains("listen"))
{
    ActivitySource.AddActivityListener(new ActivityListener
    {
        ShouldListenTo = source => source.Name == "Corvane.Instrumentation",
        Sample = (ref ActivityCreationOptions<ActivityContext> _) => ActivitySamplingResult.AllDataAndRecorded,
    });
}
Methods[] all = [new Methods0(), new Methods1(), new Methods2(), new Methods5(), new Methods10(), new Methods50()];

RequireInstrumentation();
all[0].CallTraced(filling);
WarmUp();

var variants = all.SelectMany(methods => new Func<int, int>[] { methods.CallPlain, methods.CallTraced, methods.CallByHand })
    .ToArray();
var times = Array.ConvertAll(variants, _ => new double[repeats]);
for (var repeat = 0; repeat < repeats; repeat++)
{
    for (var variant = 0; variant < variants.Length; variant++)
    {
        var start = Stopwatch.GetTimestamp();
        variants[variant](calls);
        times[variant][repeat] = (Stopwatch.GetTimestamp() - start) * 1e9 / Stopwatch.Frequency / calls;
    }
}

var bytes = Array.ConvertAll(all, methods => BytesOf(() => methods.CallTraced(calls)) / calls);
RequireInstrumentation();

using var output = new StreamWriter(args[0]);
for (var i = 0; i < all.Length; i++)
{
    var medians = times.Skip(3 * i).Take(3).Select(Median);
    output.WriteLine(string.Create(CultureInfo.InvariantCulture, $"{all[i].Count} {string.Join(' ', medians)} {bytes[i]}"));
}
if (args.Contains("threads"))
{
    var (calling, computing) = SpeedOfThreads(all[2].CallTraced);
    output.WriteLine(string.Create(CultureInfo.InvariantCulture, $"threads {calling} {computing}"));
}

void RequireInstrumentation()
{
    foreach (var methods in all)
    {
        if (!TellsOfCalls(methods.CallTraced) || !TellsOfCalls(methods.CallByHand) || TellsOfCalls(methods.CallPlain))
        {
            Fail($"of {methods.Count} parameters, not the right methods are instrumented");
        }
    }
}

// Lists that grow now and then are left out.
static double BytesOf(Action run)
{
    var least = long.MaxValue;
    for (var attempt = 0; attempt < 5; attempt++)
    {
        var before = GC.GetAllocatedBytesForCurrentThread();
        run();
        least = Math.Min(least, GC.GetAllocatedBytesForCurrentThread() - before);
    }
    return least;
}

// In turns. What waits to be written is written in between.
static (double Calling, double Computing) SpeedOfThreads(Func<int, int> call)
{
    var (calling, computing) = (new double[3], new double[3]);
    for (var round = 0; round < calling.Length; round++)
    {
        calling[round] = SpeedOf(call);
        computing[round] = SpeedOf(Compute);
    }
    return (Median(calling), Median(computing));
}

static double SpeedOf(Func<int, int> run)
{
    const int count = 16;
    const int share = 100_000;
    var alone = TimeOf(() => run(count * share));
    var together = TimeOf(() =>
    {
        var threads = Enumerable.Range(0, count).Select(_ => new Thread(() => run(share))).ToArray();
        Array.ForEach(threads, thread => thread.Start());
        Array.ForEach(threads, thread => thread.Join());
    });
    return alone / together;
}

// As long as about so many spans, with nothing that threads share.
[MethodImpl(MethodImplOptions.AggressiveOptimization)]
static int Compute(int spans)
{
    var sum = 0;
    for (var span = 0; span < spans; span++)
    {
        for (var step = 0; step < 1_000; step++)
        {
            sum += step ^ span;
        }
    }
    return sum;
}

static double TimeOf(Action run)
{
    Thread.Sleep(1000);
    var start = Stopwatch.GetTimestamp();
    run();
    return Stopwatch.GetTimestamp() - start;
}

static bool TellsOfCalls(Func<int, int> call)
{
    var told = 0;
    MethodArgumentCallback callback = (_, _, _, _) => told++;
    Invokers.AddArgumentCallback(callback);
    call(3);
    Invokers.RemoveArgumentCallback(callback);
    return told == 3;
}

// Until the runtime has nothing left to compile better. How much a method is called before is limited, since
// a recorder keeps only so many calls.
void WarmUp()
{
    const int quiet = 3;
    var unchanged = 0;
    for (var round = 0; round < 60; round++)
    {
        var compiled = JitInfo.GetCompiledMethodCount();
        foreach (var methods in all)
        {
            methods.CallPlain(100);
            methods.CallTraced(100);
            methods.CallByHand(100);
        }
        // Longer than the runtime waits for a pause in the calls of new methods.
        Thread.Sleep(200);
        unchanged = JitInfo.GetCompiledMethodCount() == compiled ? unchanged + 1 : 0;
        if (unchanged == quiet)
        {
            return;
        }
    }
    Fail("the runtime does not stop compiling");
}

static void Fail(string reason)
{
    Console.Error.WriteLine($"call_methods: {reason}");
    Environment.Exit(1);
}

static double Median(double[] values)
{
    Array.Sort(values);
    return values[values.Length / 2];
}
