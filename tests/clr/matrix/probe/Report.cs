using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Reflection;
using Corvane.Instrumentation;
using Matrix;

namespace Probe;

// A line for each call, when it ends:
//   Type.Method(arguments at entry) -> (arguments at exit) = result
//   Type.Method(arguments at entry) ! exception
// and one for each complaint of the injected code. The program runs one thread.
// With CORVANE_PROBE_TELLS the ends of these lines are
//   = result, by the receiver at exit
//   ! exception, with the text that came with it
// and every text of the injected code has a line, behind its level.
internal static class Report
{
    private sealed record Call(uint Index, object? Receiver, string Text, string Arguments);

    private static readonly string? fails = Environment.GetEnvironmentVariable("CORVANE_PROBE_FAILS");
    private static readonly string? replaces = Environment.GetEnvironmentVariable("CORVANE_PROBE_REPLACES");
    private static readonly bool tells = Environment.GetEnvironmentVariable("CORVANE_PROBE_TELLS") != null;
    private static readonly TextWriter writer = OpenFile();
    private static readonly Stack<Call> calls = new();

    public static void FailIn(string member)
    {
        if (member == fails)
        {
            throw new NotSupportedException($"{member} fails");
        }
    }

    // The text in the finally block tells of every call and says nothing about it.
    public static void Log(int level, string text)
    {
        if (tells)
        {
            writer.WriteLine($"{level} {text}");
        }
        else if (level == 0)
        {
            writer.WriteLine(text);
        }
    }

    public static void Enter(uint index, object? receiver, object?[] arguments, InstrumentationDirectives directives)
    {
        MethodBase method = Invokers.Method(index);
        string instance = receiver == null ? "" : $"{Output.Describe(receiver)}.";
        string text = Describe(arguments);
        calls.Push(new Call(index, receiver, $"{instance}{method.DeclaringType?.Name}.{method.Name}{text}", text));
        if (replaces != null)
        {
            Replacements.Make(method.GetParameters(), arguments, replaces == "wrongly");
            directives.Indexes = Enumerable.Range(-1, arguments.Length + 2).ToArray();
        }
    }

    public static void Leave(uint index, object? receiver, object?[] arguments, object? result)
    {
        Call call = Pop(index);
        string atExit = Describe(arguments);
        string change = atExit == call.Arguments ? "" : $" -> {atExit}";
        bool isVoid = Invokers.Method(index) is not MethodInfo { ReturnType: var type } || type == typeof(void);
        string by = tells ? $", by {Describe(receiver, call.Receiver)}" : "";
        writer.WriteLine($"{call.Text}{change}{(isVoid ? "" : $" = {Output.Describe(result)}")}{by}");
    }

    public static void Error(string? text, Exception exception)
    {
        string with = tells ? $", with {Output.Describe(text)}" : "";
        writer.WriteLine($"{calls.Pop().Text} ! {exception.GetType().Name}: {exception.Message}{with}");
    }

    private static Call Pop(uint index)
    {
        while (calls.TryPop(out Call? call))
        {
            if (call.Index == index)
            {
                return call;
            }
            writer.WriteLine($"{call.Text} did not end");
        }
        return new Call(index, null, $"{Invokers.Method(index).Name} did not begin", "()");
    }

    private static string Describe(object?[] values) => $"({string.Join(", ", values.Select(Output.Describe))})";

    private static string Describe(object? receiver, object? atEntry) =>
        receiver == null ? "nobody"
        : ReferenceEquals(receiver, atEntry) ? $"the same {Output.Describe(receiver)}"
        : $"another {Output.Describe(receiver)}";

    private static TextWriter OpenFile()
    {
        string? file = Environment.GetEnvironmentVariable("CORVANE_PROBE_FILE");
        return file == null ? TextWriter.Null : new StreamWriter(file) { AutoFlush = true };
    }
}
