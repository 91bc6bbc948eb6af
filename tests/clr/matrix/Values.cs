// Parameters and results of every type that is passed by value. A method gives back what it is given.
using System;
using System.Collections;
using System.Collections.Generic;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Values
{
    public static void Run()
    {
        Primitives();
        Enumerations();
        References();
        Structs();
        Generics();
        Arrays();
        Declarations();
    }

    private static void Primitives()
    {
        Show(Boolean(true));
        Show(Boolean(false));
        Show(Char('x'));
        Show(SByte(sbyte.MinValue));
        Show(Byte(byte.MaxValue));
        Show(Int16(short.MinValue));
        Show(UInt16(ushort.MaxValue));
        Show(Int32(int.MinValue));
        Show(UInt32(uint.MaxValue));
        Show(Int64(long.MinValue));
        Show(UInt64(ulong.MaxValue));
        Show(Single(1.5f));
        Show(Single(float.NaN));
        Show(Double(-0.1));
        Show(Double(double.NegativeInfinity));
        Show(NativeInt(-3));
        Show(NativeUInt(3));
        Show(IntPointer(new IntPtr(16)));
        Show(UIntPointer(new UIntPtr(17)));
    }

    [Trace] private static bool Boolean(bool value) => value;
    [Trace] private static char Char(char value) => value;
    [Trace] private static sbyte SByte(sbyte value) => value;
    [Trace] private static byte Byte(byte value) => value;
    [Trace] private static short Int16(short value) => value;
    [Trace] private static ushort UInt16(ushort value) => value;
    [Trace] private static int Int32(int value) => value;
    [Trace] private static uint UInt32(uint value) => value;
    [Trace] private static long Int64(long value) => value;
    [Trace] private static ulong UInt64(ulong value) => value;
    [Trace] private static float Single(float value) => value;
    [Trace] private static double Double(double value) => value;
    [Trace] private static nint NativeInt(nint value) => value;
    [Trace] private static nuint NativeUInt(nuint value) => value;
    [Trace] private static IntPtr IntPointer(IntPtr value) => value;
    [Trace] private static UIntPtr UIntPointer(UIntPtr value) => value;

    private static void Enumerations()
    {
        Show(OfInt(Colour.Green));
        Show(OfInt((Colour)77));
        Show(OfSByte(SByteEnum.Lowest));
        Show(OfByte(ByteEnum.Highest));
        Show(OfShort(ShortEnum.Lowest));
        Show(OfUShort(UShortEnum.Highest));
        Show(OfUInt(UIntEnum.Highest));
        Show(OfLong(LongEnum.Lowest));
        Show(OfULong(ULongEnum.Highest));
        Show(OfFlags(Sides.Left | Sides.Right));
        Show(OfAnotherModule(Elsewhere.Level.High));
        Show(OfTheLibrary(DayOfWeek.Friday));
    }

    [Trace] private static Colour OfInt(Colour value) => value;
    [Trace] private static SByteEnum OfSByte(SByteEnum value) => value;
    [Trace] private static ByteEnum OfByte(ByteEnum value) => value;
    [Trace] private static ShortEnum OfShort(ShortEnum value) => value;
    [Trace] private static UShortEnum OfUShort(UShortEnum value) => value;
    [Trace] private static UIntEnum OfUInt(UIntEnum value) => value;
    [Trace] private static LongEnum OfLong(LongEnum value) => value;
    [Trace] private static ULongEnum OfULong(ULongEnum value) => value;
    [Trace] private static Sides OfFlags(Sides value) => value;
    [Trace] private static Elsewhere.Level OfAnotherModule(Elsewhere.Level value) => value;
    [Trace] private static DayOfWeek OfTheLibrary(DayOfWeek value) => value;

    private static void References()
    {
        Show(String("text"));
        Show(String(""));
        Show(String(null));
        Show(Object("boxed"));
        Show(Object(5));
        Show(Object(new Point(1, 2)));
        Show(Object(null));
        Show(Dynamic(5));
        Show(Class(new Animal()));
        Show(Class(new Dog()));
        Show(Class(null));
        Show(SealedClass(new Dog()));
        Show(ClassOfAnotherModule(new Elsewhere.Thing()));
        Show(Interface(new Dog()));
        Show(Delegate(Length));
        Show(LibraryDelegate(Run));
        Show(OfType(typeof(int)));
        Show(OfException(new InvalidOperationException("passed")).Message);
        Show(OfTask(Task.CompletedTask).IsCompleted);
        Show(EnumBase(Colour.Green));
        Show(ValueTypeBase(new Point(5, 6)));
        Show(ArrayBase(new[] { 1, 2 }));
        Show(NotGenericSequence(new ArrayList { 1, "two" }));
    }

    [Trace] private static string? String(string? value) => value;
    [Trace] private static object? Object(object? value) => value;
    [Trace] private static dynamic Dynamic(dynamic value) => value;
    [Trace] private static Animal? Class(Animal? value) => value;
    [Trace] private static Dog SealedClass(Dog value) => value;
    [Trace] private static Elsewhere.Thing ClassOfAnotherModule(Elsewhere.Thing value) => value;
    [Trace] private static INamed Interface(INamed value) => value;
    [Trace] private static Measure Delegate(Measure value) => value;
    [Trace] private static Action LibraryDelegate(Action value) => value;
    [Trace] private static Type OfType(Type value) => value;
    [Trace] private static Exception OfException(Exception value) => value;
    [Trace] private static Task OfTask(Task value) => value;
    [Trace] private static Enum EnumBase(Enum value) => value;
    [Trace] private static ValueType ValueTypeBase(ValueType value) => value;
    [Trace] private static Array ArrayBase(Array value) => value;
    [Trace] private static IEnumerable NotGenericSequence(IEnumerable value) => value;

    private static int Length(string text) => text.Length;

    private static void Structs()
    {
        Show(OwnStruct(new Point(3, 4)));
        Show(StructOfAnotherModule(new Elsewhere.Size { Width = 5, Height = 6 }));
        Show(NestedStructOfAnotherModule(new Elsewhere.Thing.Part { Weight = 1.5 }));
        Show(Decimal(12.50m));
        Show(Date(new DateTime(2001, 2, 3)));
        Show(Span(TimeSpan.FromSeconds(90)));
        Show(OfGuid(new Guid("00112233-4455-6677-8899-aabbccddeeff")));
        Show(Token(CancellationToken.None).CanBeCanceled);
        Show(OfHalf((Half)0.5));
        Show(Wide(Int128.MaxValue));
        Show(FromTheEnd(^2));
        Show(OfRange(1..^1));
        Show(OfInlineArray(new Four())[3]);
        Show(Opaque(default).IsAllocated);
    }

    [Trace] private static Point OwnStruct(Point value) => value;
    [Trace] private static Elsewhere.Size StructOfAnotherModule(Elsewhere.Size value) => value;
    [Trace] private static Elsewhere.Thing.Part NestedStructOfAnotherModule(Elsewhere.Thing.Part value) => value;
    [Trace] private static decimal Decimal(decimal value) => value;
    [Trace] private static DateTime Date(DateTime value) => value;
    [Trace] private static TimeSpan Span(TimeSpan value) => value;
    [Trace] private static Guid OfGuid(Guid value) => value;
    [Trace] private static CancellationToken Token(CancellationToken value) => value;
    [Trace] private static Half OfHalf(Half value) => value;
    [Trace] private static Int128 Wide(Int128 value) => value;
    [Trace] private static Index FromTheEnd(Index value) => value;
    [Trace] private static Range OfRange(Range value) => value;
    [Trace] private static Four OfInlineArray(Four value) => value;
    [Trace] private static System.Runtime.InteropServices.GCHandle Opaque(System.Runtime.InteropServices.GCHandle value) => value;

    private static void Generics()
    {
        Show(Optional(5));
        Show(Optional(null));
        Show(OptionalStruct(new Point(1, 2)));
        Show(OptionalEnum(Colour.Red));
        Show(Entry(new KeyValuePair<string, int>("key", 1)));
        Show(Numbers(new List<int> { 1, 2 }));
        Show(Texts(new List<string> { "a", "b" }));
        Show(Map(new Dictionary<string, List<int>> { ["a"] = new() { 1 } }).Count);
        Show(Sequence(new[] { 1.5, 2.5 }));
        Show(Function(number => number + 1)(1));
        Show(OwnGenericStruct(new Pair<int, string>(1, "one")));
        Show(NestedArguments(new Pair<Pair<int, Point>, Elsewhere.Size>(new(1, new(2, 3)), default)));
        Show(GenericStructOfAnotherModule(new Elsewhere.Pair<Point, string> { Second = "second" }));
        Show(NestedGeneric(new Outer<int>.Inner<string> { First = 1, Second = "two" }));
        Show(NestedGenericStruct(new Outer<string>.Part { Value = "value" }));
        Show(ValueTuple((1, "one")));
        Show(LongTuple((1, 2, 3, 4, 5, 6, 7, 8, "nine")));
        Show(Tuple(System.Tuple.Create(1, "one")));
        Show(OfMemory(new[] { 1, 2, 3 }).Length);
        Show(Result(new ValueTask<int>(7)).Result);
    }

    [Trace] private static int? Optional(int? value) => value;
    [Trace] private static Point? OptionalStruct(Point? value) => value;
    [Trace] private static Colour? OptionalEnum(Colour? value) => value;
    [Trace] private static KeyValuePair<string, int> Entry(KeyValuePair<string, int> value) => value;
    [Trace] private static List<int> Numbers(List<int> value) => value;
    [Trace] private static List<string> Texts(List<string> value) => value;
    [Trace] private static Dictionary<string, List<int>> Map(Dictionary<string, List<int>> value) => value;
    [Trace] private static IEnumerable<double> Sequence(IEnumerable<double> value) => value;
    [Trace] private static Func<int, int> Function(Func<int, int> value) => value;
    [Trace] private static Pair<int, string> OwnGenericStruct(Pair<int, string> value) => value;
    [Trace] private static Pair<Pair<int, Point>, Elsewhere.Size> NestedArguments(Pair<Pair<int, Point>, Elsewhere.Size> value) => value;
    [Trace] private static Elsewhere.Pair<Point, string> GenericStructOfAnotherModule(Elsewhere.Pair<Point, string> value) => value;
    [Trace] private static Outer<int>.Inner<string> NestedGeneric(Outer<int>.Inner<string> value) => value;
    [Trace] private static Outer<string>.Part NestedGenericStruct(Outer<string>.Part value) => value;
    [Trace] private static (int Number, string Name) ValueTuple((int Number, string Name) value) => value;
    [Trace] private static (int, int, int, int, int, int, int, int, string) LongTuple((int, int, int, int, int, int, int, int, string) value) => value;
    [Trace] private static Tuple<int, string> Tuple(Tuple<int, string> value) => value;
    [Trace] private static Memory<int> OfMemory(Memory<int> value) => value;
    [Trace] private static ValueTask<int> Result(ValueTask<int> value) => value;

    private static void Arrays()
    {
        Show(Integers(new[] { 1, 2, 3 }));
        Show(Integers(null));
        Show(Strings(new[] { "a", "b" }));
        Show(StructArray(new[] { new Point(1, 2) }));
        Show(EnumArray(new[] { Colour.Green }));
        Show(Jagged(new[] { new[] { 1 }, new[] { 2, 3 } }));
        Show(TwoDimensional(new[,] { { 1, 2 }, { 3, 4 } }));
        Show(ThreeDimensional(new string[1, 1, 1] { { { "deep" } } }));
        Show(JaggedAndDimensional(new[] { new[,] { { 5 } } }));
        Show(GenericArray(new[] { new List<int> { 6 } }));
        Show(OptionalArray(new int?[] { 1, null }));
    }

    [Trace] private static int[]? Integers(int[]? value) => value;
    [Trace] private static string[] Strings(string[] value) => value;
    [Trace] private static Point[] StructArray(Point[] value) => value;
    [Trace] private static Colour[] EnumArray(Colour[] value) => value;
    [Trace] private static int[][] Jagged(int[][] value) => value;
    [Trace] private static int[,] TwoDimensional(int[,] value) => value;
    [Trace] private static string[,,] ThreeDimensional(string[,,] value) => value;
    [Trace] private static int[][,] JaggedAndDimensional(int[][,] value) => value;
    [Trace] private static List<int>[] GenericArray(List<int>[] value) => value;
    [Trace] private static int?[] OptionalArray(int?[] value) => value;

    private static void Declarations()
    {
        Nothing();
        Takes(5);
        Show(Gives());
        Show(Params(1, 2, 3));
        Show(Params());
        Show(ObjectParams("a", 1, null));
        Show(Defaults(1));
        Show(Defaults(1, "two", 3));
        Show(Defaults(number: 1, factor: 4));
        Show(Mixed(true, "s", new Point(1, 2), 2.5, Colour.Green, new[] { 1 }, null, 9m));
        Show(Changed(1, "before", new Point(1, 1)));
    }

    [Trace] private static void Nothing() { }
    [Trace] private static void Takes(int value) => Console.WriteLine($"taken {value}");
    [Trace] private static string Gives() => "given";
    [Trace] private static int[] Params(params int[] values) => values;
    [Trace] private static object?[] ObjectParams(params object?[] values) => values;
    [Trace] private static string Defaults(int number, string text = "default", int factor = 2) => $"{number} {text} {factor}";

    [Trace]
    private static string Mixed(
        bool flag, string text, Point point, double number, Colour colour, int[] array, Animal? animal, decimal money) =>
        FormattableString.Invariant($"{flag} {text} {point} {number} {colour} {array.Length} {animal} {money}");

    // What the method makes of its arguments is what they are at its exit.
    [Trace]
    private static string Changed(int number, string text, Point point)
    {
        number += 41;
        text = "after";
        point.Y = 9;
        return $"{number} {text} {point}";
    }
}
