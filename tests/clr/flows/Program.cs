// Goes the ways that work takes through a program: chains of asynchronous methods that fail, parallel loops, channels,
// timers, threads. Returns 42 if it saw nothing of whoever watches.
using System;
using System.Linq;
using System.Threading;
using System.Threading.Channels;
using System.Threading.Tasks;
using Corvane.Instrumentation;

internal static class Flows
{
    private const int Levels = 25;
    private const int Items = 200;
    private const int Letters = 20;

    private static readonly AsyncLocal<string?> local = new AsyncLocal<string?>();
    private static readonly TaskCompletionSource areAllAwaited = new TaskCompletionSource(TaskCreationOptions.RunContinuationsAsynchronously);
    private static int awaited;

    private static int Main()
    {
        Console.WriteLine($"runtime {Environment.Version}");
        local.Value = "main";
        Chain().Wait();
        Loop();
        Exchange().Wait();
        Spread().Wait();
        var source = new OnceSource();
        var once = Once(source);
        var touches = source.Touches;
        Console.WriteLine($"touches {touches}, result {once.AsTask().Result}, local {local.Value}");
        return touches == 0 && local.Value == "main" ? 42 : 1;
    }

    [Trace]
    private static async Task Chain()
    {
        try
        {
            await Level(1);
        }
        catch (InvalidOperationException)
        {
            Console.WriteLine("failed");
        }
    }

    [Trace]
    private static async Task<int> Level(int level)
    {
        await Task.Delay(1).ConfigureAwait(level % 2 == 0);
        if (level == Levels)
        {
            await areAllAwaited.Task.ConfigureAwait(false);
            throw new FormatException();
        }
        try
        {
            return await new Awaited<int>(Level(level + 1), false, OnAwaited);
        }
        catch (FormatException) when (level % 5 == 0)
        {
            throw new InvalidOperationException();
        }
    }

    private static void OnAwaited()
    {
        if (Interlocked.Increment(ref awaited) == Levels - 1)
        {
            areAllAwaited.SetResult();
        }
    }

    [Trace]
    private static void Loop() => Parallel.For(0, Items, item => Item(item));

    [Trace]
    private static int Item(int item) => Part(item) + 1;

    [Trace]
    private static int Part(int item) => item;

    [Trace]
    private static async Task Exchange()
    {
        var channel = Channel.CreateBounded<int>(2);
        await Task.WhenAll(Read(channel.Reader), Write(channel.Writer));
    }

    [Trace]
    private static async Task Read(ChannelReader<int> reader)
    {
        await foreach (var letter in reader.ReadAllAsync())
        {
            Receive(letter);
        }
    }

    [Trace]
    private static int Receive(int letter) => letter;

    [Trace]
    private static async Task Write(ChannelWriter<int> writer)
    {
        for (var letter = 0; letter < Letters; letter++)
        {
            await Send(writer, letter);
        }
        writer.Complete();
    }

    [Trace]
    private static ValueTask Send(ChannelWriter<int> writer, int letter) => new ValueTask(writer.WriteAsync(letter).AsTask());

    [Trace]
    private static async Task Spread()
    {
        using var done = new CountdownEvent(4);
        using var timer = new Timer(_ => OnTimer(done), null, 1, Timeout.Infinite);
        var thread = new Thread(() => OnThread(done));
        thread.Start();
        ThreadPool.QueueUserWorkItem(_ => OnPool(done));
        await Task.Run(() => OnTask(done));
        thread.Join();
        await Task.Run(() => done.Wait());
    }

    [Trace]
    private static void OnTimer(CountdownEvent done) => done.Signal();

    [Trace]
    private static void OnThread(CountdownEvent done) => done.Signal();

    [Trace]
    private static void OnPool(CountdownEvent done) => done.Signal();

    [Trace]
    private static void OnTask(CountdownEvent done) => done.Signal();

    [Trace]
    private static ValueTask<int> Once(OnceSource source) => new ValueTask<int>(source, 1);
}

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute;
}
