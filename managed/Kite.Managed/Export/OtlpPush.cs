using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// Sends spans to a collector, on a thread of its own, so that a collector that is slow or gone keeps nothing else
// waiting. A queue of limited length keeps the newest.
internal sealed class OtlpPush : ISpanTarget
{
    private static readonly TimeSpan firstPause = TimeSpan.FromSeconds(1);
    private static readonly TimeSpan longestPause = TimeSpan.FromSeconds(30);

    private readonly OtlpEndpoint endpoint;
    private readonly IOtlpEncoding encoding;
    private readonly Resource resource;
    private readonly Queue<SpanRecord> queue = new Queue<SpanRecord>(); // guarded by itself
    private readonly List<SpanRecord> batch = new List<SpanRecord>();
    private readonly Random random = new Random();
    private readonly AutoResetEvent filled = new AutoResetEvent(false);
    private readonly ManualResetEvent ending = new ManualResetEvent(false);
    private readonly ManualResetEvent done = new ManualResetEvent(false);
    private bool hasBegun;
    private bool hasGivenUp;
    private DateTime end = DateTime.MaxValue;
    private OtlpClient? client;

    internal OtlpPush(OtlpEndpoint endpoint, Resource resource)
    {
        this.endpoint = endpoint;
        this.resource = resource;
        encoding = endpoint.IsJson ? new OtlpJson() : new OtlpProtobuf();
        Losses = new Losses($"not sent to {endpoint.Name}");
    }

    public Losses Losses { get; }

    public void Write(DrainedSpans drained)
    {
        if (!hasBegun)
        {
            OwnThread.Start("sender", Run, Fail); // may fail, and is tried again with the next ones
            hasBegun = true;
        }
        var dropped = 0;
        lock (queue)
        {
            foreach (var span in drained.Spans)
            {
                if (queue.Count == endpoint.MaxQueue)
                {
                    queue.Dequeue();
                    dropped++;
                }
                queue.Enqueue(span);
            }
        }
        if (dropped > 0)
        {
            Losses.Add(dropped, "they come faster than they can be sent");
        }
        filled.Set();
    }

    public void WriteNothing(string why)
    {
    }

    // What hangs keeps no program from ending.
    public void End(DateTime until)
    {
        if (!hasBegun)
        {
            return;
        }
        end = until;
        ending.Set();
        if (!done.WaitOne(Rest()) && GiveUp() is > 0 and var spans)
        {
            Losses.Add(spans, OtlpClient.NoAnswerBeforeTheEnd);
        }
    }

    // What is left then. A domain that is unloaded ends its threads, also those that have done their work.
    private void Fail(Exception exception)
    {
        if (Waiting() is > 0 and var spans)
        {
            Losses.Add(spans, exception);
        }
    }

    private void Run()
    {
        var awake = new WaitHandle[] { filled, ending };
        try
        {
            bool isEnding;
            do
            {
                WaitHandle.WaitAny(awake);
                AwaitBatch(awake);
                isEnding = ending.WaitOne(0);
                while (Fill())
                {
                    TrySend();
                }
            }
            while (!isEnding);
        }
        finally
        {
            done.Set();
            client?.Dispose();
        }
    }

    // For as long as spans may wait, unless there are enough of them.
    private void AwaitBatch(WaitHandle[] awake)
    {
        var clock = Stopwatch.StartNew();
        while (!HasBatch() && !ending.WaitOne(0) && endpoint.Delay - clock.Elapsed is var rest && rest > TimeSpan.Zero)
        {
            WaitHandle.WaitAny(awake, rest);
        }
    }

    private bool HasBatch()
    {
        lock (queue)
        {
            return queue.Count >= endpoint.MaxBatch;
        }
    }

    private bool Fill()
    {
        lock (queue)
        {
            batch.Clear();
            while (queue.Count > 0 && batch.Count < endpoint.MaxBatch)
            {
                batch.Add(queue.Dequeue());
            }
            return batch.Count > 0;
        }
    }

    private int Waiting()
    {
        lock (queue)
        {
            return queue.Count + batch.Count;
        }
    }

    // A batch that something unforeseen keeps from being sent does not end the sending.
    private void TrySend()
    {
        try
        {
            Send();
        }
        catch (Exception exception)
        {
            Lose(batch.Count, exception.GetType().ToString());
        }
        lock (queue)
        {
            batch.Clear();
        }
    }

    // Until it is accepted or refused for good, or time is over. While the process ends there is one attempt.
    private void Send()
    {
        encoding.Bytes.Clear();
        OtlpTraces.Write(encoding, resource, batch, 0, batch.Count);
        client ??= new OtlpClient(endpoint, encoding.ContentType);
        var body = encoding.Bytes.ToArray();
        var clock = Stopwatch.StartNew();
        var pause = firstPause;
        while (true)
        {
            var isLast = ending.WaitOne(0);
            var answer = client.Post(body, Least(endpoint.Timeout, Rest()));
            if (answer.Rejected > 0)
            {
                Lose((int)Math.Min(answer.Rejected, batch.Count), "the end point rejected them");
            }
            if (answer.IsAccepted)
            {
                break;
            }
            if (isLast || !answer.MayRetry || clock.Elapsed > endpoint.MaxTrying)
            {
                Lose(batch.Count, answer.Why);
                break;
            }
            ending.WaitOne(Least(answer.RetryAfter ?? Jitter(pause), longestPause));
            pause = Least(pause + pause, longestPause);
        }
    }

    // Of the batch. What was given up is counted already.
    private void Lose(int spans, string why)
    {
        bool isFirst;
        lock (queue)
        {
            if (hasGivenUp)
            {
                return;
            }
            batch.RemoveRange(0, spans);
            isFirst = Losses.Count(spans, why);
        }
        if (isFirst)
        {
            Losses.Say(spans, why);
        }
    }

    private int GiveUp()
    {
        lock (queue)
        {
            hasGivenUp = true;
            return queue.Count + batch.Count;
        }
    }

    // Many processes that lost the same end point do not all come back at once.
    private TimeSpan Jitter(TimeSpan pause) => TimeSpan.FromMilliseconds(pause.TotalMilliseconds * (0.5 + random.NextDouble()));

    private TimeSpan Rest()
    {
        var rest = end - DateTime.UtcNow;
        return rest > TimeSpan.Zero ? Least(rest, TimeSpan.FromDays(1)) : TimeSpan.Zero;
    }

    private static TimeSpan Least(TimeSpan one, TimeSpan other) => one < other ? one : other;
}
