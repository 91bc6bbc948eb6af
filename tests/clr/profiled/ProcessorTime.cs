using System.Runtime.InteropServices;

/// <summary>What the system says that a thread has had of a processor.</summary>
internal static class ProcessorTime
{
    /// <summary>Of this thread, in milliseconds.</summary>
    public static double OfThread() =>
        GetThreadTimes(GetCurrentThread(), out _, out _, out long kernel, out long user) ? (kernel + user) / 10_000.0 : 0;

    [DllImport("kernel32.dll")]
    private static extern nint GetCurrentThread();

    [DllImport("kernel32.dll")]
    private static extern bool GetThreadTimes(nint thread, out long made, out long ended, out long kernel, out long user);
}
