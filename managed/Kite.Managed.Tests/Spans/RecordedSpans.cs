// A recorder with a sink that keeps what it gets, and methods that run as instrumented ones do.
using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Linq;
using System.Reflection;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Spans;

internal sealed class RecordedSpans : ISpanSink
{
    internal const string Type = "Kite.Managed.Tests.Spans.Work";

    private readonly ConcurrentQueue<Span> ended = new();
    private readonly Dictionary<string, uint> indexes = [];

    internal RecordedSpans(
        RecordedValues values = RecordedValues.None, RootSampler? sampler = null,
        Func<MethodBase, ISpanConvention?>? conventions = null, bool hasSink = true, bool hasActivities = true)
    {
        Sampler = sampler ?? ((_, _) => true);
        var methods = new MethodTable();
        Recorder = new Recorder(
            methods,
            CallRecorder.OfNothing(
                methods, new SpanRecorder(values, hasSink ? this : null, sampler, conventions, hasActivities ? ProgramActivities.Load() : null)),
            null);
        foreach (var method in typeof(Work).GetMethods(BindingFlags.Static | BindingFlags.Public | BindingFlags.DeclaredOnly))
        {
            var index = (uint)indexes.Count;
            indexes.Add(method.Name, index);
            Recorder.Register(index, method, traced: true);
        }
    }

    internal Recorder Recorder { get; }

    internal RootSampler Sampler { get; }

    internal Span[] Ended => [.. ended];

    // For a moment when all spans are expected to have ended.
    internal Span Only(string method) => Assert.Single(ended, span => span.Name == $"{Type}.{method}");

    public void OnBegun(Span span)
    {
    }

    public void OnEnded(Span span) => ended.Enqueue(span);

    internal T Call<T>(string method, Func<T> body) => Call(method, [], body);

    // In the order of the injected code.
    internal T Call<T>(string method, object?[] arguments, Func<T> body)
    {
        var index = indexes[method];
        Recorder.Enter(index, null, arguments, new InstrumentationDirectives());
        T result;
        try
        {
            result = body();
        }
        catch (Exception exception) when (Note(exception))
        {
            throw;
        }
        finally
        {
            Recorder.Log(4, "[Finally]");
        }
        Recorder.Leave(index, arguments, result);
        return result;
    }

    internal void Call(string method, Action body) => Call(method, () =>
    {
        body();
        return 0;
    });

    // The end of a task is seen on the thread on which it ends, maybe a little after the program sees it.
    internal void Wait(int count)
    {
        Assert.True(SpinWait.SpinUntil(() => ended.Count >= count, TimeSpan.FromSeconds(30)), $"{ended.Count} of {count} spans");
        Assert.Equal(count, ended.Count);
    }

    internal void AssertParent(string parent, string child)
    {
        Assert.Equal(Only(parent).Id, Only(child).ParentId);
        Assert.Equal(Only(parent).Trace, Only(child).Trace);
    }

    private bool Note(Exception exception)
    {
        Assert.True(Recorder.Fail(exception));
        return false;
    }
}

// Its methods are registered; their bodies are those that tests give.
internal static class Work
{
    public static void Do()
    {
    }

    public static void Outer()
    {
    }

    public static void Inner()
    {
    }

    public static int Add(int a, int b) => a + b;

    public static void Login(string password)
    {
    }

    public static Task LoginLater(string password) => Task.CompletedTask;

    public static Task Later() => Task.CompletedTask;

    public static Task<int> Count() => Task.FromResult(0);

    public static ValueTask Soon() => default;

    public static ValueTask<int> CountSoon() => default;

    public static IAsyncEnumerable<int> List() => null!;

    public static IAsyncResult Begin() => null!;

    public static async void Forget() => await Task.Yield();
}
