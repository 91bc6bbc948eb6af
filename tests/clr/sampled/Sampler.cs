using System;
using System.Reflection;
using System.Runtime.InteropServices;

/// <summary>What one call of TakeSnapshot gave.</summary>
internal readonly record struct Snapshot(int Status, double[]? Frames, int Count, ulong Timestamp);

/// <summary>The two exports of the profiler that this process was started under.</summary>
internal static unsafe class Sampler
{
    private const string Library = "CorvaneProfiler.dll";

    /// <summary>Binds the imports to the library that the runtime loaded as its profiler.</summary>
    public static void Bind()
    {
        NativeLibrary.SetDllImportResolver(Assembly.GetExecutingAssembly(),
            (name, _, _) => name == Library ? Module : 0);
    }

    /// <summary>Where that library stands.</summary>
    public static nint Module => NativeLibrary.Load(Path);

    /// <summary>Its file.</summary>
    public static string Path => Environment.GetEnvironmentVariable("CORECLR_PROFILER_PATH")!;

    /// <summary>Takes one snapshot and checks that its parts agree.</summary>
    public static Snapshot Take(uint thread)
    {
        int status = TakeSnapshot(thread, out double[]? frames, out int count, out ulong timestamp);
        bool agrees = status switch
        {
            0 => frames is not null && frames.Length == count && timestamp > 1_500_000_000_000_000,
            2 => frames is null && count == 0 && timestamp == 0,
            _ => false,
        };
        if (!agrees)
        {
            throw new InvalidOperationException($"status {status}, {frames?.Length} frames, count {count}, at {timestamp}");
        }
        return new Snapshot(status, frames, count, timestamp);
    }

    /// <summary>Takes a snapshot of a thread that has ended: for the program, and in a moment for the system as
    /// well. Until then the runtime refuses.</summary>
    public static Snapshot TakeOfEnded(uint thread)
    {
        Snapshot snapshot;
        do
        {
            snapshot = Take(thread);
        }
        while (snapshot.Status == 2);
        return snapshot;
    }

    /// <summary>"Type.Method" of each function.</summary>
    public static string[] Names(ReadOnlySpan<double> functions)
    {
        fixed (double* first = functions)
        {
            var ids = new double*[functions.Length + 1]; // never empty, which would be null
            for (int i = 0; i < functions.Length; i++)
            {
                ids[i] = first + i;
            }
            fixed (double** pointers = ids)
            {
                int status = GetFunctionNames(pointers, functions.Length, out FunctionNameRecord* records);
                if (status != 0)
                {
                    throw new InvalidOperationException($"GetFunctionNames: {status}");
                }
                var names = new string[functions.Length];
                for (int i = 0; i < names.Length; i++)
                {
                    if (!records[i].FunctionId.Equals(functions[i]))
                    {
                        throw new InvalidOperationException("GetFunctionNames: another function");
                    }
                    names[i] = Text(records[i].TypeName) + "." + Text(records[i].MethodName);
                }
                free(records);
                return names;
            }
        }
    }

    /// <summary>Asks for the names of less than no function.</summary>
    public static void NamesOfNegativeCount()
    {
        double* none = null;
        GetFunctionNames(&none, -1, out _);
    }

    private static string Text(nint name)
    {
        string text = name == 0 ? "?" : Marshal.PtrToStringBSTR(name);
        Marshal.FreeBSTR(name);
        return text;
    }

    [StructLayout(LayoutKind.Sequential)]
    private struct FunctionNameRecord
    {
        public double FunctionId;
        public nint TypeName;
        public nint MethodName;
    }

    [DllImport(Library)]
    private static extern int TakeSnapshot(uint osThreadId,
        [MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_R8)] out double[]? frames,
        out int frameCount, out ulong timestamp);

    [DllImport(Library)]
    private static extern int GetFunctionNames(double** ids, int count, out FunctionNameRecord* records);

    // The heap of the library that was built with this runtime library.
    [DllImport("msvcrt.dll")]
    private static extern void free(void* memory);
}
