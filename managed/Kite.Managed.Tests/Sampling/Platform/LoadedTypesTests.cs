using System;
using System.Collections.Generic;
using System.Linq;
using System.Reflection;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Sampling;
using Corvane.Sampling.Platform;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Platform;

public class LoadedTypesTests
{
    private const string Here = "Kite.Managed.Tests.Sampling.Platform.LoadedTypesTests.";

    private static SampledFunction Placed(string type, string method)
    {
        var function = new SampledFunction(1);
        function.Resolve(type, method);
        LoadedTypes.Place([function]);
        return function;
    }

    // As the profiler reports it.
    private static SampledFunction Placed(MethodInfo method) =>
        Placed(method.DeclaringType!.IsNested ? method.DeclaringType.Name : method.DeclaringType.FullName!, method.Name);

    [Fact]
    public void ANestedTypeHasThoseThatEncloseIt()
    {
        var function = Placed("WellKnownInner", nameof(Outer.WellKnownInner.Work));
        Assert.Equal(Here + "Outer.WellKnownInner.Work", function.Name);
        Assert.Equal("WellKnownInner", function.TypeName);
        Assert.False(function.IsPlatform);
    }

    [Fact]
    public void TheCompilersTypesAreThoseOfTheirMethods()
    {
        var async = typeof(Outer).GetNestedTypes(BindingFlags.NonPublic).Single(type => type.Name.StartsWith("<WellKnownAsync>"));
        Assert.Equal(Here + "Outer.WellKnownAsync", Placed(async.Name, "MoveNext").Name);
        Func<int, int> lambda = Outer.WellKnownLambda();
        Assert.Equal(Here + "Outer.WellKnownLambda (lambda)", Placed(lambda.Method).Name);
    }

    [Theory]
    [InlineData("System.String", "Concat", true)]
    [InlineData("System.Linq.Enumerable", "ToList", true)]
    [InlineData("Kite.Managed.Tests.Sampling.Platform.LoadedTypesTests", "Placed", false)]
    [InlineData("Xunit.Assert", "Equal", false)]
    [InlineData("Corvane.Sampling.Sampler", "Start", true)]
    [InlineData("No.Such.Type", "Start", null)]
    [InlineData("System.String", "NoSuchMethod", null)]
    public void TheAssemblySaysWhoseItIs(string type, string method, bool? isPlatform)
    {
        var function = Placed(type, method);
        Assert.Equal(isPlatform, function.IsPlatform);
        Assert.Equal($"{type}.{method}", function.Name);
    }

    [Fact]
    public void ANameOfSeveralTypesStays()
    {
        Assert.Equal("Doubled.Work", Placed("Doubled", "Work").Name);
        Assert.Equal(Here + "Other.Doubled.OnlyHere", Placed("Doubled", "OnlyHere").Name);
        Assert.False(Placed("Doubled", "Work").IsPlatform);
    }

    [Fact]
    public void AFunctionWithoutNamesStays()
    {
        var function = new SampledFunction(1);
        LoadedTypes.Place([function]);
        function.Resolve(null, null);
        LoadedTypes.Place([function]);
        Assert.Equal("(no name)", function.Name);
        Assert.Null(function.IsPlatform);
    }

    // As a sampler does it, for all that it saw.
    [Fact]
    public void ASamplingPlacesWhatItSaw()
    {
        var process = new FakeProcess
        {
            NameOf = id => id == 1 ? new FunctionNames("WellKnownInner", "Work") : new FunctionNames("System.String", "Concat"),
        };
        process.Add(10, null, 2, 1);
        var functions = process.Sample().Threads[0].Samples[0].Stack!.ToArray();
        Assert.Equal([Here + "Outer.WellKnownInner.Work", "System.String.Concat"], functions.Select(function => function.Name));
        Assert.Equal([false, true], functions.Select(function => function.IsPlatform));
    }

    // Nobody sees the functions that another one is just looking for.
    [Fact]
    public void TwoReadersSeeNoHalfOfIt()
    {
        var process = new FakeProcess { NameOf = _ => new FunctionNames("WellKnownInner", "Work") };
        var thread = process.Add(10, null, 1);
        using var sampler = process.NewSampler();
        sampler.Start();
        using var together = new Barrier(2);
        for (var round = 2; round < 12; round++)
        {
            process.Do(() => thread.Stack = [round]);
            process.WaitForRounds();
            var names = new string[2];
            var readers = Enumerable.Range(0, 2).Select(reader => new Thread(() =>
            {
                together.SignalAndWait();
                names[reader] = sampler.Read().Threads[0].Samples[^1].Stack!.Function!.Name;
            })).ToList();
            readers.ForEach(reader => reader.Start());
            readers.ForEach(reader => reader.Join());
            Assert.Equal([Here + "Outer.WellKnownInner.Work", Here + "Outer.WellKnownInner.Work"], names);
        }
    }

    private static class Outer
    {
        internal static class WellKnownInner
        {
            internal static void Work()
            {
            }
        }

        internal static class Doubled
        {
            internal static void Work()
            {
            }
        }

        internal static async Task WellKnownAsync() => await Task.Yield();

        internal static Func<int, int> WellKnownLambda() => number => number + 1;
    }

    private static class Other
    {
        internal static class Doubled
        {
            internal static void Work()
            {
            }

            internal static void OnlyHere()
            {
            }
        }
    }
}
