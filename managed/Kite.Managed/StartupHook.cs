using System.IO;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using Corvane.Instrumentation.Control;
using Corvane.Instrumentation.Recording;
using Corvane.Sampling;

// The runtime looks for a class of this name, in no namespace, in each assembly that DOTNET_STARTUP_HOOKS names.
internal static class StartupHook
{
    private const string Trimmed = "kite.managed: nothing will be recorded, because the program was trimmed\n";
    private const int StandardError = 2;

    // What is thrown here would end the program before its Main. A program that was trimmed may have no more of
    // the platform than Object, for which a type in the clause would be too much.
    public static void Initialize()
    {
        try
        {
            Begin();
        }
        catch
        {
            SayTrimmed();
        }
    }

    // To have been called is what matters: the assembly is in the default load context now, where every other
    // context looks for what it does not have. The recorder is made so that there is something to print even
    // if nothing is ever called.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Begin()
    {
        AtExit.IsBeforeMain = true;
        _ = Recorder.Current;
        SamplingAtStart.Begin();
#if NET
        ControlPipe.Begin();
#endif
        AtExit.IsBeforeMain = false;
        OwnVariables.TakeBack();
        LoadMscorlib();
    }

    // Injected code names the platform's types through it, which the program itself may never do. Of a program in
    // a single file the profiler cannot see that it is there until it is loaded. Where it was trimmed away, the
    // profiler's log says so for each method that it leaves.
    private static void LoadMscorlib()
    {
        try
        {
            Assembly.Load("mscorlib");
        }
        catch (FileNotFoundException)
        {
        }
    }

    // There may be no class for the console.
    private static void SayTrimmed()
    {
        try
        {
            WriteOnWindows(StandardError, Trimmed, Trimmed.Length);
        }
        catch
        {
            SayTrimmedElsewhere();
        }
    }

    private static void SayTrimmedElsewhere()
    {
        try
        {
            WriteElsewhere(StandardError, Trimmed, Trimmed.Length);
        }
        catch
        {
            // There is no way left.
        }
    }

    [DllImport("msvcrt", EntryPoint = "_write", CallingConvention = CallingConvention.Cdecl)]
    private static extern int WriteOnWindows(int file, string text, int length);

    [DllImport("libc", EntryPoint = "write", CallingConvention = CallingConvention.Cdecl)]
    private static extern int WriteElsewhere(int file, string text, long length);
}
