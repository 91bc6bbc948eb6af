using System;

namespace Corvane.Instrumentation.Export;

// Where spans go. Called by one thread.
internal interface ISpanTarget
{
    Losses Losses { get; }

    void Write(DrainedSpans drained);

    // Nothing comes any more. Work that is left is done by then, or given up.
    void End(DateTime until);
}
