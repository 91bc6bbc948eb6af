using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation.Observing;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Recording;

// Records calls, each under the one that its thread was in, and sums them up by method. Ends are matched to beginnings by the methods'
// numbers, so that an end that goes missing costs one call its outcome and no more; an end without a
// beginning is a call too. Any thread; threads share two counters and nothing else. Memory is bounded: of
// calls beyond the capacity only the number is kept.
internal sealed class CallRecorder
{
    internal const int DefaultCapacity = 100_000;

    private static readonly object unknown = new object();

    // Of the recorder that the thread called last: a process has one.
    [ThreadStatic]
    private static ThreadCalls? latest;

    private readonly MethodTable methods;
    private readonly RecordedValues values;
    private readonly int? capacity;
    private readonly object identity = new object(); // for what threads keep: that would keep the recorder itself as well
    private readonly ThreadLocal<ThreadCalls> current;
    private readonly List<ThreadCalls> threads = new List<ThreadCalls>();
    private long seen;

    // With null for the capacity only the summary is kept.
    internal CallRecorder(
        MethodTable methods, RecordedValues values, int? capacity = DefaultCapacity, CallSummary? summary = null,
        SpanRecorder? spans = null)
    {
        this.methods = methods;
        this.values = values;
        this.capacity = capacity;
        Summary = summary;
        Spans = spans;
        Observers = new CallObservers(methods);
        current = new ThreadLocal<ThreadCalls>(() => new ThreadCalls(identity));
    }

    // One that only makes spans, if anything, and shows calls to observers.
    internal static CallRecorder OfNothing(MethodTable methods, SpanRecorder? spans = null) =>
        new CallRecorder(methods, RecordedValues.None, capacity: null, spans: spans);

    internal CallSummary? Summary { get; }

    internal SpanRecorder? Spans { get; }

    internal CallObservers Observers { get; }

    // Whether any call began or ended.
    internal bool HasCalls => Interlocked.Read(ref seen) > 0 || Summary is { IsEmpty: false };

    internal long Recorded => Math.Min(Interlocked.Read(ref seen), capacity ?? 0);

    internal long Dropped => Interlocked.Read(ref seen) - Recorded;

    // The time is taken last when a call begins and first when it ends, for its duration is to be the program's.
    internal void Enter(uint index, object? receiver, object?[] arguments)
    {
        var thread = Mine;
        var hasSpans = Spans is { IsWanted: true };
        if (RecordsNothing && !hasSpans && Observers.IsEmpty && thread.IsIdle)
        {
            return;
        }
        // Whoever shows neither values nor messages need not know.
        var isSecret = (ShowsValues || (hasSpans && Spans!.ShowsMessages)) && CallText.AreSecret(SignatureOf(index), arguments);
        var call = thread.Open(index, Record(thread, index, receiver, arguments, isSecret), isSecret);
        if (thread.HasLost)
        {
            ShowLost(thread);
        }
        if (!Observers.IsEmpty)
        {
            call.Observed = Observers.Begin(index, receiver, arguments);
        }
        if (hasSpans)
        {
            Spans!.Begin(ref call.Span, index, methods.Find(index), receiver, arguments);
        }
        if (call.Call != null || Summary != null || call.Span.Span != null)
        {
            call.Start(Stopwatch.GetTimestamp());
        }
    }

    internal void Leave(uint index, object?[] arguments, object? result)
    {
        var now = Stopwatch.GetTimestamp();
        var thread = Mine;
        var call = thread.Close(index);
        if (thread.HasLost)
        {
            ShowLost(thread);
        }
        if (call?.Observed != null)
        {
            Observers.End(call.Observed, result);
        }
        var isSecret = call is { IsSecret: true } || (ShowsValues && CallText.AreSecret(SignatureOf(index), arguments));
        var recorded = call != null ? call.Call : Record(thread, index, null, arguments, isSecret);
        if (recorded != null)
        {
            End(thread, recorded, CallText.Result(thread.Text, recorded.Method, result, values, isSecret), now);
        }
        if (ShowsMessages)
        {
            HideFailure(index, isSecret, result);
        }
        if (call == null)
        {
            return;
        }
        if (call.Span.Span != null)
        {
            if (call.HasFailed)
            {
                Spans!.TakeBackFailure(call.Span.Span);
            }
            else
            {
                Spans!.Return(call.Span, methods.Find(index)?.Signature, arguments, result, now);
            }
        }
        if (call.HasFailed)
        {
            Summary?.TakeBackError(index);
        }
        else if (call.Started != 0)
        {
            Summary?.Add(index, now - call.Started, failed: false);
        }
        call.Clear();
    }

    // Whether there is a call that the exception leaves. It ends when its method's own code is over: until then the
    // method's finally blocks may still make calls. One that never gets there, because nothing handles the exception,
    // ends here.
    internal bool Fail(Exception? exception)
    {
        var now = Stopwatch.GetTimestamp();
        var thread = Mine;
        if (thread.Note(exception ?? unknown) is not { } call)
        {
            return false;
        }
        if (exception != null && ShowsMessages && (call.IsSecret || SignatureOf(call.Index).HasSecrets))
        {
            SecretExceptions.Add(exception);
        }
        if (call.Call != null)
        {
            End(thread, call.Call, CallText.Exception(thread.Text, exception, values), now);
        }
        if (call.Span.Span != null)
        {
            Spans!.Note(call.Span, exception);
        }
        return true;
    }

    // Whether this thread's last exception left a call whose own code is over next.
    internal bool AwaitsFinish => Mine.AwaitsFinish;

    // The own code of the innermost call is over.
    internal void Finish()
    {
        var thread = Mine;
        if (thread.CloseNoted() is not { } call)
        {
            return;
        }
        var now = Stopwatch.GetTimestamp();
        if (call.Observed != null)
        {
            Observers.Error(call.Observed, call.Note as Exception);
        }
        if (call.Span.Span != null)
        {
            Spans!.End(call.Span, now);
        }
        if (call.Call != null)
        {
            End(thread, call.Call, call.Call.Outcome, now);
        }
        Summary?.Add(call.Index, now - call.Started, failed: true);
        call.Clear();
    }

    // This thread is in the exception that ends the process: what it would leave does not end any more.
    internal void FinishAll()
    {
        while (Mine.IsInnermostNoted)
        {
            Finish();
        }
    }

    internal ThreadCalls[] Threads()
    {
        lock (threads)
        {
            return threads.ToArray();
        }
    }

    // In lines of the tree.
    private bool ShowsValues => capacity != null && values != RecordedValues.None;

    private ThreadCalls Mine => latest is { } thread && thread.Owner == identity ? thread : latest = current.Value!;

    private bool ShowsMessages => values == RecordedValues.All || Spans is { ShowsMessages: true };

    internal bool RecordsNothing => capacity == null && Summary == null;

    // Calls of which no end was seen, and none will be.
    private void ShowLost(ThreadCalls thread)
    {
        foreach (var call in thread.TakeLost())
        {
            if (call.Observed != null)
            {
                Observers.Error(call.Observed, null);
            }
            if (call.Span.Span != null)
            {
                Spans!.Lose(call.Span.Span, Stopwatch.GetTimestamp());
            }
        }
    }

    // What a task fails with has left the call that returned it.
    private void HideFailure(uint index, bool isSecret, object? result)
    {
        var task = result as Task;
        if (result is ValueType && SignatureOf(index).WorkEnd == WorkEnd.ValueTask)
        {
            TaskOutcome.TryFindTask(result, out task);
        }
        if (task != null && (isSecret || SignatureOf(index).HasSecrets))
        {
            SecretExceptions.Add(task, Spans?.Guarded ?? (run => run()));
        }
    }

    private MethodSignature SignatureOf(uint index) => methods.Find(index)?.Signature ?? MethodSignature.Of(index, null);

    private static void End(ThreadCalls thread, Call call, string? outcome, long now)
    {
        lock (thread.Gate)
        {
            call.End(outcome, now);
        }
    }

    private Call? Record(ThreadCalls thread, uint index, object? receiver, object?[] arguments, bool isSecret)
    {
        if (capacity == null || Interlocked.Increment(ref seen) > capacity)
        {
            return null;
        }
        if (thread.Number == 0)
        {
            Register(thread);
        }
        var method = SignatureOf(index);
        var call = new Call(method, CallText.Arguments(thread.Text, method, receiver, arguments, values, isSecret));
        lock (thread.Gate)
        {
            thread.Innermost.Add(call);
        }
        return call;
    }

    private void Register(ThreadCalls thread)
    {
        thread.Name = Thread.CurrentThread.Name;
        lock (threads)
        {
            threads.Add(thread);
            thread.Number = threads.Count;
        }
    }
}
