// Entry points of every shape. Each class is a program's; the Main methods of the others are never called.
using System;
using System.Threading.Tasks;

namespace Entries;

internal static class Nothing
{
    private static void Main() => Told.Print();
}

internal static class Arguments
{
    private static void Main(string[] args) => Told.Print(args);
}

internal static class Number
{
    private static int Main() => Told.Print();
}

internal static class NumberOfArguments
{
    private static int Main(string[] args) => Told.Print(args);
}

internal static class Later
{
    private static async Task Main()
    {
        await Task.Yield();
        Told.Print();
    }
}

internal static class LaterWithArguments
{
    private static async Task Main(string[] args)
    {
        await Task.Yield();
        Told.Print(args);
    }
}

internal static class NumberLater
{
    private static async Task<int> Main()
    {
        await Task.Yield();
        return Told.Print();
    }
}

internal static class NumberOfArgumentsLater
{
    private static async Task<int> Main(string[] args)
    {
        await Task.Yield();
        return Told.Print(args);
    }
}

// Not entry points, but chosen for their name. They cannot be instrumented.
internal static class Others
{
    public static T Main<T>(T value) => value;
    public static int Main(Span<int> value) => value.Length;
}

internal static class Told
{
    // By default injected code needs a module with many type references, and boxes as types that it names.
    private static readonly Type[] named =
    {
        typeof(bool), typeof(char), typeof(byte), typeof(short), typeof(long), typeof(float), typeof(double),
        typeof(decimal), typeof(Guid), typeof(DateTime), typeof(TimeSpan), typeof(Version), typeof(Uri), typeof(Array),
        typeof(Attribute), typeof(Delegate), typeof(Enum), typeof(Exception), typeof(Random), typeof(ValueType),
    };

    public static int Print(params string[] args)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        Console.WriteLine($"told {string.Join(' ', args)} {Others.Main(named.Length)} {Others.Main(new int[3].AsSpan())}");
        return 42;
    }
}
