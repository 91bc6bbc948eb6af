// What callbacks may replace, and what the injected code hears of it.
using System;
using System.Collections.Generic;
using System.Reflection;
using Corvane.Instrumentation;
using Xunit;

namespace Kite.Managed.Tests;

public class InstrumentationDirectivesTests
{
    private readonly RecordedCalls recording = new RecordedCalls().With(0, nameof(Parameters.Take), typeof(Parameters));

    private static class Parameters
    {
        public static void Take<T>(
            int number, object thing, Shop shop, IDisposable closing, IntPtr handle, Array array, string text,
            int[] numbers, List<int> list, DayOfWeek day, int? maybe, T any, ref int byReference, ref Shop other)
        {
        }
    }

    private static object?[] Arguments() => new object?[14];

    // Which replacement is taken, and what the injected code then finds.
    private bool Replace(int index, object? value, out int[] indexes, out object?[] arguments)
    {
        var taken = false;
        MethodArgumentCallback callback = (_, _, _, directives) => taken = directives.ReplaceArgument(index, value);
        recording.Recorder.Callbacks.Add(callback);
        arguments = Arguments();
        indexes = recording.Enter(0, arguments);
        recording.Recorder.Callbacks.Remove(callback);
        return taken;
    }

    public static TheoryData<int, object> Replaceable => new()
    {
        { 0, 5 },
        { 1, "anything" },
        { 1, 5 },
        { 2, new Shop() },
        { 2, new Stall() },
        { 3, new System.IO.MemoryStream() },
        { 4, (IntPtr)1 },
        { 5, new[] { 1 } },
    };

    [Theory]
    [MemberData(nameof(Replaceable))]
    public void AReplacedValueIsInTheArrayAndItsIndexListed(int index, object value)
    {
        Assert.True(Replace(index, value, out var indexes, out var arguments));
        Assert.Equal([index], indexes);
        Assert.Same(value, arguments[index]);
    }

    public static TheoryData<int, object?> NotReplaceable => new()
    {
        { 0, null },
        { 0, 5L },
        { 0, DayOfWeek.Friday },
        { 2, "no shop" },
        { 3, new Shop() },
        { 4, 1 },
        { 6, "text" },
        { 7, new[] { 1 } },
        { 8, new List<int>() },
        { 9, DayOfWeek.Friday },
        { 10, 5 },
        { 11, "T" },
        { 12, 5 },
        { 13, new Shop() },
        { -1, 5 },
        { 14, 5 },
        { int.MaxValue, 5 },
    };

    [Theory]
    [MemberData(nameof(NotReplaceable))]
    public void WhatTheInjectedCodeWouldNotWriteBackIsRefused(int index, object? value)
    {
        Assert.False(Replace(index, value, out var indexes, out var arguments));
        Assert.Empty(indexes);
        Assert.All(arguments, Assert.Null);
        Assert.Equal(0, recording.Recorder.Failures);
    }

    private class Box<T>
    {
        public void Put(T any, int number)
        {
        }
    }

    [Fact]
    public void ATypeParameterIsNoneOfTheTypesThatTakeItsPlace()
    {
        recording.With(1, "Put", typeof(Box<int>)).Recorder.Callbacks.Add((_, _, _, directives) =>
        {
            Assert.False(directives.ReplaceArgument(0, 5));
            Assert.True(directives.ReplaceArgument(1, 5));
        });
        Assert.Equal([1], recording.EnterOn(new Box<int>(), 1, 1, 2));
        Assert.Equal(0, recording.Recorder.Failures);
    }

    [Fact]
    public void ATypeParameterOfAMethodIsNoneOfThemEither()
    {
        var pick = (MethodInfo)RecordedCalls.Method(typeof(Shop), "Pick");
        recording.Recorder.Register(1, pick.MakeGenericMethod(typeof(int), typeof(string)), traced: false);
        recording.Recorder.Callbacks.Add((_, _, _, directives) => Assert.False(directives.ReplaceArgument(0, 5)));
        Assert.Empty(recording.Enter(1, 1, "x"));
        Assert.Equal(0, recording.Recorder.Failures);
    }

    [Fact]
    public void AFreshOneListsNothingAndReplacesNothing()
    {
        var directives = new InstrumentationDirectives();
        Assert.Empty(directives.GetIndexes());
        Assert.False(directives.ReplaceArgument(0, 5));
        Assert.Empty(directives.GetIndexes());
    }

    [Fact]
    public void CallbacksSeeWhatTheOnesBeforeThemLeft()
    {
        var arguments = Arguments();
        var seen = new List<object?>();
        recording.Recorder.Callbacks.Add((_, _, values, directives) =>
        {
            seen.Add(values[0]);
            Assert.True(directives.ReplaceArgument(2, new Shop()));
            Assert.True(directives.ReplaceArgument(0, 2));
        });
        recording.Recorder.Callbacks.Add((_, _, values, directives) =>
        {
            seen.Add(values[0]);
            Assert.True(directives.ReplaceArgument(0, 3));
        });
        arguments[0] = 1;
        Assert.Equal([2, 0], recording.Enter(0, arguments));
        Assert.Equal([1, 2], seen);
        Assert.Equal(3, arguments[0]);
        Assert.StartsWith("  Kite.Managed.Tests.InstrumentationDirectivesTests.Parameters.Take<T>(number: 3, ",
            recording.Tree()[1]);
        Assert.Equal(0, recording.Recorder.Failures);
    }

    [Fact]
    public void ACallbackIsToldOfTheCall()
    {
        MethodData? method = null;
        object? receiver = null;
        object?[]? arguments = null;
        recording.With(1, "Serve").Recorder.Callbacks.Add((called, on, with, _) => (method, receiver, arguments) =
            (called, on, with));
        var shop = new Shop();
        string[] dishes = ["soup"];
        recording.EnterOn(shop, 1, [dishes]);
        Assert.Equal(1u, method!.Index);
        Assert.Equal("Kite.Managed.Tests.Shop.Serve", method.Name);
        Assert.Equal(RecordedCalls.Method(typeof(Shop), "Serve"), method.Method);
        Assert.True(method.Traced);
        Assert.Same(shop, receiver);
        Assert.Equal([dishes], arguments!);
    }

    [Fact]
    public void DirectivesThatAreKeptReplaceNothingLater()
    {
        InstrumentationDirectives? kept = null;
        recording.Recorder.Callbacks.Add((_, _, _, directives) => kept = directives);
        var arguments = Arguments();
        recording.Enter(0, arguments);
        Assert.False(kept!.ReplaceArgument(0, 5));
        Assert.Null(arguments[0]);
    }

    [Fact]
    public void ACallOfAnotherMethodWithTheSameNumberIsNotShown()
    {
        var shown = 0;
        recording.Recorder.Callbacks.Add((_, _, _, _) => shown++);
        recording.Enter(0, 1, 2);
        recording.Enter(99);
        Assert.Equal(0, shown);
        recording.Enter(0, Arguments());
        Assert.Equal(1, shown);
    }

    [Fact]
    public void AnArgumentThatIsReplacedTwiceIsListedOnce()
    {
        recording.Recorder.Callbacks.Add((_, _, _, directives) =>
        {
            Assert.True(directives.ReplaceArgument(0, 2));
            Assert.True(directives.ReplaceArgument(0, 3));
        });
        var arguments = Arguments();
        Assert.Equal([0], recording.Enter(0, arguments));
        Assert.Equal(3, arguments[0]);
        Assert.Equal(0, recording.Recorder.Failures);
    }
}
