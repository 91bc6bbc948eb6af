using System;
using System.Collections.Generic;
using System.Linq;

namespace Corvane.Sampling;

// A file that could not be written.
internal sealed class FileFailure
{
    internal FileFailure(string file, Exception why)
    {
        File = file;
        Why = why;
    }

    internal string File { get; }

    internal Exception Why { get; }

    // Whatever names the file or the moment apart.
    internal string Kind => $"{Why.GetType()} {Why.HResult}";

    // Files that failed alike are together.
    internal static string Text(IEnumerable<FileFailure> failures) => string.Join("; ", failures
        .GroupBy(failure => failure.Why.Message.Replace(failure.File, ""))
        .Select(alike => $"{string.Join(", ", alike.Select(failure => failure.File))}: {alike.First().Why.Message}"));
}
