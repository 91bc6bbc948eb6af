using System;

namespace Corvane.Instrumentation.Recording;

// What a launcher set for one process is not for the programs that this one starts. By now everybody has read it. The
// variable says what stood there before, in lines: NAME=VALUE, or NAME of what did not.
internal static class OwnVariables
{
    internal const string Variable = "CORVANE_RESTORE";

    internal static void TakeBack()
    {
        try
        {
            // Where the profiler is missing, the end of the process says why, and that is in the variables.
            if (Environment.GetEnvironmentVariable(Variable) is { Length: > 0 } text && NothingRecorded.IsProfilerHere())
            {
                TakeBack(text, Environment.SetEnvironmentVariable);
            }
        }
        catch (Exception)
        {
            // A child then has the variables, too.
        }
    }

    internal static void TakeBack(string text, Action<string, string?> set)
    {
        foreach (var line in text.Split('\n'))
        {
            var equals = line.IndexOf('=');
            if (line.Length > 0 && equals != 0)
            {
                set(equals < 0 ? line : line.Substring(0, equals), equals < 0 ? null : line.Substring(equals + 1));
            }
        }
        set(Variable, null);
    }
}
