using System;
using System.Runtime.InteropServices;

namespace Corvane.Sampling.Platform;

// The exports of the profiler that is in this process. Bound to that copy by its handle: an import by name
// could load another one. Any thread.
internal sealed class ProfilerExports : IProfilerExports
{
    private const int RecordSize = 24; // a double and two strings

    private readonly TakeSnapshotExport takeSnapshot;
    private readonly GetFunctionNamesExport getFunctionNames;
    private readonly GetInstrumentationOutcomeExport? getInstrumentationOutcome;

    private ProfilerExports(
        TakeSnapshotExport takeSnapshot,
        GetFunctionNamesExport getFunctionNames,
        GetInstrumentationOutcomeExport? getInstrumentationOutcome)
    {
        this.takeSnapshot = takeSnapshot;
        this.getFunctionNames = getFunctionNames;
        this.getInstrumentationOutcome = getInstrumentationOutcome;
    }

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    private delegate int TakeSnapshotExport(uint thread, out IntPtr frames, out int count, out ulong microseconds);

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    private delegate int GetFunctionNamesExport(IntPtr[] ids, int count, out IntPtr records);

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    private delegate int GetInstrumentationOutcomeExport(out OutcomeRecord record);

    internal static ProfilerExports Find() =>
        FindOrNull(out var whyNot) ?? throw new InvalidOperationException(whyNot);

    // Null if the profiler is not in this process; then the reason says why.
    internal static ProfilerExports? FindOrNull(out string whyNot)
    {
        var facts = ProfilerFacts.OfThisProcess();
        whyNot = "";
        if (facts.CanBeServed)
        {
            foreach (var name in facts.ModuleNames)
            {
                var module = GetModuleHandle(name);
                if (module == IntPtr.Zero)
                {
                    continue;
                }
                var take = GetProcAddress(module, "TakeSnapshot");
                var names = GetProcAddress(module, "GetFunctionNames");
                if (take != IntPtr.Zero && names != IntPtr.Zero)
                {
                    var outcome = GetProcAddress(module, "GetInstrumentationOutcome");
                    return new ProfilerExports(
                        Marshal.GetDelegateForFunctionPointer<TakeSnapshotExport>(take),
                        Marshal.GetDelegateForFunctionPointer<GetFunctionNamesExport>(names),
                        outcome == IntPtr.Zero
                            ? null
                            : Marshal.GetDelegateForFunctionPointer<GetInstrumentationOutcomeExport>(outcome));
                }
            }
        }
        whyNot = facts.WhyMissing();
        return null;
    }

    public int TakeSnapshot(uint thread, ref double[] functions, out int count, out ulong microseconds)
    {
        var status = takeSnapshot(thread, out var frames, out count, out microseconds);
        if (frames == IntPtr.Zero)
        {
            count = 0;
            return status;
        }
        try
        {
            if (functions.Length < count)
            {
                functions = new double[Math.Max(count, 2 * functions.Length)];
            }
            Marshal.ThrowExceptionForHR(SafeArrayAccessData(frames, out var data));
            if (count > 0)
            {
                Marshal.Copy(data, functions, 0, count);
            }
            SafeArrayUnaccessData(frames);
        }
        finally
        {
            SafeArrayDestroy(frames);
        }
        return status;
    }

    // The array of records stays where it is, 24 bytes a function: only the profiler's own heap could free it.
    public FunctionNames[] GetFunctionNames(double[] functions)
    {
        var names = new FunctionNames[functions.Length];
        var pinned = GCHandle.Alloc(functions, GCHandleType.Pinned);
        try
        {
            var ids = new IntPtr[functions.Length];
            for (var i = 0; i < ids.Length; i++)
            {
                ids[i] = pinned.AddrOfPinnedObject() + i * sizeof(double);
            }
            if (getFunctionNames(ids, ids.Length, out var records) != 0)
            {
                return names;
            }
            for (var i = 0; i < ids.Length; i++)
            {
                var record = records + i * RecordSize;
                names[i] = new FunctionNames(TakeText(record + 8), TakeText(record + 16));
            }
            return names;
        }
        finally
        {
            pinned.Free();
        }
    }

    // Null where the profiler is older than the library.
    internal InstrumentationOutcome? GetInstrumentationOutcome()
    {
        if (getInstrumentationOutcome == null || getInstrumentationOutcome(out var record) != 0)
        {
            return null;
        }
        return new InstrumentationOutcome
        {
            Instrumented = record.Instrumented,
            Left = record.Left,
            LeftForReason = record.LeftForReason,
            Reason = Take(record.Reason) ?? "",
        };
    }

    private static string? TakeText(IntPtr field) => Take(Marshal.ReadIntPtr(field));

    private static string? Take(IntPtr text)
    {
        if (text == IntPtr.Zero)
        {
            return null;
        }
        var taken = Marshal.PtrToStringBSTR(text);
        Marshal.FreeBSTR(text);
        return taken;
    }

    [StructLayout(LayoutKind.Sequential)]
    private struct OutcomeRecord
    {
        internal uint Instrumented;
        internal uint Left;
        internal uint LeftForReason;
        internal uint Unused;
        internal IntPtr Reason;
    }

    [DllImport("kernel32.dll", CharSet = CharSet.Unicode)]
    private static extern IntPtr GetModuleHandle(string name);

    [DllImport("kernel32.dll", CharSet = CharSet.Ansi, ExactSpelling = true, BestFitMapping = false)]
    private static extern IntPtr GetProcAddress(IntPtr module, string name);

    [DllImport("oleaut32.dll")]
    private static extern int SafeArrayAccessData(IntPtr array, out IntPtr data);

    [DllImport("oleaut32.dll")]
    private static extern int SafeArrayUnaccessData(IntPtr array);

    [DllImport("oleaut32.dll")]
    private static extern int SafeArrayDestroy(IntPtr array);
}
