// A recorder with methods to record calls of, and what it prints, without the times.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Text.RegularExpressions;
using System.Threading;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests;

internal sealed partial class RecordedCalls
{
    internal const string Type = "Kite.Managed.Tests.Shop";

    internal RecordedCalls(int? capacity = CallRecorder.DefaultCapacity, RecordedValues values = RecordedValues.All, CallSummary? summary = null,
        Recorder.Outputs outputs = default)
    {
        Methods = new MethodTable();
        Calls = new CallRecorder(Methods, values, capacity, summary);
        Recorder = new Recorder(Methods, Calls, null, outputs);
    }

    internal MethodTable Methods { get; }

    internal CallRecorder Calls { get; }

    internal Recorder Recorder { get; }

    internal static MethodBase Method(Type type, string name) =>
        Assert.Single(type.GetMember(name, (BindingFlags)62).OfType<MethodBase>());

    internal RecordedCalls With(uint index, string method, Type? type = null)
    {
        Recorder.Register(index, Method(type ?? typeof(Shop), method), traced: true);
        return this;
    }

    internal int[] Enter(uint index, params object?[] arguments) => EnterOn(null, index, arguments);

    internal int[] EnterOn(object? receiver, uint index, params object?[] arguments)
    {
        var directives = new InstrumentationDirectives();
        Recorder.Enter(index, receiver, arguments, directives);
        return directives.GetIndexes();
    }

    internal void Leave(uint index, object? result = null) =>
        LeaveWith(index, new object?[Methods.Find(index)?.Signature.ParameterCount ?? 0], result);

    internal void LeaveWith(uint index, object?[] arguments, object? result) => Recorder.Leave(index, arguments, result);

    // As the injected finally block does, whether or not an exception leaves the method.
    internal void Finally() => Recorder.Log(4, "[Finally] Kite.Managed.Tests.Shop::Finally;");

    // An exception that leaves the innermost call, and that its caller handles.
    internal void Throw(Exception? exception)
    {
        Assert.True(Recorder.Fail(exception));
        Finally();
    }

    internal string[] Tree()
    {
        using var writer = new StringWriter();
        CallTree.Write(writer, Calls, Recorder.Failures);
        // The pool's threads, on which tests run, have a name of the runtime's choice.
        return WithoutTimes(writer.ToString().Replace($" \"{Thread.CurrentThread.Name}\"", ""));
    }

    // Fails where an ended call has no time.
    internal static string[] WithoutTimes(string tree) =>
        tree.TrimEnd().Split(Environment.NewLine).Select(line =>
        {
            var isUntimed = line.EndsWith(" ...") || !line.StartsWith(' ');
            Assert.Equal(isUntimed ? 0 : 1, Time().Count(line));
            return Time().Replace(line, "");
        }).ToArray();

    [GeneratedRegex(@"  \[(\d+\.\d|\?) us\]$")]
    private static partial Regex Time();
}

// Its methods are registered, but none is ever called: the recorder is told of the calls.
public class Shop
{
    public static void Open()
    {
    }

    public static int Count(string kind, int more) => more;

    public static string? Find(object wanted, DayOfWeek day) => null;

    public static void Swap(ref int count, ref string name, ref int[] others, out int total, in double price) => total = 0;

    public static void Fill(ref List<int> list, out List<int> other) => other = list;

    public static T Pick<T, TOther>(T first, TOther other) => first;

    public virtual void Serve(string[] dishes)
    {
    }
}

public sealed class Cafe : Shop
{
    public Cafe(int seats) => Seats = seats;

    public int Seats { get; }
}

public class Stall : Shop;

public struct Price
{
    public decimal Amount;

    public readonly decimal Add(decimal more) => Amount + more;
}
