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

    // Empty for all of them.
    internal string File { get; }

    internal Exception Why { get; }

    // Whatever names the file or the moment apart.
    internal string Kind => $"{Why.GetType()} {Why.HResult}";

    // Files that failed alike are together.
    internal static string Text(IEnumerable<FileFailure> failures) => string.Join("; ", failures
        .GroupBy(failure => failure.File.Length == 0 ? failure.Why.Message : failure.Why.Message.Replace(failure.File, ""))
        .Select(alike => string.Join(", ", alike.Select(failure => failure.File).Where(file => file.Length > 0)) is { Length: > 0 } names
            ? $"{names}: {alike.First().Why.Message}"
            : alike.First().Why.Message));
}
