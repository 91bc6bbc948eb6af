using System;
using System.Reflection;
using Corvane.Instrumentation.Recording;

// The runtime looks for a class of this name, in no namespace, in each assembly that DOTNET_STARTUP_HOOKS names.
internal static class StartupHook
{
    // Having been called is most of it: the assembly is loaded now, where every load context looks that does
    // not find it in its own place. The event is for the binds that miss it there.
    public static void Initialize()
    {
        try
        {
            AppDomain.CurrentDomain.AssemblyResolve += (_, wanted) => Resolve(wanted.Name);
            // From here on there is something to print, even if nothing is ever called.
            _ = Recorder.Current;
        }
        catch (Exception)
        {
            // The program starts without it then.
        }
    }

    private static Assembly? Resolve(string wanted)
    {
        var own = typeof(StartupHook).Assembly;
        return string.Equals(wanted, own.FullName, StringComparison.Ordinal) ? own : null;
    }
}
