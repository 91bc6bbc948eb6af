using System;

namespace Corvane.Instrumentation.Export;

// Where spans go. Called by one thread.
internal interface ISpanTarget
{
    Losses Losses { get; }

    void Write(DrainedSpans drained);

    // Nothing came at all, for a reason that is said.
    void WriteNothing(string why);

    // Nothing comes any more. Work that is left is done by then, or given up.
    void End(DateTime until);
}
