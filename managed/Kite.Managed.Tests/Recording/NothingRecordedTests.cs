// Why nothing was recorded of a process that the profiler serves.
using Corvane.Instrumentation.Recording;
using Corvane.Sampling.Platform;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class NothingRecordedTests
{
    private const string NoneChosen =
        "no method was chosen. Methods are chosen for their names, their trace attribute or CORVANE_METHODS, when they are " +
        "compiled. Without CORVANE_STRICT_IL=1 a method that is inlined or precompiled is not seen.";

    private const string Log = " The profiler's log (CORVANE_LOG_FILE) names them.";

    [Theory]
    [InlineData(0, 0, 0, "", NoneChosen)]
    [InlineData(2, 0, 0, "", "none of the instrumented methods (2) was called.")]
    [InlineData(0, 1, 1, "it is odd", "no method was instrumented. Chosen methods that were left unchanged: 1: it is odd." + Log)]
    [InlineData(
        0, 1234, 1000, "it is odd",
        "no method was instrumented. Chosen methods that were left unchanged: 1234, 1000 of them for this reason: it is odd." + Log)]
    [InlineData(
        1, 3, 2, "it is odd",
        "none of the instrumented methods (1) was called. Chosen methods that were left unchanged: 3, 2 of them for this " +
        "reason: it is odd." + Log)]
    public void IsSaidWithTheCommonestReason(int instrumented, int left, int leftForReason, string reason, string expected) =>
        Assert.Equal(expected, NothingRecorded.Why(wasCalled: false, leftOut: false, new InstrumentationOutcome
        {
            Instrumented = instrumented,
            Left = left,
            LeftForReason = leftForReason,
            Reason = reason,
        }));

    [Fact]
    public void IsSaidWhereTheProfilerSaysNothing() =>
        Assert.Equal("no instrumented method was called.", NothingRecorded.Why(wasCalled: false, leftOut: false, null));

    [Fact]
    public void IsThatNoCallHadEnded() => Assert.Equal(
        "no call of an instrumented method had ended.",
        NothingRecorded.Why(wasCalled: true, leftOut: false, new InstrumentationOutcome { Instrumented = 1 }));

    // Whether calls or only requests were left out.
    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void IsTheSampler(bool wasCalled) => Assert.Equal(
        "all traces were left out, as OTEL_TRACES_SAMPLER or the callers of the process decided.",
        NothingRecorded.Why(wasCalled, leftOut: true, new InstrumentationOutcome { Instrumented = 1 }));
}
