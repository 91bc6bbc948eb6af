using System;
using System.Threading;

namespace Corvane.Instrumentation.Spans;

// Whether the program can listen to activities: the platform has them, the program was not trimmed of what they take,
// and it has loaded their assembly. Most programs do not, and loading it would be a good part of their start.
internal sealed class ProgramActivities
{
    private const string AssemblyName = "System.Diagnostics.DiagnosticSource";

    private const int NotLoaded = 0;
    private const int Loaded = 1;
    private const int Tried = 2; // by one thread, now; the others go on without
    private const int Usable = 3;
    private const int Absent = 4;

    private int state;

    private ProgramActivities(int state) => this.state = state;

    // Whoever asks may become the one who tries them for the first time. None of that is to be recorded.
    internal bool AreUsable => Volatile.Read(ref state) is var now && (now == Usable || (now == Loaded && Try()));

    internal bool MayBeUsable => Volatile.Read(ref state) is Loaded or Tried or Usable;

    internal static ProgramActivities None { get; } = new ProgramActivities(Absent);

    // Tried at once, for those who record what the program does in any case.
    internal static ProgramActivities Load()
    {
        var activities = new ProgramActivities(Loaded);
        activities.Try();
        return activities;
    }

    // Not before the program has loaded them by itself.
    internal static ProgramActivities Await()
    {
#if NET
        var activities = new ProgramActivities(NotLoaded);
        AppDomain.CurrentDomain.AssemblyLoad += activities.Notice;
        foreach (var assembly in AppDomain.CurrentDomain.GetAssemblies())
        {
            activities.Notice(assembly.FullName);
        }
        return activities;
#else
        return None;
#endif
    }

#if NET
    // On whatever thread, in the midst of loading.
    private void Notice(object? sender, AssemblyLoadEventArgs arguments) => Notice(arguments.LoadedAssembly.FullName);

    private void Notice(string? name)
    {
        if (name?.StartsWith(AssemblyName + ",", StringComparison.Ordinal) == true &&
            Interlocked.CompareExchange(ref state, Loaded, NotLoaded) == NotLoaded)
        {
            AppDomain.CurrentDomain.AssemblyLoad -= Notice;
        }
    }
#endif

    private bool Try()
    {
        if (Interlocked.CompareExchange(ref state, Tried, Loaded) != Loaded)
        {
            return Volatile.Read(ref state) == Usable;
        }
        var isThere = IsThere();
        Volatile.Write(ref state, isThere ? Usable : Absent);
        return isThere;
    }

    private static bool IsThere()
    {
#if NET
        try
        {
            SpanRecorder.Rehearse();
            CallActivities.Rehearse();
            return true;
        }
        catch (Exception)
        {
            // Trimmed: nobody can listen.
            return false;
        }
#else
        return false;
#endif
    }
}
