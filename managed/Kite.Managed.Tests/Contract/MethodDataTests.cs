using System;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Runtime.Loader;
using System.Threading;
using Corvane.Instrumentation;
using Xunit;

namespace Kite.Managed.Tests;

public class MethodDataTests
{
    private static MethodData Describe(Type type, string method) =>
        new RecordedCalls().With(3, method, type).Methods.Find(3)!;

    [Theory]
    [InlineData(typeof(Shop), "Serve", true, "Kite.Managed.Tests.Shop")]
    [InlineData(typeof(Shop), "Open", false, null)]
    [InlineData(typeof(Cafe), ".ctor", true, null)]
    [InlineData(typeof(Price), "Add", false, null)]
    public void AReceiverIsLookedAtOnlyWhereItIsAnObjectOfATypeThatMayDiffer(
        Type type, string method, bool isObject, string? ownType)
    {
        var signature = Describe(type, method).Signature;
        Assert.Equal(isObject, signature.HasObjectReceiver);
        Assert.Equal(ownType, signature.OwnType);
    }

    [Fact]
    public void AMethodWithoutATypeHasNoTypeInItsName()
    {
        var method = new System.Reflection.Emit.DynamicMethod("loose", typeof(int), [typeof(int)]);
        Assert.Equal("loose", new MethodData(0, method, false).Name);
    }

    [Fact]
    public void AMethodThatCannotBeDescribedGoesByItsNumber()
    {
        var data = new MethodData(9, new FakeMethod(() => throw new TypeLoadException()), false);
        Assert.Equal("method #9", data.Name);
        Assert.Equal(0, data.Signature.ParameterCount);
    }

    [Fact]
    public void AMethodIsKeptAsLongAsItsType()
    {
        var recording = new RecordedCalls();
        Register(recording);
        for (var round = 0; round < 5; round++)
        {
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        var data = recording.Methods.Find(0)!;
        Assert.Equal("Count", data.Method?.Name);
        Assert.True(data.CanReplace(1, 8));
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Register(RecordedCalls recording) => recording.With(0, "Count");

    [Fact]
    public void TheAssemblyOfAMethodCanBeUnloaded()
    {
        var recording = new RecordedCalls();
        var context = CallInContext(recording);
        // Other tests look through all assemblies meanwhile.
        for (var round = 0; round < 1000 && context.IsAlive; round++)
        {
            Thread.Sleep(round < 20 ? 0 : 10);
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        Assert.False(context.IsAlive);
        Assert.Null(recording.Methods.Find(0)!.Method);
        Assert.Equal(
            [
                "thread 1", "  Kite.Managed.Tests.Shop.Serve(this: {Kite.Managed.Tests.Stall}, " +
                            "dishes: {Kite.Managed.Tests.Price[]})",
                "1 calls, 1 threads, 0 dropped",
            ],
            recording.Tree());
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static WeakReference CallInContext(RecordedCalls recording)
    {
        var context = new AssemblyLoadContext("short-lived", isCollectible: true);
        var assembly = context.LoadFromAssemblyPath(typeof(Shop).Assembly.Location);
        Assert.NotSame(typeof(Shop).Assembly, assembly);
        recording.With(0, "Serve", assembly.GetType(typeof(Shop).FullName!)!);
        var dishes = Array.CreateInstance(assembly.GetType(typeof(Price).FullName!)!, 2);
        recording.EnterOn(Activator.CreateInstance(assembly.GetType(typeof(Stall).FullName!)!), 0, dishes);
        recording.Leave(0);
        context.Unload();
        return new WeakReference(context);
    }
}
