using System;
using System.IO;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// The trace lines of the injected code, each with its level and its thread in front. Opened at the first
// line; one that cannot be written ends the log. Any thread.
internal sealed class TraceLog
{
    private readonly object gate = new object();
    private readonly OutputTarget target;
    private TextWriter? writer;
    private bool givenUp;

    internal TraceLog(OutputTarget target) => this.target = target;

    internal void Write(int level, string? text)
    {
        lock (gate)
        {
            if (givenUp)
            {
                return;
            }
            try
            {
                writer ??= target.Open(FileMode.Append);
                writer.WriteLine($"{level} {Thread.CurrentThread.ManagedThreadId} {text}");
                writer.Flush();
            }
            catch (Exception)
            {
                givenUp = true;
            }
        }
    }
}
