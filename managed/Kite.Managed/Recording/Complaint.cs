using System;
using System.IO;
using System.Runtime.CompilerServices;

namespace Corvane.Instrumentation.Recording;

// What cannot be done, in one line on standard error, where nothing is said otherwise. A program that was
// trimmed lacks what it does not use itself. That shows when a method of ours is compiled: a method that may
// lack something is called from another one, which catches what that throws.
internal static class Complaint
{
    internal static void Write(string what, Exception? why = null)
    {
        try
        {
            WriteLine(Line(what, why));
        }
        catch (Exception)
        {
            // There is nobody left to tell, or no way to.
        }
    }

    internal static string Line(string what, Exception? why)
    {
        var reason = why == null ? "" : $"{(IsLack(why) ? ", because the program was trimmed" : "")}: {why.Message}";
        return $"kite.managed: {what}{reason}".Replace("\r", "").Replace('\n', ' ');
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void WriteLine(string line)
    {
        using var writer = new StreamWriter(Console.OpenStandardError());
        writer.WriteLine(line);
    }

    private static bool IsLack(Exception why) => why switch
    {
        TypeInitializationException { InnerException: { } inner } => IsLack(inner),
        DllNotFoundException or EntryPointNotFoundException => false, // the system's
        FileNotFoundException missing => missing.FileName?.Contains(", Version=") == true, // an assembly
        IOException { InnerException: { } inner } => IsLack(inner),
        _ => why is TypeLoadException or MissingMemberException,
    };
}
