using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Threading;
using Corvane.Instrumentation.Conventions;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Recording;

// What the contract's classes forward to: one a process, made when one of them is first used. Everything is
// guarded, for the program must go on as if nothing of this were there. A thread that is in here does not
// come in again: what it would record then is our own doing, or a callback's.
internal sealed class Recorder
{
    // The level of the one line that says that a method's own code is over.
    private const int EndOfOwnCode = 4;

    private static readonly TimeSpan MostWaiting = TimeSpan.FromSeconds(5);

    [ThreadStatic]
    private static bool busy;

    private static readonly object?[] noArguments = new object?[0];

    private readonly CallRecorder calls;
    private readonly TraceLog? log;
    private readonly bool records;
    private readonly Outputs outputs;
    private readonly object writing = new object(); // the files of the record
    private volatile bool hasEnded;
    private volatile bool follows; // what begins and ends, for the record, for observers or for spans
    private int watchesEnd;
    private long failures;

    internal Recorder(MethodTable methods, CallRecorder? calls, TraceLog? log, Outputs outputs = default)
    {
        Methods = methods;
        this.outputs = outputs;
        this.calls = calls ?? CallRecorder.OfNothing(methods);
        this.calls.Observers.Failed = CountFailure;
        if (this.calls.Spans is { } spans)
        {
            spans.Failed = CountFailure;
            spans.Guarded = Guard;
        }
        this.log = log;
        records = calls is { RecordsNothing: false };
        follows = records || calls?.Spans is { IsWanted: true };
    }

    // Where the record goes; null for what nobody asked for.
    internal struct Outputs
    {
        internal OutputTarget? Tree;
        internal OutputTarget? Summary;
        internal Sinks? Sinks;
    }

    // Null if there cannot be one, and while it is made: what loads assemblies for that may run instrumented code.
    internal static Recorder? Current { get; } = Make();

    internal MethodTable Methods { get; }

    internal ArgumentCallbacks Callbacks { get; } = new ArgumentCallbacks();

    // What the injected code or a callback failed at.
    internal long Failures => Interlocked.Read(ref failures);

    internal bool IsIdle => busy || !HasListeners;

    internal bool HasListeners => follows || !Callbacks.IsEmpty || FindsListener();

    // For a thread of the library: nothing that it calls is the program's.
    internal static void PassOverThisThread() => busy = true;

    // Whether the receiver may be looked at: in a method of a value type it may be an address. Asked while it is not
    // idle; it may describe the method, which loads types.
    internal bool HasObjectReceiver(uint index)
    {
        busy = true;
        try
        {
            return Methods.Find(index)?.Signature.HasObjectReceiver == true;
        }
        catch (Exception exception)
        {
            CountFailure(exception);
            return false;
        }
        finally
        {
            busy = false;
        }
    }

    // Once there was an observer, calls are followed to the end of the process: one that was seen to begin may be open
    // for as long. An exception that ends the process ends its calls; where they are recorded, the printing does that.
    internal IDisposable Observe(CallObserver observer)
    {
        if (!records && Interlocked.Exchange(ref watchesEnd, 1) == 0)
        {
            AtExit.Run(FinishWithoutRecord);
        }
        var registration = calls.Observers.Add(observer);
        follows = true;
        return registration;
    }

    // One that is passed over is registered by its next call: describing a method may have to load types,
    // for which the program may be asked.
    internal void Register(uint index, MethodBase? method, bool traced)
    {
        if (busy)
        {
            return;
        }
        busy = true;
        try
        {
            Methods.Register(index, method, traced, describe: records);
        }
        catch (Exception exception)
        {
            CountFailure(exception);
        }
        finally
        {
            busy = false;
        }
    }

    // The call is recorded with the arguments that the method's own code will see.
    internal void Enter(
        uint index, object? receiver, object?[]? arguments, InstrumentationDirectives? directives)
    {
        if (IsIdle)
        {
            return;
        }
        busy = true;
        try
        {
            arguments ??= noArguments;
            if (!Callbacks.IsEmpty && directives != null)
            {
                RunCallbacks(index, receiver, arguments, directives);
            }
            if (follows && !OwnWork.IsCurrent)
            {
                calls.Enter(index, receiver, arguments);
            }
        }
        catch (Exception exception)
        {
            CountFailure(exception);
        }
        finally
        {
            busy = false;
        }
    }

    [MethodImpl(EveryCall.Options)]
    internal void Leave(uint index, object?[]? arguments, object? result)
    {
        if (!follows || busy || OwnWork.IsCurrent)
        {
            return;
        }
        busy = true;
        try
        {
            calls.Leave(index, arguments ?? noArguments, result);
        }
        catch (Exception exception)
        {
            CountFailure(exception);
        }
        finally
        {
            busy = false;
        }
    }

    internal bool Fail(Exception? exception)
    {
        if (!follows || busy || OwnWork.IsCurrent)
        {
            return false;
        }
        busy = true;
        try
        {
            return calls.Fail(exception);
        }
        catch (Exception failure)
        {
            CountFailure(failure);
            return false;
        }
        finally
        {
            busy = false;
        }
    }

    [MethodImpl(EveryCall.Options)]
    internal void Log(int level, string? text)
    {
        if (level == 0 && TellsOfFailure(text))
        {
            Interlocked.Increment(ref failures);
        }
        if (level == EndOfOwnCode)
        {
            Finish();
        }
        if (log == null || busy)
        {
            return;
        }
        busy = true;
        try
        {
            log.Write(level, text);
        }
        catch (Exception)
        {
            Interlocked.Increment(ref failures);
        }
        finally
        {
            busy = false;
        }
    }

    // Whether somebody has begun to listen to the activities of calls. From then on calls are followed. What is asked for
    // that may be instrumented itself.
    [MethodImpl(EveryCall.Options)]
    private bool FindsListener()
    {
        if (calls.Spans is not { CanBeWanted: true } spans || busy)
        {
            return false;
        }
        busy = true;
        var isWanted = spans.IsWanted;
        busy = false;
        if (isWanted)
        {
            follows = true;
        }
        return isWanted;
    }

    // What the end of a task runs here is no work of the program, on whose thread it runs.
    private void Guard(Action run)
    {
        var before = busy;
        busy = true;
        try
        {
            run();
        }
        catch (Exception exception)
        {
            CountFailure(exception);
        }
        finally
        {
            busy = before;
        }
    }

    [MethodImpl(EveryCall.Options)]
    private void Finish()
    {
        if (!follows || busy)
        {
            return;
        }
        busy = true;
        try
        {
            if (calls.AwaitsFinish && !OwnWork.IsCurrent)
            {
                calls.Finish();
            }
        }
        catch (Exception failure)
        {
            CountFailure(failure);
        }
        finally
        {
            busy = false;
        }
    }

    // Nothing that the printing calls is recorded. It may be a callback that ends the process.
    internal void Print()
    {
        var before = busy;
        busy = true;
        var isMine = Monitor.TryEnter(writing, MostWaiting);
        hasEnded = true;
        try
        {
            FinishCalls();
            var leftOut = outputs.Sinks is { HasLeftOut: true };
            var reason = calls.HasCalls || outputs.Sinks is { HasSpans: true } ? null : NothingRecorded.Reason(Methods, leftOut);
            if (reason != null)
            {
                Complaint.Write(reason.Text);
            }
            // A process that the profiler does not serve has nothing to put in place of another one's file.
            if (reason is not { IsServed: false })
            {
                outputs.Tree?.Write(writer => CallTree.Write(writer, calls, Failures, reason?.Text));
                outputs.Summary?.Write(writer => calls.Summary!.Write(writer, Methods, reason?.Text));
                outputs.Sinks?.ReplaceFiles(reason?.Text ?? NothingRecorded.NoSpan(leftOut));
            }
            outputs.Sinks?.End();
        }
        finally
        {
            if (isMine)
            {
                Monitor.Exit(writing);
            }
            busy = before;
        }
    }

    // Writes all files as if the process ended, for a thread of the library.
    internal void Flush(Flushed flushed)
    {
        lock (writing)
        {
            if (hasEnded)
            {
                flushed.Remarks.Add("the process is ending, and its files are written");
                return;
            }
            Flush(outputs.Tree, writer => CallTree.Write(writer, calls, Failures), flushed);
            Flush(outputs.Summary, writer => calls.Summary!.Write(writer, Methods), flushed);
            outputs.Sinks?.Flush(flushed);
        }
    }

    private static void Flush(OutputTarget? target, Action<TextWriter> write, Flushed flushed)
    {
        if (target is not { IsFile: true })
        {
            return;
        }
        if (target.Write(write))
        {
            flushed.Files.Add(target.Name);
        }
        else
        {
            flushed.Remarks.Add($"nothing was written to {target.Name}; standard error of the process has the reason");
        }
    }

    // The table of now, for a thread of the library. Null if there is none.
    internal string? Summary()
    {
        if (calls.Summary == null)
        {
            return null;
        }
        var text = new StringWriter();
        calls.Summary.Write(text, Methods);
        return text.ToString();
    }

    // Where a trimmed program lacks what that takes, the file is written at the end alone.
    private void BeginToRenewSummary(OutputTarget file)
    {
        try
        {
            StartToRenewSummary(file);
        }
        catch (Exception)
        {
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private void StartToRenewSummary(OutputTarget file) => OwnThread.Start("summary", () => RenewSummary(file), _ => { });

    // Until the process ends; one that is killed leaves the table of half a second before.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private void RenewSummary(OutputTarget file)
    {
        string? last = null;
        while (!hasEnded)
        {
            Thread.Sleep(Exporter.Interval);
            if (calls.Summary!.IsEmpty || Summary() is not { } text || text == last)
            {
                continue;
            }
            lock (writing)
            {
                if (!hasEnded)
                {
                    file.Renew(last = text);
                }
            }
        }
    }

    private void FinishWithoutRecord()
    {
        var before = busy;
        busy = true;
        FinishCalls();
        busy = before;
    }

    private void FinishCalls()
    {
        try
        {
            calls.FinishAll();
        }
        catch (Exception exception)
        {
            CountFailure(exception);
        }
    }

    // A call that a callback cannot be told about whole is not shown to it.
    private void RunCallbacks(
        uint index, object? receiver, object?[] arguments, InstrumentationDirectives directives)
    {
        var method = Methods.Find(index);
        if (method != null && method.Signature.ParameterCount == arguments.Length)
        {
            Callbacks.Run(method, receiver, arguments, directives, CountFailure);
        }
    }

    private void CountFailure(Exception exception)
    {
        Interlocked.Increment(ref failures);
        log?.Write(0, $"kite.managed: {exception.GetType()}");
        if (exception is ThreadInterruptedException)
        {
            Thread.CurrentThread.Interrupt(); // of the program's next wait, which it was meant for
        }
    }

    // The injected code's two texts: one begins so, the other one has a block's name in front.
    private static bool TellsOfFailure(string? text) =>
        text != null && (text.StartsWith("Failed ", StringComparison.Ordinal) ||
                         text.IndexOf(" Failed ", StringComparison.Ordinal) >= 0);

    private static Recorder? Make()
    {
        try
        {
            return FromEnvironment();
        }
        catch (Exception exception)
        {
            Complaint.Write("nothing will be recorded", exception);
            return null;
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static Recorder FromEnvironment()
    {
        var methods = new MethodTable();
        var values = RecordedValuesVariable.Read();
        var tree = OutputTarget.FromVariable("CORVANE_CALL_TREE");
        var trace = OutputTarget.FromVariable("CORVANE_TRACE_LOG");
        var summary = OutputTarget.FromVariable("CORVANE_SUMMARY");
        var records = tree != null || summary != null;
        var sinks = Sinks.FromEnvironment();
        var spans = MakeSpanRecorder(values, sinks);
        var calls = new CallRecorder(
            methods, values, tree != null ? CallLimit() : null, summary != null ? new CallSummary() : null, spans);
        var outputs = new Outputs { Tree = tree, Summary = summary, Sinks = sinks };
        var recorder = new Recorder(methods, calls, trace == null ? null : new TraceLog(trace), outputs);
        Rehearse(records, sumsUp: summary != null, hasSpans: sinks != null);
        if (sinks != null && NothingRecorded.IsProfilerHere())
        {
            spans.ListenToPlatform(SourceNames.FromEnvironment());
        }
        if (records || sinks != null)
        {
            AtExit.Run(recorder.Print);
        }
        if (summary is { IsFile: true })
        {
            recorder.BeginToRenewSummary(summary);
        }
        return recorder;
    }

    // What only a listener in the program would want waits until there can be one.
    private static SpanRecorder MakeSpanRecorder(RecordedValues values, Sinks? sinks)
    {
        var activities = sinks != null ? ProgramActivities.Load() : ProgramActivities.Await();
        return new SpanRecorder(values, sinks?.Spans, sinks?.Sampler, KnownMethods.FindIfPossible, activities);
    }

    // What a trimmed program lacks is to be found now, not in the midst of a call or at the end. All of a method
    // is compiled before any of it runs.
    private static void Rehearse(bool records, bool sumsUp, bool hasSpans)
    {
        var methods = new MethodTable();
        var recorder = new Recorder(methods, null, null);
        recorder.Register(0, null, traced: false);
        recorder.Enter(0, null, null, null);
        recorder.Leave(0, null, null);
        recorder.Fail(null);
        recorder.Log(4, null);
        if (records)
        {
            RehearseRecording(sumsUp);
        }
        if (hasSpans)
        {
            SpanRecorder.Rehearse();
        }
    }

    private static void RehearseRecording(bool sumsUp)
    {
        var methods = new MethodTable();
        var calls = new CallRecorder(methods, RecordedValues.All, summary: sumsUp ? new CallSummary() : null);
        object?[] arguments = { 0u };
        methods.Register(0, typeof(Invokers).GetMethod(nameof(Invokers.ContainsKey)), traced: false);
        calls.Enter(0, null, arguments);
        calls.Leave(0, arguments, "user=name");
        calls.Enter(0, null, arguments);
        calls.Fail(new InvalidOperationException());
        calls.Finish();
        CallTree.Write(new StringWriter(), calls, 0);
        calls.Summary?.Write(new StringWriter(), methods);
    }

    // A limit that is no number is as good as none.
    private static int CallLimit() =>
        int.TryParse(Environment.GetEnvironmentVariable("CORVANE_CALL_LIMIT"), NumberStyles.None, CultureInfo.InvariantCulture, out var limit)
            ? limit
            : CallRecorder.DefaultCapacity;
}
