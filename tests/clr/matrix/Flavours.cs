// Methods that handle memory themselves, and methods that the runtime treats in another way than most.
using System;
using System.ComponentModel;
using System.Diagnostics;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Flavours
{
    public static void Run()
    {
        Memory();
        Attributes();
    }

    private static void Memory()
    {
        Show(StackAllocated(5));
        Show(PointerArithmetic(new[] { 1, 2, 3 }));
        Show(ReferenceLocals(new[] { 1, 2, 3 }));
        Show(NotInitialised());
        Show(VolatileField());
        Show(Checked(5));
        Catch(() => Checked(int.MaxValue));
        Show(Dynamic(2, 3));
    }

    [Trace]
    private static int StackAllocated(int count)
    {
        Span<int> numbers = stackalloc int[count];
        numbers.Fill(3);
        int sum = 0;
        foreach (int number in numbers)
        {
            sum += number;
        }
        return sum;
    }

    [Trace]
    private static unsafe int PointerArithmetic(int[] numbers)
    {
        fixed (int* first = numbers)
        {
            byte* buffer = stackalloc byte[16];
            buffer[15] = 4;
            return *(first + 2) + buffer[15];
        }
    }

    [Trace]
    private static int ReferenceLocals(int[] numbers)
    {
        ref int middle = ref numbers[1];
        middle *= 10;
        ref readonly int first = ref numbers[0];
        return numbers[1] + first;
    }

    [Trace, SkipLocalsInit]
    private static unsafe int NotInitialised()
    {
        int* numbers = stackalloc int[64];
        numbers[63] = 5;
        return numbers[63];
    }

    private static volatile int shared;

    [Trace]
    private static int VolatileField()
    {
        shared = 5;
        return shared;
    }

    [Trace] private static int Checked(int number) => checked(number + 1);
    [Trace] private static int Dynamic(dynamic left, dynamic right) => left + right;

    private static void Attributes()
    {
        Show(Synchronised());
        Show(Inlined(1));
        Show(Optimised(2));
        Show(NotOptimised(3));
        Show(OwnName());
        Show(OwnFrame());
        Show(VariableArguments(__arglist(1, "two", 3.0)));
        unsafe
        {
            delegate* unmanaged<int, int> native = &CalledFromNativeCode;
            Show(native(4));
        }
        Hidden();
        Rare();
        Conditional("conditional");
    }

    [Trace, MethodImpl(MethodImplOptions.Synchronized)]
    private static bool Synchronised() => Monitor.IsEntered(typeof(Flavours));

    [Trace, MethodImpl(MethodImplOptions.AggressiveInlining)]
    private static int Inlined(int number) => number + 1;

    [Trace, MethodImpl(MethodImplOptions.AggressiveOptimization)]
    private static int Optimised(int number) => number + 1;

    [Trace, MethodImpl(MethodImplOptions.NoOptimization)]
    private static int NotOptimised(int number) => number + 1;

    [Trace] private static string? OwnName() => MethodBase.GetCurrentMethod()?.Name;
    [Trace] private static string? OwnFrame() => new StackTrace().GetFrame(0)?.GetMethod()?.Name;
    [Trace] private static int VariableArguments(__arglist) => new ArgIterator(__arglist).GetRemainingCount();

    [Trace, UnmanagedCallersOnly]
    private static int CalledFromNativeCode(int number) => number + 1;

    [Trace, StackTraceHidden]
    private static void Hidden() => Console.WriteLine("hidden");

    [Trace, EditorBrowsable(EditorBrowsableState.Never)]
    private static void Rare() => Console.WriteLine("with other attributes");

    [Conditional("TRACE"), Trace]
    private static void Conditional(string text) => Console.WriteLine(text);
}
