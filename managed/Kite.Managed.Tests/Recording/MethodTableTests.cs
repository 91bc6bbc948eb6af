using System;
using System.Reflection;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class MethodTableTests
{
    private static readonly MethodBase open = RecordedCalls.Method(typeof(Shop), "Open");
    private static readonly MethodBase count = RecordedCalls.Method(typeof(Shop), "Count");

    private readonly MethodTable methods = new();

    [Fact]
    public void AMethodIsFoundByItsNumber()
    {
        methods.Register(0, open, traced: true);
        methods.Register(uint.MaxValue, count, traced: false);
        Assert.Equal((open, true), (methods.Find(0)!.Method, methods.Find(0)!.Traced));
        Assert.Equal((count, false), (methods.Find(uint.MaxValue)!.Method, methods.Find(uint.MaxValue)!.Traced));
        Assert.Null(methods.Find(1));
    }

    [Fact]
    public async Task ManyMethodsAreFoundWhileTheirNumberGrows()
    {
        const uint Count = 2_000;
        var registered = 0u;
        var reader = Task.Run(() =>
        {
            for (var last = 0u; last < Count;)
            {
                last = Volatile.Read(ref registered);
                for (var index = 0u; index < last; index++)
                {
                    Assert.Equal(index, methods.Find(index)?.Index);
                }
            }
        });
        for (var index = 0u; index < Count; index++)
        {
            methods.Register(index, open, traced: false);
            Volatile.Write(ref registered, index + 1);
        }
        await reader;
        Assert.Null(methods.Find(Count));
    }

    [Fact]
    public void TheFirstOneKeepsANumber()
    {
        methods.Register(0, open, traced: true);
        methods.Register(0, count, traced: false);
        Assert.Equal("Kite.Managed.Tests.Shop.Open", methods.Find(0)!.Name);
    }

    // Describing takes most of the time, and may load types.
    [Fact]
    public void AMethodIsDescribedWhenThatIsWantedOrAskedFor()
    {
        var times = 0;
        var method = new FakeMethod(() => throw new TypeLoadException($"{++times}"));
        methods.Register(0, method, traced: false, describe: false);
        Assert.Equal(0, times);
        Assert.Equal("method #0", methods.Find(0)!.Name);
        Assert.Equal("method #0", methods.Find(0)!.Name);
        Assert.Equal(1, times);
        methods.Register(1, method, traced: false);
        Assert.Equal(2, times);
    }

    // Another thread may be quicker after both have found the number free.
    [Fact]
    public void TheFirstOneKeepsANumberThatTwoFoundFree()
    {
        MethodData? first = null;
        methods.Register(0, new FakeMethod(() =>
        {
            methods.Register(0, count, traced: false);
            first = methods.Find(0);
            return [];
        }), traced: true);
        Assert.Equal("Kite.Managed.Tests.Shop.Count", first!.Name);
        Assert.Same(first, methods.Find(0));
    }
}
