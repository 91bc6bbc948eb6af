using System.Collections.Generic;

namespace Corvane.Instrumentation.Recording;

// What was written on demand, and what is to be said of it.
internal sealed class Flushed
{
    internal List<string> Files { get; } = [];

    internal List<string> Remarks { get; } = [];
}
