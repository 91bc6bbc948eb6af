using System;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Spans;

// While anybody samples, calls that begin a trace take more: they name what their thread is busy with.
[Collection(nameof(WholeProcess))]
public class SpanCostTests
{
    // What a call takes, with two arguments and values off.
    [Fact]
    public void ASpanTakesAtMostTwoHundredBytes()
    {
        var discarding = new Discarding();
        var methods = new MethodTable();
        var spans = new SpanRecorder(RecordedValues.None, discarding, activities: ProgramActivities.Load());
        var recorder = new Recorder(methods, CallRecorder.OfNothing(methods, spans), null);
        recorder.Register(0, typeof(Work).GetMethod("Add"), traced: true);
        object?[] arguments = [1, 2];
        var directives = new InstrumentationDirectives();
        object result = 3;
        const int Calls = 1000;
        long bytes = 0;
        for (var round = 0; round < 3; round++)
        {
            var before = GC.GetAllocatedBytesForCurrentThread();
            for (var call = 0; call < Calls; call++)
            {
                recorder.Enter(0, null, arguments, directives);
                recorder.Log(4, null);
                recorder.Leave(0, arguments, result);
            }
            bytes = GC.GetAllocatedBytesForCurrentThread() - before;
        }
        Assert.Equal(3 * Calls, discarding.Count);
        Assert.InRange(bytes / Calls, 100, Library.IsForNet ? 200 : 300);
    }

    private sealed class Discarding : ISpanSink
    {
        internal int Count { get; private set; }

        public void OnBegun(Span span)
        {
        }

        public void OnEnded(Span span) => Count++;
    }
}
