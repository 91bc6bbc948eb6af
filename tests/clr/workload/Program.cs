// A little of everything that the C# compiler and the class library make of method bodies. Prints
// what it computed, the same in every run on one runtime, so that a run in which every method was
// rewritten can be held against a plain one.
using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.IO.Compression;
using System.Linq;
using System.Linq.Expressions;
using System.Numerics;
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Security.Cryptography;
using System.Text;
using System.Text.Json;
using System.Text.RegularExpressions;
using System.Threading;
using System.Threading.Channels;
using System.Threading.Tasks;
using System.Xml.Linq;

internal static class Program
{
    private static async Task<int> Main()
    {
        Console.WriteLine($"runtime {Environment.Version}");
        Report("exceptions", Exceptions.Run());
        Report("generics", Generics.Run());
        Report("flow", ControlFlow.Run());
        Report("numbers", Numbers.Run());
        Report("collections", Collections.Run());
        Report("text", Texts.Run());
        Report("json", Documents.Json());
        Report("xml", Documents.Xml());
        Report("bytes", Documents.Bytes());
        Report("emit", Dynamic.Run());
        Report("unsafe", Unmanaged.Run());
        Report("threads", Threads.Run());
        Report("async", await Asynchronous.Run());
        return 42;
    }

    private static void Report(string name, IEnumerable<string> lines)
    {
        foreach (string line in lines)
        {
            Console.WriteLine($"{name}: {line}");
        }
    }
}

internal static class Exceptions
{
    public static IEnumerable<string> Run()
    {
        yield return Nested(0);
        yield return Nested(1);
        yield return Nested(2);
        yield return Nested(3);
        yield return Filtered(new ArgumentException("argument", "name"));
        yield return Filtered(new InvalidOperationException("operation"));
        yield return Filtered(new FormatException("format"));
        yield return LeaveInLoop();
        yield return Rethrown();
        yield return string.Join(',', Disposing().Take(2));
        yield return Runtime(() => Divide(1, 0));
        yield return Runtime(() => ((object)"text" as Version)!.ToString());
        yield return Runtime(() => (int)(object)"text");
        yield return Runtime(() => (new int[2])[new Random(1).Next(5, 6)]);
        yield return Runtime(() => checked(int.MaxValue + Divide(2, 1)));
        yield return Runtime(() => Enum.Parse<DayOfWeek>("Someday"));
    }

    private static int Divide(int left, int right) => left / right;

    private static string Runtime(Func<object> action)
    {
        try
        {
            return action().ToString()!;
        }
        catch (Exception error)
        {
            return error.GetType().Name;
        }
    }

    private static string Nested(int depth)
    {
        var text = new StringBuilder();
        try
        {
            try
            {
                try
                {
                    text.Append("body ");
                    switch (depth)
                    {
                        case 1: throw new InvalidOperationException("one");
                        case 2: throw new ArgumentNullException("two");
                        case 3: return text.Append("returned ").ToString();
                    }
                }
                catch (InvalidOperationException error) when (error.Message.Length == 3)
                {
                    text.Append("caught ").Append(error.Message).Append(' ');
                }
                finally
                {
                    text.Append("inner ");
                }
            }
            finally
            {
                text.Append("outer ");
            }
        }
        catch (ArgumentException error)
        {
            text.Append(error.ParamName);
        }
        return text.ToString();
    }

    private static string Filtered(Exception error)
    {
        int seen = 0;
        bool See(int value, bool answer)
        {
            seen = seen * 10 + value;
            return answer;
        }
        try
        {
            try
            {
                throw error;
            }
            catch (ArgumentException) when (See(1, error.Message.StartsWith("argument")))
            {
                return $"argument {seen}";
            }
            catch (Exception) when (See(2, error is InvalidOperationException))
            {
                return $"operation {seen}";
            }
            finally
            {
                See(3, true);
            }
        }
        catch when (See(4, true))
        {
            return $"other {seen}";
        }
    }

    private static string LeaveInLoop()
    {
        int sum = 0;
        for (int i = 0; i < 10; ++i)
        {
            try
            {
                if (i == 3)
                {
                    continue;
                }
                if (i == 7)
                {
                    break;
                }
                sum += i;
            }
            finally
            {
                sum += 100;
            }
        }
        return sum.ToString();
    }

    private static string Rethrown()
    {
        try
        {
            try
            {
                throw new InvalidOperationException("again");
            }
            catch
            {
                throw;
            }
        }
        catch (Exception error)
        {
            return $"{error.Message} {error.StackTrace!.Contains(nameof(Rethrown))}";
        }
    }

    // An iterator with a finally has a fault block.
    private static IEnumerable<int> Disposing()
    {
        try
        {
            yield return 1;
            try
            {
                yield return 2;
            }
            finally
            {
                GC.KeepAlive("inner");
            }
            yield return 3;
        }
        finally
        {
            GC.KeepAlive("outer");
        }
    }
}

internal interface IShape
{
    double Area { get; }
    string Describe() => $"{GetType().Name} {Area.ToString("F2", CultureInfo.InvariantCulture)}";
}

internal readonly record struct Circle(double Radius) : IShape
{
    public double Area => Math.PI * Radius * Radius;
}

internal sealed record Rectangle(double Width, double Height) : IShape
{
    public double Area => Width * Height;
}

internal static class Generics
{
    private sealed class Tree<TKey, TValue> where TKey : IComparable<TKey>
    {
        private sealed record Node(TKey Key, TValue Value)
        {
            public Node? Left;
            public Node? Right;
        }

        private Node? root;

        public void Add(TKey key, TValue value)
        {
            ref Node? place = ref root;
            while (place is not null)
            {
                place = ref key.CompareTo(place.Key) < 0 ? ref place.Left : ref place.Right;
            }
            place = new Node(key, value);
        }

        public IEnumerable<(TKey, TValue)> Walk() => Walk(root);

        private static IEnumerable<(TKey, TValue)> Walk(Node? node)
        {
            if (node is null)
            {
                yield break;
            }
            foreach (var item in Walk(node.Left))
            {
                yield return item;
            }
            yield return (node.Key, node.Value);
            foreach (var item in Walk(node.Right))
            {
                yield return item;
            }
        }
    }

    public static IEnumerable<string> Run()
    {
        var words = new Tree<string, int>();
        var numbers = new Tree<long, string?>();
        var random = new Random(12345);
        for (int i = 0; i < 20; ++i)
        {
            int value = random.Next(1000);
            words.Add(value.ToString("x"), value);
            numbers.Add(value, value % 3 == 0 ? null : "v");
        }
        yield return string.Join(' ', words.Walk());
        yield return string.Join(' ', numbers.Walk());
        yield return Sum<int>([1, 2, 3]).ToString();
        yield return Sum<double>([0.5, 0.25]).ToString(CultureInfo.InvariantCulture);
        yield return Sum<BigInteger>([BigInteger.Pow(2, 100), 1]).ToString();
        IShape[] shapes = [new Circle(1.5), new Rectangle(2, 3)];
        yield return string.Join(' ', shapes.Select(shape => shape.Describe()));
        yield return new Rectangle(1, 2).ToString() + new Circle(3);
        yield return Constrained(new Circle(1)) + Constrained("text") + Constrained(5);
        yield return string.Join(' ', Swap((1, "one")), Swap((2.5m, 'c')));
    }

    private static T Sum<T>(ReadOnlySpan<T> values) where T : INumber<T>
    {
        T sum = T.Zero;
        foreach (T value in values)
        {
            sum += value;
        }
        return sum;
    }

    private static string Constrained<T>(T value) where T : notnull =>
        $"{value.GetHashCode() == value.GetHashCode()} {value.ToString()!.Length} {typeof(T).Name} ";

    private static (B, A) Swap<A, B>((A, B) pair) => (pair.Item2, pair.Item1);
}

internal static class ControlFlow
{
    public static IEnumerable<string> Run()
    {
        yield return string.Join(' ', Enumerable.Range(-2, 16).Select(Dense));
        yield return string.Join(' ', new[] { "alpha", "beta", "gamma", "delta", "other", "" }.Select(OfText));
        yield return string.Join(' ', new object?[] { 1, 2.5, "text", null, new[] { 1, 2 }, 'c' }.Select(Pattern));
        yield return Collatz(27).ToString();
        yield return Ackermann(2, 3).ToString();
        yield return Goto(5).ToString();
        yield return Large(17).ToString();
    }

    private static string Dense(int value)
    {
        switch (value)
        {
            case 0: return "zero";
            case 1: return "one";
            case 2: goto case 5;
            case 3: return "three";
            case 4: goto default;
            case 5: return "five";
            case 6: return "six";
            case 7: return "seven";
            case 9: return "nine";
            default: return $"({value})";
        }
    }

    private static int OfText(string text) => text switch
    {
        "alpha" => 1, "beta" => 2, "gamma" => 3, "delta" => 4, "epsilon" => 5, "zeta" => 6, "eta" => 7, "" => -1, _ => 0,
    };

    private static string Pattern(object? value) => value switch
    {
        int and > 0 and < 10 => "small",
        double number when number > 2 => "double",
        string { Length: 4 } => "four",
        null => "null",
        int[] and [_, var last] => $"last {last}",
        _ => "else",
    };

    private static int Collatz(long value)
    {
        int steps = 0;
        while (value != 1)
        {
            value = value % 2 == 0 ? value / 2 : 3 * value + 1;
            ++steps;
        }
        return steps;
    }

    private static int Ackermann(int m, int n) =>
        m == 0 ? n + 1 : n == 0 ? Ackermann(m - 1, 1) : Ackermann(m - 1, Ackermann(m, n - 1));

    private static int Goto(int times)
    {
        int sum = 0;
    again:
        sum += times;
        if (--times > 0)
        {
            goto again;
        }
        return sum;
    }

    // Long enough for branches of four bytes.
    private static long Large(int seed)
    {
        long a = seed, b = seed + 1, c = seed + 2, d = seed + 3;
        for (int i = 0; i < 50; ++i)
        {
            if ((i & 1) == 0)
            {
                a = a * 31 + b; b = b * 37 + c; c = c * 41 + d; d = d * 43 + a;
                a ^= b << 3; b ^= c << 5; c ^= d << 7; d ^= a << 11;
                a = a * 131 + b; b = b * 137 + c; c = c * 141 + d; d = d * 143 + a;
                a ^= b >> 13; b ^= c >> 15; c ^= d >> 17; d ^= a >> 19;
                a = a * 1031 + b; b = b * 1037 + c; c = c * 1041 + d; d = d * 1043 + a;
                a = unchecked(a + 0x123456789ABCDEF); b -= 0x7EDCBA987654321; c += i; d -= i;
                a ^= b << 3; b ^= c << 5; c ^= d << 7; d ^= a << 11;
            }
            else if (i % 3 == 0)
            {
                a = a * 51 - b; b = b * 57 - c; c = c * 61 - d; d = d * 63 - a;
                a |= b & 0xFF; b |= c & 0xFF; c |= d & 0xFF; d |= a & 0xFF;
                a = a / 3 + b; b = b / 5 + c; c = c / 7 + d; d = d / 11 + a;
                a = a * 51 - b; b = b * 57 - c; c = c * 61 - d; d = d * 63 - a;
            }
            else
            {
                continue;
            }
            a %= 1_000_000_007; b %= 998_244_353; c %= 1_000_003; d %= 65_537;
        }
        return a ^ b ^ c ^ d;
    }
}

internal static class Numbers
{
    public static IEnumerable<string> Run()
    {
        var culture = CultureInfo.InvariantCulture;
        yield return Factorial(60).ToString();
        yield return BigInteger.ModPow(3, Factorial(20), BigInteger.Parse("1000000000000000003")).ToString();
        yield return (decimal.MaxValue / 7m).ToString(culture) + " " + Math.Round(2.675m, 2).ToString(culture);
        yield return string.Join(' ', new[] { 1.0 / 3, 1e300 * 10, double.NaN, -0.0, 5e-324 }.Select(d => d.ToString("R", culture)));
        yield return string.Join(' ', Enumerable.Range(0, 8).Select(i => Math.Sin(i * 0.5).ToString("F6", culture)));
        yield return $"{(sbyte)(200 + Zero):D} {unchecked((byte)(300 + Zero))} {(uint)(-1 + Zero):X} {0xF0F0 >> (3 + Zero)} {(nint)5 + Zero}";
        yield return $"{BitOperations.PopCount(0xFFF0)} {BitOperations.LeadingZeroCount(1)} {Int128.MaxValue} {UInt128.MaxValue / 3}";
        yield return Complex.Pow(new Complex(1, 2), 3).Real.ToString("F3", culture) + " " + (Half)1.1f;
        yield return Vector.Dot(new Vector<int>(3), new Vector<int>(2)) > 0 ? "vector" : "none";
        yield return Matrix4x4.CreateRotationZ(0.5f).GetDeterminant().ToString("F3", culture);
        yield return new DateTime(2024, 2, 29, 13, 14, 15).AddYears(1).ToString("O", culture) + " " + TimeSpan.FromSeconds(98765);
        yield return DateTime.ParseExact("31.12.1999", "dd.MM.yyyy", culture).DayOfYear.ToString();
    }

    private static int Zero => Environment.TickCount64 < 0 ? 1 : 0;

    private static BigInteger Factorial(int n) => n < 2 ? 1 : n * Factorial(n - 1);
}

internal static class Collections
{
    public static IEnumerable<string> Run()
    {
        var random = new Random(7);
        int[] values = Enumerable.Range(0, 200).Select(_ => random.Next(1000)).ToArray();
        yield return string.Join(' ', values.OrderBy(v => v % 10).ThenByDescending(v => v).Take(12));
        yield return string.Join(' ', values.GroupBy(v => v / 100).OrderBy(g => g.Key).Select(g => $"{g.Key}:{g.Count()}:{g.Max()}"));
        yield return string.Join(' ', values.Chunk(50).Zip(["a", "b", "c", "d"], (chunk, name) => $"{name}{chunk.Sum()}"));
        yield return values.Aggregate(17L, (hash, v) => unchecked(hash * 31 + v)).ToString();
        yield return string.Join(' ', values.Distinct().Except([1, 2]).Union([3]).Intersect(Enumerable.Range(0, 100)).Order());
        yield return (from a in values.Take(10) join b in values.Skip(5).Take(10) on a equals b select a + b).Count().ToString();
        var sorted = new SortedDictionary<string, List<int>>(StringComparer.Ordinal);
        foreach (int value in values.Take(30))
        {
            string key = ((char)('a' + value % 5)).ToString();
            if (!sorted.TryGetValue(key, out var list))
            {
                sorted[key] = list = new List<int>();
            }
            list.Add(value);
        }
        yield return string.Join(' ', sorted.Select(p => $"{p.Key}={string.Join('+', p.Value)}"));
        var queue = new PriorityQueue<string, int>(values.Take(9).Select((v, i) => ($"q{i}", v * 10 + i)));
        var order = new List<string>();
        while (queue.TryDequeue(out string? item, out _))
        {
            order.Add(item);
        }
        yield return string.Join(' ', order);
        var linked = new LinkedList<int>(values.Take(5));
        linked.AddAfter(linked.First!, -1);
        yield return string.Join(' ', linked) + " " + string.Join(' ', new SortedSet<int>(values).GetViewBetween(100, 200));
        int[,] grid = new int[4, 5];
        for (int i = 0; i < 4; ++i)
        {
            for (int j = 0; j < 5; ++j)
            {
                grid[i, j] = i * j + (i == 0 ? 0 : grid[i - 1, j]);
            }
        }
        yield return string.Join(' ', grid.Cast<int>());
        Array.Sort(values, (a, b) => (a ^ 0x155).CompareTo(b ^ 0x155));
        yield return string.Join(' ', values[..10]) + " " + Array.BinarySearch(Enumerable.Range(0, 50).ToArray(), 33);
        yield return new HashSet<string>(["A", "b"], StringComparer.OrdinalIgnoreCase).Contains("B").ToString();
    }
}

internal static partial class Texts
{
    public static IEnumerable<string> Run()
    {
        const string text = "The quick brown fox, 42 years old, jumped over 7 lazy dogs on 2024-02-29 at 13:14.";
        var compiled = new Regex(@"(?<year>\d{4})-(?<month>\d\d)-(?<day>\d\d)", RegexOptions.Compiled);
        yield return compiled.Replace(text, "${day}.${month}.${year}");
        yield return string.Join('|', new Regex(@"\b(\w)(\w*?)(\d*)\b").Matches(text).Select(m => m.Groups[2].Value));
        yield return Regex.IsMatch(text, "^(?:.*(?=fox)).*$", RegexOptions.IgnoreCase).ToString();
        yield return string.Join('|', new Regex("[aeiou]+", RegexOptions.Compiled | RegexOptions.IgnoreCase).Split(text));
        yield return string.Format(CultureInfo.InvariantCulture, "{0,8:N2}|{1,-8}|{2:X4}|{3:yyyy}", 1234.5, "ab", 255, new DateTime(2020, 1, 1));
        var builder = new StringBuilder();
        for (int i = 0; i < 30; ++i)
        {
            builder.Append(i).Insert(0, (char)('a' + i % 26)).Replace("1", "one", 0, Math.Min(20, builder.Length));
        }
        yield return builder.ToString();
        yield return Convert.ToBase64String(Encoding.UTF8.GetBytes("grüße €")) + Encoding.Unicode.GetByteCount(text);
        yield return string.Concat(text.Where(char.IsUpper)) + text.ToUpperInvariant().IndexOf("FOX", StringComparison.Ordinal) + text.Normalize().Length;
        yield return string.Join(',', text.Split([' ', ',', '.'], StringSplitOptions.RemoveEmptyEntries | StringSplitOptions.TrimEntries).Reverse());
        yield return Uri.EscapeDataString(text[..20]) + new Uri("http://host:81/a/../b?q=1#f").AbsoluteUri + Guid.Parse("00112233-4455-6677-8899-aabbccddeeff").ToString("B");
        yield return new Version(1, 2, 3).CompareTo(Version.Parse("1.2.4")).ToString();
    }
}

internal static class Documents
{
    public sealed record Person(string Name, int Age, List<Person>? Children, Dictionary<string, double> Scores, DateTime Born, DayOfWeek? Day);

    public static IEnumerable<string> Json()
    {
        var person = new Person("Ann \"A\" é", 40, [new("Bob", 10, null, [], default, null)], new() { ["x"] = 1.5, ["y"] = -2 }, new DateTime(1984, 5, 6), DayOfWeek.Friday);
        string json = JsonSerializer.Serialize(person, new JsonSerializerOptions { WriteIndented = true, PropertyNamingPolicy = JsonNamingPolicy.CamelCase });
        yield return json.ReplaceLineEndings(" ");
        Person back = JsonSerializer.Deserialize<Person>(json, new JsonSerializerOptions { PropertyNameCaseInsensitive = true })!;
        yield return $"{back.Name} {back.Children![0].Age} {back.Scores["y"]} {back.Born:yyyy}";
        using JsonDocument document = JsonDocument.Parse("[1, 2.5e3, true, null, {\"a\": [\"b\"]}]");
        yield return string.Join(' ', document.RootElement.EnumerateArray().Select(e => e.ValueKind));
        string message;
        try
        {
            message = JsonDocument.Parse("{\"a\": }").ToString()!;
        }
        catch (JsonException error)
        {
            message = $"{error.LineNumber}:{error.BytePositionInLine}";
        }
        yield return message;
    }

    public static IEnumerable<string> Xml()
    {
        XElement root = XElement.Parse("<root><item id='1'>one</item><item id='2'>two<!-- c --></item></root>");
        root.Add(new XElement("item", new XAttribute("id", 3), new XCData("<three>")));
        yield return string.Join(' ', root.Elements().Select(e => (string)e.Attribute("id")! + e.Value));
        yield return root.ToString(SaveOptions.DisableFormatting);
    }

    public static IEnumerable<string> Bytes()
    {
        byte[] data = Enumerable.Range(0, 5000).Select(i => (byte)(i * i % 251)).ToArray();
        using var packed = new MemoryStream();
        using (var pack = new BrotliStream(packed, CompressionLevel.Fastest, leaveOpen: true))
        {
            pack.Write(data);
        }
        packed.Position = 0;
        using var unpacked = new MemoryStream();
        using (var unpack = new BrotliStream(packed, CompressionMode.Decompress))
        {
            unpack.CopyTo(unpacked);
        }
        yield return unpacked.ToArray().SequenceEqual(data).ToString();
        using var writer = new BinaryWriter(new MemoryStream());
        writer.Write(1.5);
        writer.Write("text");
        writer.Write7BitEncodedInt(300);
        yield return Convert.ToHexString(((MemoryStream)writer.BaseStream).ToArray());
        yield return Fletcher(data).ToString("x");
    }

    private static uint Fletcher(ReadOnlySpan<byte> data)
    {
        uint a = 0, b = 0;
        foreach (byte value in data)
        {
            a = (a + value) % 65535;
            b = (b + a) % 65535;
        }
        return b << 16 | a;
    }
}

internal static class Dynamic
{
    public static IEnumerable<string> Run()
    {
        Expression<Func<int, int, int>> expression = (a, b) => a * b + Math.Max(a, b);
        yield return $"{expression} = {expression.Compile()(6, 7)}";

        var method = new DynamicMethod("twice", typeof(int), [typeof(int)]);
        ILGenerator il = method.GetILGenerator();
        il.Emit(OpCodes.Ldarg_0);
        il.Emit(OpCodes.Dup);
        il.Emit(OpCodes.Add);
        il.Emit(OpCodes.Ret);
        yield return method.CreateDelegate<Func<int, int>>()(21).ToString();

        TypeBuilder type = AssemblyBuilder.DefineDynamicAssembly(new AssemblyName("emitted"), AssemblyBuilderAccess.Run)
            .DefineDynamicModule("emitted").DefineType("Emitted", TypeAttributes.Public);
        MethodBuilder built = type.DefineMethod("Guarded", MethodAttributes.Public | MethodAttributes.Static, typeof(int), [typeof(int)]);
        il = built.GetILGenerator();
        LocalBuilder result = il.DeclareLocal(typeof(int));
        il.BeginExceptionBlock();
        il.Emit(OpCodes.Ldc_I4, 100);
        il.Emit(OpCodes.Ldarg_0);
        il.Emit(OpCodes.Div);
        il.Emit(OpCodes.Stloc, result);
        il.BeginFaultBlock();
        il.EmitWriteLine("fault");
        il.EndExceptionBlock();
        il.Emit(OpCodes.Ldloc, result);
        il.Emit(OpCodes.Ret);
        MethodInfo guarded = type.CreateType().GetMethod("Guarded")!;
        yield return guarded.Invoke(null, [7])!.ToString()!;
        string failure = "none";
        try
        {
            guarded.Invoke(null, [0]);
        }
        catch (TargetInvocationException error)
        {
            failure = error.InnerException!.GetType().Name;
        }
        yield return failure;
        yield return string.Join(' ', typeof(Texts).Assembly.GetTypes().Where(t => t.IsInterface || t.IsAbstract && t.IsSealed && !t.IsNested && !t.Name.StartsWith('<')).Select(t => t.Name).Order(StringComparer.Ordinal));
        dynamic late = "late";
        yield return $"{late.Length + 1} {late + 5}";
    }
}

internal static unsafe class Unmanaged
{
    [StructLayout(LayoutKind.Explicit, Size = 8)]
    private struct Overlay
    {
        [FieldOffset(0)] public double Number;
        [FieldOffset(0)] public ulong Bits;
        [FieldOffset(3)] public fixed byte Bytes[4];
    }

    [DllImport("kernel32.dll")]
    private static extern int MulDiv(int number, int numerator, int denominator);

    private static volatile int shared = 5;

    public static IEnumerable<string> Run() => [Stack(9), Overlaid(), MulDiv(10, 7, 2).ToString(), Pointers(), Refs(), $"{shared} {sizeof(Overlay)}", ByRefLike("a,b,,c")];

    private static string Stack(int size)
    {
        int* numbers = stackalloc int[size];
        Span<byte> bytes = stackalloc byte[size];
        for (int i = 0; i < size; ++i)
        {
            numbers[i] = i * i;
            bytes[i] = (byte)(255 - i);
        }
        return $"{numbers[size - 1]} {bytes[size - 1]} {MemoryMarshal.Read<short>(bytes)}";
    }

    private static string Overlaid()
    {
        var overlay = new Overlay { Number = 1.5 };
        overlay.Bytes[0] = 7;
        return overlay.Bits.ToString("X");
    }

    private static string Pointers()
    {
        delegate*<int, int, int> function = &Add;
        Func<int, int, int> managed = Add;
        fixed (char* text = "pinned")
        {
            return $"{function(3, 4)} {managed(5, 6)} {text[2]} {Unsafe.ReadUnaligned<uint>((byte*)text + 1):X}";
        }
    }

    private static int Add(int left, int right) => left + right;

    private static string Refs()
    {
        int[] values = [5, 3, 9];
        ref int largest = ref Largest(values);
        largest = 0;
        return string.Join(' ', values) + __arglist_free(__makeref(largest));
    }

    private static string __arglist_free(TypedReference reference) => __reftype(reference).Name + __refvalue(reference, int);

    private static ref int Largest(int[] values)
    {
        ref int largest = ref values[0];
        foreach (ref int value in values.AsSpan())
        {
            if (value > largest)
            {
                largest = ref value;
            }
        }
        return ref largest;
    }

    private static string ByRefLike(ReadOnlySpan<char> text)
    {
        int pieces = 1;
        for (int at; (at = text.IndexOf(',')) >= 0; text = text[(at + 1)..])
        {
            ++pieces;
        }
        return pieces.ToString();
    }
}

internal static class Threads
{
    [ThreadStatic] private static int own;

    public static IEnumerable<string> Run()
    {
        int total = 0;
        object gate = new();
        var threads = Enumerable.Range(1, 4).Select(n => new Thread(() =>
        {
            for (int i = 0; i < 1000; ++i)
            {
                own += n;
                lock (gate)
                {
                    total += n;
                }
            }
            lock (gate)
            {
                total += own;
            }
        })).ToList();
        threads.ForEach(t => t.Start());
        threads.ForEach(t => t.Join());
        yield return $"{total} {own}";
        long sum = 0;
        Parallel.For(0, 1000, () => 0L, (i, _, local) => local + i, local => Interlocked.Add(ref sum, local));
        yield return sum.ToString();
        yield return Enumerable.Range(0, 500).AsParallel().Where(i => i % 7 == 0).Sum().ToString();
        var counts = new ConcurrentDictionary<int, int>();
        Parallel.ForEach(Enumerable.Range(0, 300), i => counts.AddOrUpdate(i % 3, 1, (_, old) => old + 1));
        yield return string.Join(' ', counts.OrderBy(p => p.Key).Select(p => $"{p.Key}={p.Value}"));
        using var done = new ManualResetEventSlim();
        var lazy = new Lazy<string>(() => "made");
        ThreadPool.QueueUserWorkItem(_ => done.Set());
        yield return $"{done.Wait(10_000)} {lazy.Value}";
    }
}

internal static class Asynchronous
{
    public static async Task<IEnumerable<string>> Run()
    {
        var lines = new List<string> { await Caught(1), await Caught(0) };
        lines.Add(string.Join(' ', await Task.WhenAll(Enumerable.Range(0, 5).Select(Delayed))));
        int sum = 0;
        await foreach (int value in Counting(6))
        {
            sum += value;
        }
        lines.Add(sum.ToString());
        var channel = Channel.CreateBounded<int>(2);
        Task producer = Task.Run(async () =>
        {
            for (int i = 0; i < 20; ++i)
            {
                await channel.Writer.WriteAsync(i);
            }
            channel.Writer.Complete();
        });
        var read = new List<int>();
        await foreach (int value in channel.Reader.ReadAllAsync())
        {
            read.Add(value);
        }
        await producer;
        lines.Add(string.Join(' ', read));
        using var cancelled = new CancellationTokenSource();
        cancelled.Cancel();
        try
        {
            await Task.Delay(10_000, cancelled.Token);
        }
        catch (OperationCanceledException error)
        {
            lines.Add(error.GetType().Name);
        }
        lines.Add((await new ValueTask<int>(5) + await Recursive(10)).ToString());
        return lines;
    }

    private static async Task<string> Caught(int divisor)
    {
        try
        {
            await Task.Yield();
            return (10 / divisor).ToString();
        }
        catch (DivideByZeroException) when (divisor == 0)
        {
            await Task.Yield();
            return "divided by zero";
        }
        finally
        {
            await Task.Yield();
        }
    }

    private static async Task<int> Delayed(int value)
    {
        await Task.Delay(value % 3);
        return value * value;
    }

    private static async IAsyncEnumerable<int> Counting(int below)
    {
        try
        {
            for (int i = 0; i < below; ++i)
            {
                await Task.Yield();
                yield return i;
            }
        }
        finally
        {
            await Task.Yield();
        }
    }

    private static async ValueTask<int> Recursive(int depth) => depth == 0 ? 0 : depth + await Recursive(depth - 1);
}
