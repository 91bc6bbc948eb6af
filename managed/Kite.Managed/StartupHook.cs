using Corvane.Instrumentation.Recording;
using Corvane.Sampling;

// The runtime looks for a class of this name, in no namespace, in each assembly that DOTNET_STARTUP_HOOKS names.
internal static class StartupHook
{
    // To have been called is what matters: the assembly is in the default load context now, where every other
    // context looks for what it does not have. The recorder is made so that there is something to print even
    // if nothing is ever called.
    public static void Initialize()
    {
        _ = Recorder.Current;
        SamplingAtStart.Begin();
    }
}
