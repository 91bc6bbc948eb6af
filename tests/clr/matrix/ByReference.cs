// Parameters that are passed by reference, of each kind of type, as ref, out and in: the value arrives where
// the referenced type is no string, object or class, and what the method writes reaches its caller.
using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class ByReference
{
    public static void Run()
    {
        Reference();
        Out();
        In();
        Elsewhere();
        Virtual();
    }

    private delegate void Changes<T>(ref T value);
    private delegate void Sets<T>(out T value);
    private delegate T Reads<T>(in T value);

    private static void Change<T>(T value, Changes<T> method)
    {
        method(ref value);
        Show(value, method.Method.Name);
    }

    private static void Set<T>(Sets<T> method)
    {
        method(out T value);
        Show(value, method.Method.Name);
    }

    private static void Read<T>(T value, Reads<T> method) => Show(method(in value), method.Method.Name);

    private static void Reference()
    {
        Change(false, RefBoolean);
        Change('a', RefChar);
        Change<sbyte>(-1, RefSByte);
        Change<byte>(1, RefByte);
        Change<short>(-2, RefInt16);
        Change<ushort>(2, RefUInt16);
        int number = 3;
        Show(RefInt32(ref number));
        Show(number);
        Change(3u, RefUInt32);
        Change(4L, RefInt64);
        Change(4UL, RefUInt64);
        Change(0.5f, RefSingle);
        Change(0.25, RefDouble);
        Change<nint>(5, RefNativeInt);
        Change<nuint>(5, RefNativeUInt);

        Change<string?>("before", RefString);
        Change<object?>(1, RefObject);
        Change<Animal?>(new Dog(), RefClass);
        Change<INamed>(new Dog(), RefInterface);
        Change<Measure>(Length, RefDelegate);
        Change(new List<int> { 3 }, RefList);
        Change(Tuple.Create(1, "one"), RefTupleClass);

        Change(Colour.Red, RefEnum);
        Change(new Point(1, 2), RefStruct);
        Change(new Elsewhere.Size { Width = 1, Height = 2 }, RefStructOfAnotherModule);
        Change(1.5m, RefDecimal);
        Change(new DateTime(2001, 2, 3), RefDate);
        Change(Guid.Empty, RefGuid);
        Change<int?>(null, RefOptional);
        Change(new KeyValuePair<string, int>("a", 1), RefPair);
        Change((1, new Point(2, 3)), RefTuple);

        Change(new[] { 1 }, RefArray);
        Change(new[] { "a" }, RefStrings);
        Change(new[] { new Point(1, 2) }, RefStructs);
        Change(new[] { Colour.Red }, RefEnums);
        Change(new[] { new[] { 1 }, new[] { 2 } }, RefJagged);
        Change(new[,] { { 1, 2 } }, RefTable);
        Change(new[,,] { { { "deep" } } }, RefThreeDimensional);
        Change(new[] { new[,] { { 1 } } }, RefTables);
        Change(new[] { new List<int> { 1 } }, RefLists);
        Change(new int?[] { 1, null }, RefOptionals);
    }

    [Trace] private static void RefBoolean(ref bool value) => value = !value;
    [Trace] private static void RefChar(ref char value) => value++;
    [Trace] private static void RefSByte(ref sbyte value) => value--;
    [Trace] private static void RefByte(ref byte value) => value++;
    [Trace] private static void RefInt16(ref short value) => value--;
    [Trace] private static void RefUInt16(ref ushort value) => value++;
    [Trace] private static int RefInt32(ref int value) => value++;
    [Trace] private static void RefUInt32(ref uint value) => value++;
    [Trace] private static void RefInt64(ref long value) => value++;
    [Trace] private static void RefUInt64(ref ulong value) => value++;
    [Trace] private static void RefSingle(ref float value) => value *= 2;
    [Trace] private static void RefDouble(ref double value) => value *= 2;
    [Trace] private static void RefNativeInt(ref nint value) => value++;
    [Trace] private static void RefNativeUInt(ref nuint value) => value++;
    [Trace] private static void RefString(ref string? value) => value = "after";
    [Trace] private static void RefObject(ref object? value) => value = "after";
    [Trace] private static void RefClass(ref Animal? value) => value = null;
    [Trace] private static void RefInterface(ref INamed value) => value = new Animal();
    [Trace] private static void RefDelegate(ref Measure value) => value = Twice;
    [Trace] private static void RefList(ref List<int> value) => value = new() { 4 };
    [Trace] private static void RefTupleClass(ref Tuple<int, string> value) => value = Tuple.Create(2, "two");
    [Trace] private static void RefEnum(ref Colour value) => value = Colour.Green;
    [Trace] private static void RefStruct(ref Point value) => value.X = 10;
    [Trace] private static void RefStructOfAnotherModule(ref Elsewhere.Size value) => value.Width = 10;
    [Trace] private static void RefDecimal(ref decimal value) => value += 1;
    [Trace] private static void RefDate(ref DateTime value) => value = value.AddDays(1);
    [Trace] private static void RefGuid(ref Guid value) => value = someGuid;
    [Trace] private static void RefOptional(ref int? value) => value = 1;
    [Trace] private static void RefPair(ref KeyValuePair<string, int> value) => value = new(value.Key + "b", 2);
    [Trace] private static void RefTuple(ref (int, Point) value) => value.Item2.Y = 4;
    [Trace] private static void RefArray(ref int[] value) => value = new[] { 2, 3 };
    [Trace] private static void RefStrings(ref string[] value) => value = new[] { "b", "c" };
    [Trace] private static void RefStructs(ref Point[] value) => value = new Point[2];
    [Trace] private static void RefEnums(ref Colour[] value) => value = new[] { Colour.Green };
    [Trace] private static void RefJagged(ref int[][] value) => value = new[] { new[] { 3 } };
    [Trace] private static void RefTable(ref int[,] value) => value = new int[2, 2];
    [Trace] private static void RefThreeDimensional(ref string[,,] value) => value = new[,,] { { { "deeper" } } };
    [Trace] private static void RefTables(ref int[][,] value) => value = new[] { new int[1, 2] };
    [Trace] private static void RefLists(ref List<int>[] value) => value = new[] { new List<int> { 2 } };
    [Trace] private static void RefOptionals(ref int?[] value) => value = new int?[] { null };

    // What an out parameter refers to before it is assigned is nothing that the method may read.
    private static void Out()
    {
        Set<bool>(OutBoolean);
        Set<char>(OutChar);
        Set<sbyte>(OutSByte);
        Set<byte>(OutByte);
        Set<short>(OutInt16);
        Set<ushort>(OutUInt16);
        Set<int>(OutInt32);
        Set<uint>(OutUInt32);
        Set<long>(OutInt64);
        Set<ulong>(OutUInt64);
        Set<float>(OutSingle);
        Set<double>(OutDouble);
        Set<nint>(OutNativeInt);
        Set<nuint>(OutNativeUInt);

        Set<string>(OutString);
        Set<object>(OutObject);
        Set<Animal>(OutClass);
        Set<INamed>(OutInterface);
        Set<Measure>(OutDelegate);
        Set<List<int>>(OutList);
        Set<Tuple<int, string>>(OutTupleClass);

        Set<Colour>(OutEnum);
        Set<Point>(OutStruct);
        Set<Elsewhere.Size>(OutStructOfAnotherModule);
        Set<decimal>(OutDecimal);
        Set<DateTime>(OutDate);
        Set<Guid>(OutGuid);
        Set<int?>(OutOptional);
        Set<int?>(OutNoOptional);
        Set<KeyValuePair<string, int>>(OutPair);
        Set<(int, Point)>(OutTuple);

        Set<int[]>(OutArray);
        Set<string[]>(OutStrings);
        Set<Point[]>(OutStructs);
        Set<Colour[]>(OutEnums);
        Set<int[][]>(OutJagged);
        Set<int[,]>(OutTable);
        Set<string[,,]>(OutThreeDimensional);
        Set<int[][,]>(OutTables);
        Set<List<int>[]>(OutLists);
        Set<int?[]>(OutOptionals);

        Show(TryParse("12", out int parsed));
        Show(parsed);
        OutMany(out int first, out string second, out Guid third);
        Show(first);
        Show(second);
        Show(third);
    }

    [Trace] private static void OutBoolean(out bool value) => value = true;
    [Trace] private static void OutChar(out char value) => value = 'b';
    [Trace] private static void OutSByte(out sbyte value) => value = sbyte.MinValue;
    [Trace] private static void OutByte(out byte value) => value = byte.MaxValue;
    [Trace] private static void OutInt16(out short value) => value = short.MinValue;
    [Trace] private static void OutUInt16(out ushort value) => value = ushort.MaxValue;
    [Trace] private static void OutInt32(out int value) => value = int.MinValue;
    [Trace] private static void OutUInt32(out uint value) => value = uint.MaxValue;
    [Trace] private static void OutInt64(out long value) => value = long.MinValue;
    [Trace] private static void OutUInt64(out ulong value) => value = ulong.MaxValue;
    [Trace] private static void OutSingle(out float value) => value = 1.5f;
    [Trace] private static void OutDouble(out double value) => value = -0.1;
    [Trace] private static void OutNativeInt(out nint value) => value = -3;
    [Trace] private static void OutNativeUInt(out nuint value) => value = 3;
    [Trace] private static void OutString(out string value) => value = "out";
    [Trace] private static void OutObject(out object value) => value = 5;
    [Trace] private static void OutClass(out Animal value) => value = new Animal();
    [Trace] private static void OutInterface(out INamed value) => value = new Dog();
    [Trace] private static void OutDelegate(out Measure value) => value = Twice;
    [Trace] private static void OutList(out List<int> value) => value = new() { 1, 2 };
    [Trace] private static void OutTupleClass(out Tuple<int, string> value) => value = Tuple.Create(1, "one");
    [Trace] private static void OutEnum(out Colour value) => value = Colour.Green;
    [Trace] private static void OutStruct(out Point value) => value = new Point(7, 8);
    [Trace] private static void OutStructOfAnotherModule(out Elsewhere.Size value) => value = new() { Width = 5, Height = 6 };
    [Trace] private static void OutDecimal(out decimal value) => value = 12.50m;
    [Trace] private static void OutDate(out DateTime value) => value = new(2001, 2, 3);
    [Trace] private static void OutGuid(out Guid value) => value = someGuid;
    [Trace] private static void OutOptional(out int? value) => value = 1;
    [Trace] private static void OutNoOptional(out int? value) => value = null;
    [Trace] private static void OutPair(out KeyValuePair<string, int> value) => value = new("key", 1);
    [Trace] private static void OutTuple(out (int, Point) value) => value = (1, new(2, 3));
    [Trace] private static void OutArray(out int[] value) => value = new[] { 1, 2 };
    [Trace] private static void OutStrings(out string[] value) => value = new[] { "a", "b" };
    [Trace] private static void OutStructs(out Point[] value) => value = new[] { new Point(1, 2) };
    [Trace] private static void OutEnums(out Colour[] value) => value = new[] { Colour.Green };
    [Trace] private static void OutJagged(out int[][] value) => value = new[] { new[] { 1 }, new[] { 2, 3 } };
    [Trace] private static void OutTable(out int[,] value) => value = new[,] { { 1, 2 }, { 3, 4 } };
    [Trace] private static void OutThreeDimensional(out string[,,] value) => value = new[,,] { { { "deep" } } };
    [Trace] private static void OutTables(out int[][,] value) => value = new[] { new[,] { { 5 } } };
    [Trace] private static void OutLists(out List<int>[] value) => value = new[] { new List<int> { 6 } };
    [Trace] private static void OutOptionals(out int?[] value) => value = new int?[] { 1, null };
    [Trace] private static bool TryParse(string text, out int value) => int.TryParse(text, out value);

    [Trace]
    private static void OutMany(out int first, out string second, out Guid third)
    {
        first = 1;
        second = "two";
        third = Guid.Empty;
    }

    private static void In()
    {
        Read(true, InBoolean);
        Read('c', InChar);
        Read<sbyte>(-1, InSByte);
        Read<byte>(1, InByte);
        Read<short>(-2, InInt16);
        Read<ushort>(2, InUInt16);
        Read(6, InInt32);
        Read(3u, InUInt32);
        Read(4L, InInt64);
        Read(4UL, InUInt64);
        Read(0.5f, InSingle);
        Read(0.25, InDouble);
        Read<nint>(-5, InNativeInt);
        Read<nuint>(5, InNativeUInt);

        Read("in", InString);
        Read<object>(5, InObject);
        Read(new Animal(), InClass);
        Read<INamed>(new Dog(), InInterface);
        Read<Measure>(Length, InDelegate);
        Read(new List<int> { 1, 2 }, InList);
        Read(Tuple.Create(1, "one"), InTupleClass);

        Read(Colour.Green, InEnum);
        Read(new Point(3, 4), InStruct);
        Read(new Elsewhere.Size { Width = 5, Height = 6 }, InStructOfAnotherModule);
        Read(12.50m, InDecimal);
        Read(new DateTime(2001, 2, 3), InDate);
        Read(someGuid, InGuid);
        Read<int?>(1, InOptional);
        Read<int?>(null, InOptional);
        Read(new KeyValuePair<string, int>("key", 1), InPair);
        Read((1, new Point(2, 3)), InTuple);

        Read(new[] { 1, 2 }, InArray);
        Read(new[] { "a", "b" }, InStrings);
        Read(new[] { new Point(1, 2) }, InStructs);
        Read(new[] { Colour.Green }, InEnums);
        Read(new[] { new[] { 1 }, new[] { 2, 3 } }, InJagged);
        Read(new[,] { { 1, 2 }, { 3, 4 } }, InTable);
        Read(new[,,] { { { "deep" } } }, InThreeDimensional);
        Read(new[] { new[,] { { 5 } } }, InTables);
        Read(new[] { new List<int> { 6 } }, InLists);
        Read(new int?[] { 1, null }, InOptionals);

        Show(InInt32(6));
        int number = 7;
        Show(RefReadonly(ref number));
    }

    [Trace] private static bool InBoolean(in bool value) => value;
    [Trace] private static char InChar(in char value) => value;
    [Trace] private static sbyte InSByte(in sbyte value) => value;
    [Trace] private static byte InByte(in byte value) => value;
    [Trace] private static short InInt16(in short value) => value;
    [Trace] private static ushort InUInt16(in ushort value) => value;
    [Trace] private static int InInt32(in int value) => value + 1;
    [Trace] private static uint InUInt32(in uint value) => value;
    [Trace] private static long InInt64(in long value) => value;
    [Trace] private static ulong InUInt64(in ulong value) => value;
    [Trace] private static float InSingle(in float value) => value;
    [Trace] private static double InDouble(in double value) => value;
    [Trace] private static nint InNativeInt(in nint value) => value;
    [Trace] private static nuint InNativeUInt(in nuint value) => value;
    [Trace] private static string InString(in string value) => value;
    [Trace] private static object InObject(in object value) => value;
    [Trace] private static Animal InClass(in Animal value) => value;
    [Trace] private static INamed InInterface(in INamed value) => value;
    [Trace] private static Measure InDelegate(in Measure value) => value;
    [Trace] private static List<int> InList(in List<int> value) => value;
    [Trace] private static Tuple<int, string> InTupleClass(in Tuple<int, string> value) => value;
    [Trace] private static Colour InEnum(in Colour value) => value;
    [Trace] private static Point InStruct(in Point value) => value;
    [Trace] private static Elsewhere.Size InStructOfAnotherModule(in Elsewhere.Size value) => value;
    [Trace] private static decimal InDecimal(in decimal value) => value;
    [Trace] private static DateTime InDate(in DateTime value) => value;
    [Trace] private static Guid InGuid(in Guid value) => value;
    [Trace] private static int? InOptional(in int? value) => value;
    [Trace] private static KeyValuePair<string, int> InPair(in KeyValuePair<string, int> value) => value;
    [Trace] private static (int, Point) InTuple(in (int, Point) value) => value;
    [Trace] private static int[] InArray(in int[] value) => value;
    [Trace] private static string[] InStrings(in string[] value) => value;
    [Trace] private static Point[] InStructs(in Point[] value) => value;
    [Trace] private static Colour[] InEnums(in Colour[] value) => value;
    [Trace] private static int[][] InJagged(in int[][] value) => value;
    [Trace] private static int[,] InTable(in int[,] value) => value;
    [Trace] private static string[,,] InThreeDimensional(in string[,,] value) => value;
    [Trace] private static int[][,] InTables(in int[][,] value) => value;
    [Trace] private static List<int>[] InLists(in List<int>[] value) => value;
    [Trace] private static int?[] InOptionals(in int?[] value) => value;
    [Trace] private static int RefReadonly(ref readonly int value) => value + 1;

    private static readonly Guid someGuid = new("00112233-4455-6677-8899-aabbccddeeff");

    private static int Length(string text) => text.Length;
    private static int Twice(string text) => text.Length * 2;

    // References to fields, array elements and into unmanaged memory.
    private static void Elsewhere()
    {
        var numbers = new[] { 1, 2 };
        RefInt32(ref numbers[1]);
        Show(numbers);
        var points = new Point[1];
        RefInt32(ref points[0].Y);
        RefStruct(ref points[0]);
        Show(points);
        RefString(ref shared);
        Show(shared);
        IntPtr memory = Marshal.AllocHGlobal(sizeof(int));
        unsafe
        {
            *(int*)memory = 30;
            RefInt32(ref *(int*)memory);
            Show(*(int*)memory);
        }
        Marshal.FreeHGlobal(memory);
    }

    private static string? shared = "field";

    // Virtual methods and delegates mark an in parameter in their signature.
    private static void Virtual()
    {
        Show(new Reader().Read(8, new Point(1, 2)));
        int number = 1;
        Modify modify = RefInt32;
        Show(modify(ref number));
        Show(number);
    }

    private delegate int Modify(ref int value);

    private class Reader
    {
        [Trace] public virtual int Read(in int value, in Point point) => value + point.X;
    }
}
