using System;
using System.Runtime.InteropServices;

/// <summary>What the tests ask the system itself.</summary>
internal static unsafe class Platform
{
    /// <summary>The system's id of the calling thread.</summary>
    [DllImport("kernel32.dll")]
    [SuppressGCTransition]
    public static extern uint GetCurrentThreadId();

    /// <summary>Sleeps outside the runtime.</summary>
    [DllImport("kernel32.dll")]
    public static extern void Sleep(int milliseconds);

    /// <summary>Signals one event from outside the runtime, and waits there for another.</summary>
    [DllImport("kernel32.dll")]
    public static extern uint SignalObjectAndWait(SafeHandle signalled, SafeHandle awaited, int milliseconds, int isAlertable);

    /// <summary>The heap that native code of this process uses, and its functions.</summary>
    [DllImport("kernel32.dll")]
    public static extern nint GetProcessHeap();

    /// <inheritdoc cref="GetProcessHeap"/>
    [DllImport("kernel32.dll")]
    public static extern nint HeapAlloc(nint heap, uint flags, nuint size);

    /// <inheritdoc cref="GetProcessHeap"/>
    [DllImport("kernel32.dll")]
    public static extern int HeapFree(nint heap, uint flags, nint memory);

    /// <summary>How often a thread is suspended, and stays so: the runtime itself suspends threads for moments. Nobody
    /// is suspended to find out: two threads that do that to each other wait for ever.</summary>
    public static uint SuspendCount(uint thread)
    {
        const uint QueryInformation = 0x40;
        const int ThreadSuspendCount = 35;
        nint handle = OpenThread(QueryInformation, 0, thread);
        uint count = Look();
        for (int again = 0; again < 100 && count != 0; again++)
        {
            Sleep(10);
            count = Look();
        }
        CloseHandle(handle);
        return count;

        uint Look() => NtQueryInformationThread(handle, ThreadSuspendCount, out uint suspended, sizeof(uint), 0) == 0
            ? suspended
            : throw new NotSupportedException();
    }

    /// <summary>Handles that this process has open.</summary>
    public static uint Handles()
    {
        return GetProcessHandleCount(-1, out uint count) != 0 ? count : throw new NotSupportedException();
    }

    /// <summary>Bytes of memory that are this process's own.</summary>
    public static nuint Memory()
    {
        var counters = new MemoryCounters { Size = (uint)sizeof(MemoryCounters) };
        return K32GetProcessMemoryInfo(-1, &counters, counters.Size) != 0 && counters.PagefileUsage != 0
            ? counters.PagefileUsage
            : throw new NotSupportedException();
    }

    /// <summary>Lets memory of an image be written.</summary>
    public static void MakeWritable(void* memory, nuint size)
    {
        const uint ReadWrite = 4;
        if (VirtualProtect(memory, size, ReadWrite, out _) == 0)
        {
            throw new NotSupportedException();
        }
    }

    [StructLayout(LayoutKind.Sequential)]
    private struct MemoryCounters
    {
        public uint Size;
        public uint PageFaultCount;
        public nuint PeakWorkingSetSize;
        public nuint WorkingSetSize;
        public nuint QuotaPeakPagedPoolUsage;
        public nuint QuotaPagedPoolUsage;
        public nuint QuotaPeakNonPagedPoolUsage;
        public nuint QuotaNonPagedPoolUsage;
        public nuint PagefileUsage;
        public nuint PeakPagefileUsage;
    }

    [DllImport("kernel32.dll")]
    private static extern nint OpenThread(uint access, int isInheritable, uint thread);

    [DllImport("ntdll.dll")]
    private static extern int NtQueryInformationThread(nint thread, int what, out uint value, int size, nint returned);

    [DllImport("kernel32.dll")]
    private static extern int VirtualProtect(void* memory, nuint size, uint protection, out uint former);

    [DllImport("kernel32.dll")]
    private static extern int CloseHandle(nint handle);

    [DllImport("kernel32.dll")]
    private static extern int GetProcessHandleCount(nint process, out uint count);

    [DllImport("kernel32.dll")]
    private static extern int K32GetProcessMemoryInfo(nint process, MemoryCounters* counters, uint size);
}
