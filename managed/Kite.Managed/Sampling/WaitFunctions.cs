using System;

namespace Corvane.Sampling;

// The platform's functions in which threads wait. A thread that is woken now and then has used some processor time
// since its last snapshot, although it waits again at this one.
internal static class WaitFunctions
{
    // The type, and how its method begins: what the runtime compiles into which differs by version.
    private static readonly (string Type, string Method)[] known =
    {
        ("System.Threading.WaitHandle", "Wait"),
        ("System.Threading.WaitHandle", "SignalAndWait"),
        ("System.Threading.Thread", "Sleep"),
        ("System.Threading.Thread", "Join"),
        ("System.Threading.Monitor", "Wait"),
        ("System.Threading.Monitor", "ObjWait"),
        ("System.Threading.Monitor", "Enter"),
        ("System.Threading.Monitor", "ReliableEnter"),
        ("System.Threading.Monitor", "TryEnter"),
        ("System.Threading.LowLevelLifoSemaphore", "Wait"),
        ("System.Threading.LowLevelMonitor", "Wait"),
        ("Kernel32", "GetQueuedCompletionStatus"),
        ("Kernel32", "SleepConditionVariable"),
        ("Winsock", "select"),
        ("Winsock", "WSAPoll"),
    };

    internal static bool Contains(string? type, string? method) =>
        method != null && Array.Exists(known, one => one.Type == type && method.StartsWith(one.Method, StringComparison.Ordinal));
}
