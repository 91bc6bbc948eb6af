using System;
using System.IO;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// The trace lines of the injected code, each with its level and its thread in front. Opened at the first
// line; one that cannot be written ends the log. Any thread.
internal sealed class TraceLog
{
    private readonly OutputTarget target;
    private TextWriter? writer;
    private bool givenUp;

    internal TraceLog(OutputTarget target) => this.target = target;

    internal object Gate { get; } = new object();

    internal void Write(int level, string? text)
    {
        try
        {
            lock (Gate)
            {
                if (!givenUp)
                {
                    WriteLine(level, text);
                }
            }
        }
        catch (ThreadInterruptedException)
        {
            // Of the program's next wait, which it was meant for.
            Thread.CurrentThread.Interrupt();
        }
    }

    private void WriteLine(int level, string? text)
    {
        try
        {
            writer ??= target.Open(FileMode.Append);
            writer.WriteLine($"{level} {Thread.CurrentThread.ManagedThreadId} {text}");
            writer.Flush();
        }
        catch (Exception exception) when (exception is not ThreadInterruptedException)
        {
            givenUp = true;
        }
    }
}
