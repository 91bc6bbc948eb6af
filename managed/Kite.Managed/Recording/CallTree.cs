using System;
using System.Collections.Generic;
using System.IO;
using System.Text;

namespace Corvane.Instrumentation.Recording;

// Prints what was recorded: for each thread a line with its number and name, then its calls, each indented
// under the one that made it; at the end one line with the figures, and a remark if there is one. Threads may
// still be recording.
internal static class CallTree
{
    // As deep as lines are still indented further: recursion is not to make the text grow with its square.
    internal const int MaxIndent = 100;

    internal static void Write(TextWriter writer, CallRecorder calls, long failures, string? remark = null)
    {
        var threads = calls.Threads();
        foreach (var thread in threads)
        {
            Write(writer, thread);
        }
        writer.Write($"{calls.Recorded} calls, {threads.Length} threads, {calls.Dropped} dropped");
        writer.WriteLine(failures == 0 ? "" : $", {failures} failures");
        if (remark != null)
        {
            writer.WriteLine(remark);
        }
    }

    private static void Write(TextWriter writer, ThreadCalls thread)
    {
        var text = new StringBuilder("thread ").Append(thread.Number);
        if (!string.IsNullOrEmpty(thread.Name))
        {
            ValueText.AppendQuoted(text.Append(' '), thread.Name!);
        }
        WriteLine(writer, text);
        var callers = new Stack<Call>();
        var call = FirstChild(thread, thread.Root);
        while (call != null || callers.Count > 0)
        {
            if (call == null)
            {
                call = Next(thread, callers.Pop());
                continue;
            }
            text.Append(' ', 2 * Math.Min(callers.Count + 1, MaxIndent));
            Append(text, thread, call);
            WriteLine(writer, text);
            callers.Push(call);
            call = FirstChild(thread, call);
        }
    }

    private static void WriteLine(TextWriter writer, StringBuilder text)
    {
        writer.WriteLine(text.ToString());
        text.Clear();
    }

    // The thread goes on meanwhile, and waits for no more than one of these.
    private static void Append(StringBuilder text, ThreadCalls thread, Call call)
    {
        lock (thread.Gate)
        {
            CallText.AppendLine(text, call);
        }
    }

    private static Call? FirstChild(ThreadCalls thread, Call call)
    {
        lock (thread.Gate)
        {
            return call.FirstChild;
        }
    }

    private static Call? Next(ThreadCalls thread, Call call)
    {
        lock (thread.Gate)
        {
            return call.Next;
        }
    }
}
