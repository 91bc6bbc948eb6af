// Parameters and results that cannot become objects: such methods are left as they are.
extern alias twin;

using System;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static unsafe class Unboxable
{
    public static void Run()
    {
        int number = 5;
        Show(Pointer(&number));
        Show((int)*ResultPointer(&number));
        Show((long)VoidPointer(null));
        int* pointer = &number;
        RefPointer(ref pointer);
        Show(pointer == null);
        Show(PointerArray(new int*[2]).Length);
        Show(Function(&Twice));
        Show(ResultFunction()(4));
        Show(Unmanaged(null));
        Show(Span(new[] { 1, 2 }));
        Show(ReadOnlySpan("text"));
        Show(ResultSpan(new[] { 1, 2 }).Length);
        Span<int> span = default;
        RefSpan(ref span);
        Show(span.Length);
        Show(OwnRefStruct(new View { Content = new[] { 1 } }));
        Show(ResultRefStruct(new[] { 1, 2, 3 }).Content.Length);
        Show(RefStructOfAnotherModule(new Elsewhere.Window { Content = new[] { 1 } }));
        Show(SameName(new Elsewhere.Size { Width = 1, Height = 2 }));
        Show(SameNameButRefStruct(new twin::Elsewhere.Size { Content = new[] { 1 } }));
        Show(Typed(__makeref(number)));
        Show(Iterator(new ArgIterator()));
        Show(RefResult(new[] { 1, 2 }) = 7);
        Show(RefReadonlyResult(new[] { 1, 2 }));
        Show(RefStringResult(new[] { "a" }));
        Show(Scoped(new[] { 1, 2, 3 }));
        Show(Handler($"handled {number}"));
    }

    [Trace] private static int Pointer(int* value) => *value;
    [Trace] private static int* ResultPointer(int* value) => value;
    [Trace] private static void* VoidPointer(void* value) => value;
    [Trace] private static void RefPointer(ref int* value) => value = null;
    [Trace] private static int*[] PointerArray(int*[] value) => value;
    [Trace] private static int Function(delegate*<int, int> value) => value(3);
    [Trace] private static delegate*<int, int> ResultFunction() => &Twice;
    [Trace] private static bool Unmanaged(delegate* unmanaged<int, void> value) => value == null;
    [Trace] private static int Span(Span<int> value) => value.Length;
    [Trace] private static int ReadOnlySpan(ReadOnlySpan<char> value) => value.Length;
    [Trace] private static Span<int> ResultSpan(int[] value) => value;
    [Trace] private static void RefSpan(ref Span<int> value) => value = new int[4];
    [Trace] private static int OwnRefStruct(View value) => value.Content.Length;
    [Trace] private static View ResultRefStruct(int[] value) => new() { Content = value };
    [Trace] private static int RefStructOfAnotherModule(Elsewhere.Window value) => value.Content.Length;
    [Trace] private static int SameName(Elsewhere.Size value) => value.Width;
    [Trace] private static int SameNameButRefStruct(twin::Elsewhere.Size value) => value.Content.Length;
    [Trace] private static int Typed(TypedReference value) => __refvalue(value, int);
    [Trace] private static string Iterator(ArgIterator value) => "an iterator";
    [Trace] private static ref int RefResult(int[] value) => ref value[0];
    [Trace] private static ref readonly int RefReadonlyResult(int[] value) => ref value[0];
    [Trace] private static ref string RefStringResult(string[] value) => ref value[0];
    [Trace] private static int Scoped(scoped ReadOnlySpan<int> value) => value.Length;
    [Trace] private static string Handler(DefaultInterpolatedStringHandler value) => value.ToStringAndClear();

    private static int Twice(int number) => number * 2;

    private ref struct View
    {
        public Span<int> Content;
    }
}
