// Parameters that are passed by reference, of each kind of type: the value arrives where the referenced
// type is a value type, and what the method writes reaches its caller.
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

    private static void Reference()
    {
        bool flag = false;
        RefBoolean(ref flag);
        Show(flag);
        char character = 'a';
        RefChar(ref character);
        Show(character);
        sbyte small = -1;
        RefSByte(ref small);
        Show(small);
        byte tiny = 1;
        RefByte(ref tiny);
        Show(tiny);
        short narrow = -2;
        RefInt16(ref narrow);
        Show(narrow);
        ushort unsignedNarrow = 2;
        RefUInt16(ref unsignedNarrow);
        Show(unsignedNarrow);
        int number = 3;
        Show(RefInt32(ref number));
        Show(number);
        uint unsigned = 3;
        RefUInt32(ref unsigned);
        Show(unsigned);
        long wide = 4;
        RefInt64(ref wide);
        Show(wide);
        ulong unsignedWide = 4;
        RefUInt64(ref unsignedWide);
        Show(unsignedWide);
        float single = 0.5f;
        RefSingle(ref single);
        Show(single);
        double twofold = 0.25;
        RefDouble(ref twofold);
        Show(twofold);
        nint native = 5;
        RefNativeInt(ref native);
        Show(native);
        nuint unsignedNative = 5;
        RefNativeUInt(ref unsignedNative);
        Show(unsignedNative);

        string? text = "before";
        RefString(ref text);
        Show(text);
        object? thing = 1;
        RefObject(ref thing);
        Show(thing);
        Animal? animal = new Dog();
        RefClass(ref animal);
        Show(animal);
        INamed named = new Dog();
        RefInterface(ref named);
        Show(named);
        int[] array = { 1 };
        RefArray(ref array);
        Show(array);
        int[,] table = new int[1, 1];
        RefTable(ref table);
        Show(table.Length);
        List<int> list = new();
        RefList(ref list);
        Show(list);

        Colour colour = Colour.Red;
        RefEnum(ref colour);
        Show(colour);
        Point point = new(1, 2);
        RefStruct(ref point);
        Show(point);
        Elsewhere.Size size = new() { Width = 1, Height = 2 };
        RefStructOfAnotherModule(ref size);
        Show(size);
        decimal money = 1.5m;
        RefDecimal(ref money);
        Show(money);
        int? optional = null;
        RefOptional(ref optional);
        Show(optional);
        var pair = new KeyValuePair<string, int>("a", 1);
        RefPair(ref pair);
        Show(pair);
        (int, Point) tuple = (1, default);
        RefTuple(ref tuple);
        Show(tuple);
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
    [Trace] private static void RefArray(ref int[] value) => value = new[] { 2, 3 };
    [Trace] private static void RefTable(ref int[,] value) => value = new int[2, 2];
    [Trace] private static void RefList(ref List<int> value) => value = new() { 4 };
    [Trace] private static void RefEnum(ref Colour value) => value = Colour.Green;
    [Trace] private static void RefStruct(ref Point value) => value.X = 10;
    [Trace] private static void RefStructOfAnotherModule(ref Elsewhere.Size value) => value.Width = 10;
    [Trace] private static void RefDecimal(ref decimal value) => value += 1;
    [Trace] private static void RefOptional(ref int? value) => value = 1;
    [Trace] private static void RefPair(ref KeyValuePair<string, int> value) => value = new(value.Key + "b", 2);
    [Trace] private static void RefTuple(ref (int, Point) value) => value.Item2.Y = 3;

    // What an out parameter refers to before it is assigned is nothing that the method may read.
    private static void Out()
    {
        OutInt32(out int number);
        Show(number);
        Show(TryParse("12", out int parsed));
        Show(parsed);
        OutString(out string text);
        Show(text);
        OutStruct(out Point point);
        Show(point);
        OutOptional(out int? optional);
        Show(optional);
        OutEnum(out Colour colour);
        Show(colour);
        OutMany(out int first, out string second, out Guid third);
        Show(first);
        Show(second);
        Show(third);
    }

    [Trace] private static void OutInt32(out int value) => value = 5;
    [Trace] private static bool TryParse(string text, out int value) => int.TryParse(text, out value);
    [Trace] private static void OutString(out string value) => value = "out";
    [Trace] private static void OutStruct(out Point value) => value = new Point(7, 8);
    [Trace] private static void OutOptional(out int? value) => value = null;
    [Trace] private static void OutEnum(out Colour value) => value = Colour.Green;

    [Trace]
    private static void OutMany(out int first, out string second, out Guid third)
    {
        first = 1;
        second = "two";
        third = Guid.Empty;
    }

    private static void In()
    {
        Show(InInt32(6));
        Show(InString("in"));
        Show(InStruct(new Point(3, 4)));
        Show(InDate(new DateTime(2001, 2, 3)));
        int number = 7;
        Show(RefReadonly(ref number));
    }

    [Trace] private static int InInt32(in int value) => value + 1;
    [Trace] private static int InString(in string value) => value.Length;
    [Trace] private static int InStruct(in Point value) => value.X + value.Y;
    [Trace] private static int InDate(in DateTime value) => value.Year;
    [Trace] private static int RefReadonly(ref readonly int value) => value + 1;

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
