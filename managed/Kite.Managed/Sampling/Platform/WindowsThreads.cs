using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;

namespace Corvane.Sampling.Platform;

// The threads of this process, as Windows tells them. No state but open handles.
internal sealed class WindowsThreads : IProcessThreads
{
    private const uint SnapThreads = 4;
    private const uint Synchronize = 0x100000;
    private const uint QueryLimitedInformation = 0x800;
    private const uint ClockPeriod = 1;
    private static readonly IntPtr invalidHandle = new IntPtr(-1);

    // Cycles of a processor: less than a tenth of a millisecond.
    private static readonly ProcessorClock cycles = new ProcessorClock(noise: 200_000, grain: TimeSpan.Zero);

    // Where cycles are not counted, ticks of a hundredth of a second are, those in the system apart from the others.
    private static readonly ProcessorClock ticks = new ProcessorClock(noise: 0, grain: TimeSpan.FromMilliseconds(30));

    private readonly uint process = GetCurrentProcessId();
    private readonly uint mainThread;
    private readonly ThreadNames names = new ThreadNames(Describe);

    // The main thread is one that nobody names; zero if it is not known.
    internal WindowsThreads(uint mainThread = 0) => this.mainThread = mainThread;

    public uint CurrentId => GetCurrentThreadId();

    public ProcessorClock ProcessorClock { get; } = HasCycles ? cycles : ticks;

    private static bool HasCycles { get; } = QueryThreadCycleTime(GetCurrentThread(), out var count) && count > 0;

    public List<uint>? Ids()
    {
        var ids = new List<uint>();
        // There is no cheaper list: this one is of the whole system.
        var list = CreateToolhelp32Snapshot(SnapThreads, 0);
        if (list == invalidHandle)
        {
            return null; // for lack of memory, perhaps
        }
        try
        {
            var entry = new ThreadEntry { Size = (uint)Marshal.SizeOf<ThreadEntry>() };
            for (var more = Thread32First(list, ref entry); more; more = Thread32Next(list, ref entry))
            {
                if (entry.ProcessId == process)
                {
                    ids.Add(entry.ThreadId);
                }
            }
        }
        finally
        {
            CloseHandle(list);
        }
        return ids;
    }

    public IOpenThread? Open(uint id)
    {
        var handle = OpenThread(Synchronize | QueryLimitedInformation, false, id);
        if (handle == IntPtr.Zero)
        {
            return null;
        }
        // By now the id may be that of another process's thread, which must not be sampled.
        if (GetProcessIdOfThread(handle) == process)
        {
            return new OpenedThread(handle, names, id == mainThread ? "main" : null);
        }
        CloseHandle(handle);
        return null;
    }

    public IDisposable? SharpenClock() => timeBeginPeriod(ClockPeriod) == 0 ? new SharpClock() : null;

    private static string? Describe(IntPtr thread)
    {
        if (GetThreadDescription(thread, out var text) < 0)
        {
            return null;
        }
        var name = Marshal.PtrToStringUni(text);
        LocalFree(text);
        return name;
    }

    private sealed class SharpClock : IDisposable
    {
        public void Dispose() => timeEndPeriod(ClockPeriod);
    }

    private sealed class OpenedThread : IOpenThread
    {
        private readonly IntPtr handle;
        private readonly ThreadNames names;
        private readonly string? usualName;

        internal OpenedThread(IntPtr handle, ThreadNames names, string? usualName)
        {
            this.handle = handle;
            this.names = names;
            this.usualName = usualName;
        }

        public bool HasEnded => WaitForSingleObject(handle, 0) == 0;

        public ulong? ProcessorTime
        {
            get
            {
                if (HasCycles)
                {
                    return !HasEnded && QueryThreadCycleTime(handle, out var count) ? count : null;
                }
                // One call for both, where each is a request to another process.
                return Ticks;
            }
        }

        public TimeSpan? Used => Ticks is { } ticks ? TimeSpan.FromTicks((long)ticks) : null;

        public string? Name => names.Of(handle) is { Length: > 0 } name ? name : usualName;

        public void Dispose() => CloseHandle(handle);

        private ulong? Ticks =>
            GetThreadTimes(handle, out _, out var ended, out var kernel, out var user) && ended == 0 ? kernel + user : null;
    }

    [StructLayout(LayoutKind.Sequential)]
    private struct ThreadEntry
    {
        public uint Size;
        public uint Usage;
        public uint ThreadId;
        public uint ProcessId;
        public int BasePriority;
        public int DeltaPriority;
        public uint Flags;
    }

    [DllImport("kernel32.dll")]
    private static extern uint GetCurrentProcessId();

    [DllImport("kernel32.dll")]
    internal static extern uint GetCurrentThreadId();

    [DllImport("kernel32.dll", SetLastError = true)]
    private static extern IntPtr CreateToolhelp32Snapshot(uint flags, uint process);

    [DllImport("kernel32.dll")]
    private static extern bool Thread32First(IntPtr list, ref ThreadEntry entry);

    [DllImport("kernel32.dll")]
    private static extern bool Thread32Next(IntPtr list, ref ThreadEntry entry);

    [DllImport("kernel32.dll")]
    private static extern IntPtr OpenThread(uint access, bool isInheritable, uint thread);

    [DllImport("kernel32.dll")]
    private static extern IntPtr GetCurrentThread();

    [DllImport("kernel32.dll")]
    private static extern bool QueryThreadCycleTime(IntPtr thread, out ulong cycles);

    [DllImport("kernel32.dll")]
    private static extern bool GetThreadTimes(IntPtr thread, out ulong made, out ulong ended, out ulong kernel, out ulong user);

    [DllImport("kernel32.dll")]
    private static extern uint GetProcessIdOfThread(IntPtr thread);

    [DllImport("kernel32.dll")]
    private static extern uint WaitForSingleObject(IntPtr handle, uint milliseconds);

    [DllImport("kernel32.dll")]
    private static extern int GetThreadDescription(IntPtr thread, out IntPtr description);

    [DllImport("kernel32.dll")]
    private static extern IntPtr LocalFree(IntPtr memory);

    [DllImport("kernel32.dll")]
    private static extern bool CloseHandle(IntPtr handle);

    [DllImport("winmm.dll")]
    private static extern uint timeBeginPeriod(uint milliseconds);

    [DllImport("winmm.dll")]
    private static extern uint timeEndPeriod(uint milliseconds);
}
