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
            writer.Write(Describe(thread));
        }
        writer.Write($"{calls.Recorded} calls, {threads.Length} threads, {calls.Dropped} dropped");
        writer.WriteLine(failures == 0 ? "" : $", {failures} failures");
        if (remark != null)
        {
            writer.WriteLine(remark);
        }
    }

    private static string Describe(ThreadCalls thread)
    {
        var text = new StringBuilder("thread ").Append(thread.Number);
        if (!string.IsNullOrEmpty(thread.Name))
        {
            ValueText.AppendQuoted(text.Append(' '), thread.Name!);
        }
        text.AppendLine();
        lock (thread.Gate)
        {
            AppendCalls(text, thread.Root.FirstChild);
        }
        return text.ToString();
    }

    private static void AppendCalls(StringBuilder text, Call? call)
    {
        var callers = new Stack<Call>();
        while (call != null || callers.Count > 0)
        {
            if (call == null)
            {
                call = callers.Pop().Next;
                continue;
            }
            text.Append(' ', 2 * Math.Min(callers.Count + 1, MaxIndent));
            CallText.AppendLine(text, call);
            text.AppendLine();
            callers.Push(call);
            call = call.FirstChild;
        }
    }
}
