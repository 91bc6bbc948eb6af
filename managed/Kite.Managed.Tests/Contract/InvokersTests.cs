// The public way through the process's own recorder, which records nothing in a test run.
using System;
using System.Collections.Generic;
using System.Linq;
using Corvane.Instrumentation;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests;

public class InvokersTests
{
    [Fact]
    public void ARegisteredMethodIsKnownAndTheFirstOneStays()
    {
        const uint Index = 4_000_000_000;
        Assert.False(Invokers.ContainsKey(Index));
        Invokers.RegisterMethod(Index, RecordedCalls.Method(typeof(Shop), "Count"), false);
        Assert.True(Invokers.ContainsKey(Index));
        Invokers.RegisterMethod(Index, RecordedCalls.Method(typeof(Shop), "Open"), true);

        MethodData? seen = null;
        object?[] arguments = ["tea", 1];
        var directives = new InstrumentationDirectives();
        MethodArgumentCallback callback = (method, _, _, asked) => seen = asked.ReplaceArgument(1, 5) ? method : null;
        Invokers.AddArgumentCallback(callback);
        Assert.True(Invokers.HasListeners());
        span.GenericPrologue(Index, null, arguments, directives);
        Assert.True(Invokers.RemoveArgumentCallback(callback));
        Assert.Equal("Kite.Managed.Tests.Shop.Count", seen!.Name);
        Assert.False(seen.Traced);
        Assert.Equal([1], directives.GetIndexes());
        Assert.Equal(["tea", 5], arguments);

        span.GenericEpilogue(Index, null, arguments, 5, new InstrumentationDirectives());
        span.GenericPrologue(Index, null, arguments, directives);
        Assert.False(span.Error(null, new InvalidOperationException()));
        span.Log(4, "[Finally] Shop.Count::Finally;");
    }

    [Fact]
    public void TheReceiverOfAValueTypesMethodIsNotPassedOn()
    {
        const uint Index = 4_000_000_001;
        var receivers = new List<object?>();
        MethodArgumentCallback callback = (_, receiver, _, _) => receivers.Add(receiver);
        Invokers.RegisterMethod(Index, RecordedCalls.Method(typeof(Price), "Add"), false);
        Invokers.RegisterMethod(Index + 1, RecordedCalls.Method(typeof(Shop), "Serve"), false);
        Invokers.AddArgumentCallback(callback);
        var shop = new Shop();
        span.GenericPrologue(Index, new Price(), [1m], new InstrumentationDirectives());
        span.GenericPrologue(Index + 1, shop, [null], new InstrumentationDirectives());
        Assert.True(Invokers.RemoveArgumentCallback(callback));
        Assert.Equal([null, shop], receivers);
    }

    [Fact]
    public void CallsWhileTheLibraryIsFirstUsedAreTaken()
    {
        var run = ChildProgram.Run(["call while loading"], ("CORVANE_CALL_TREE", "stderr"), ("CORVANE_TRACE_LOG", "stderr"));
        Assert.Equal(["out", "called"], run.Output);
        Assert.Equal(5, run.ExitCode);
        Assert.EndsWith(" 1 threads, 0 dropped", run.Errors.Last());
    }
}
