// What a line tells of a call's parameters and result.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Globalization;
using System.Linq;
using System.Runtime.CompilerServices;
using System.Text;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class CallTextTests
{
    // The line of a call with these arguments and this result.
    private static string Line(Type type, string method, object? receiver, object?[] arguments, object? result = null)
    {
        var recording = new RecordedCalls().With(7, method, type);
        recording.EnterOn(receiver, 7, arguments);
        recording.Leave(7, result);
        return recording.Tree()[1].Trim();
    }

    [Fact]
    public void ArgumentsThatNobodyKnowsAreCounted() =>
        Assert.Equal(
            "arg0, arg1", CallText.Arguments(new StringBuilder(), MethodSignature.Of(7, null), null, [1, "x"], RecordedValues.None, areSecret: true));

    [Fact]
    public void AMethodThatReturnsNothingHasNoResult() =>
        Assert.Equal("Kite.Managed.Tests.Shop.Open()", Line(typeof(Shop), "Open", null, []));

    [Fact]
    public void NullIsAResult() =>
        Assert.Equal(
            "Kite.Managed.Tests.Shop.Find(wanted: {System.Object}, day: Friday) = null",
            Line(typeof(Shop), "Find", null, [new object(), DayOfWeek.Friday]));

    [Fact]
    public void WhatIsPassedByReferenceShowsItsModeAndWhatIsKnownOfItsValue() =>
        Assert.Equal(
            "Kite.Managed.Tests.Shop.Swap(ref count: 1, ref name, ref others: {System.Int32[]}, out total, " +
            "in price: 2.5)",
            Line(typeof(Shop), "Swap", null, [1, null, new[] { 3 }, 9, 2.5]));

    [Fact]
    public void AGenericMethodIsNamedAsItsDefinition() =>
        Assert.Equal(
            "Kite.Managed.Tests.Shop.Pick<T, TOther>(first: 1, other: \"x\") = 1",
            Line(typeof(Shop), "Pick", null, [1, "x"], 1));

    [Fact]
    public void AReceiverIsToldOfOnlyIfItIsOfAnotherType()
    {
        string[] dishes = ["soup"];
        Assert.Equal("Kite.Managed.Tests.Shop.Serve(dishes: {System.String[]})",
            Line(typeof(Shop), "Serve", new Shop(), [dishes]));
        Assert.Equal("Kite.Managed.Tests.Shop.Serve(this: {Kite.Managed.Tests.Stall}, dishes: {System.String[]})",
            Line(typeof(Shop), "Serve", new Stall(), [dishes]));
        Assert.Equal("Kite.Managed.Tests.Shop.Serve(dishes: {System.String[]})",
            Line(typeof(Shop), "Serve", null, [dishes]));
    }

    [Fact]
    public void AnObjectThatIsNotConstructedYetIsNoTrouble() =>
        Assert.Equal("Kite.Managed.Tests.Cafe..ctor(seats: 4)",
            Line(typeof(Cafe), ".ctor", RuntimeHelpers.GetUninitializedObject(typeof(Cafe)), [4]));

    [Fact]
    public void ManyArgumentsAreCutOff()
    {
        var recording = new RecordedCalls().With(0, "Open");
        recording.Enter(0, [.. Enumerable.Repeat<object?>(new string('x', 60), 255)]);
        recording.Leave(0);
        var line = recording.Tree()[1];
        Assert.EndsWith(", arg84: ***, ...)", line);
        Assert.InRange(line.Length, 1000, 1200);
    }

    [Fact]
    public void NothingOfTheProgramIsCalled()
    {
        var recording = new RecordedCalls().With(0, "Find").With(1, "Serve");
        recording.EnterOn(new Hostile(), 0, new Hostile(), default(HostileValue));
        recording.EnterOn(new Hostile(), 1, new Hostile());
        Assert.True(recording.Recorder.Fail(new HostileException()));
        recording.Leave(0, new Hostile());
        Assert.Equal(
            [
                "thread 1",
                "  Kite.Managed.Tests.Shop.Find(wanted: {Kite.Managed.Tests.Hostile}, " +
                "day: {Kite.Managed.Tests.HostileValue}) = {Kite.Managed.Tests.Hostile}",
                "    Kite.Managed.Tests.Shop.Serve(this: {Kite.Managed.Tests.Hostile}, " +
                "dishes: {Kite.Managed.Tests.Hostile}) ! Kite.Managed.Tests.HostileException: as made",
                "2 calls, 1 threads, 0 dropped",
            ],
            recording.Tree());
        Assert.Equal(0, Hostile.Calls);
    }

    [Theory]
    [InlineData(0, "0.0")]
    [InlineData(12.34, "12.3")]
    [InlineData(0.96, "1.0")]
    [InlineData(1234567.8, "1234567.8")]
    public void ATimeIsInMicroseconds(double microseconds, string text)
    {
        var culture = (CultureInfo)CultureInfo.InvariantCulture.Clone();
        culture.NumberFormat.NumberDecimalSeparator = ",";
        var before = CultureInfo.CurrentCulture;
        CultureInfo.CurrentCulture = culture;
        try
        {
            var call = new Call(MethodSignature.Of(7, null), "1");
            call.Start(1000);
            call.End(" = 2", 1000 + (long)(microseconds * Stopwatch.Frequency / 1_000_000));
            Assert.Equal($"method #7(1) = 2  [{text} us]", TimedLine(call));
        }
        finally
        {
            CultureInfo.CurrentCulture = before;
        }
    }

    [Fact]
    public void ATimeThatIsNotKnownIsAQuestion()
    {
        var call = new Call(MethodSignature.Of(7, null), "");
        call.End(" = 2", 1000);
        Assert.Equal("method #7() = 2  [? us]", TimedLine(call));
    }

    [Fact]
    public void AListByReferenceIsShown() =>
        Assert.Equal(
            "Kite.Managed.Tests.Shop.Fill(ref list: {System.Collections.Generic.List<System.Int32>}, out other)",
            Line(typeof(Shop), "Fill", null, [new List<int>(), new List<int>()]));

    private static string TimedLine(Call call)
    {
        var text = new StringBuilder();
        CallText.AppendLine(text, call);
        return text.ToString();
    }
}
