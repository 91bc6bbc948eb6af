// Drives two well-known libraries, marked throughout with the trace attribute, over as much of their code as
// fits. Prints what they made, the same in every run on one runtime, so that a run in which all of the
// library was instrumented can be held against a plain one. Nothing of the program itself is marked.
using System.Globalization;

internal static class Program
{
    private static int Main()
    {
        CultureInfo.CurrentCulture = CultureInfo.CurrentUICulture = CultureInfo.GetCultureInfo("en-US");
        using var output = new StreamWriter(Console.OpenStandardOutput()); // UTF-8, whatever the console's is
        Console.SetOut(output);
        Console.WriteLine($"runtime {Environment.Version}");
        Report("convert", Serialization.Run());
        Report("contracts", Contracts.Run());
        Report("tokens", Tokens.Run());
        Report("paths", Paths.Run());
        Report("readers", Readers.Run());
        Report("xml", XmlNodes.Run());
        Report("words", Words.Run());
        Report("numbers", Numbers.Run());
        Report("times", Times.Run());
        Report("units", Units.Run());
        if (Environment.GetEnvironmentVariable("LIBRARIES_COUNTS") is { } file && Environment.GetEnvironmentVariable("CORECLR_ENABLE_PROFILING") == "1")
        {
            File.WriteAllLines(file, Counts());
        }
        return 42;
    }

    private static void Report(string name, IEnumerable<string> lines)
    {
        foreach (var line in lines)
        {
            Console.WriteLine($"{name}: {line}");
        }
    }

    // How often each method of the libraries was called that counts its calls, and was called.
    private static IEnumerable<string> Counts()
    {
        foreach (var calls in AppDomain.CurrentDomain.GetAssemblies().Select(assembly => assembly.GetType("Woven.Calls")).OfType<Type>())
        {
            var counts = (int[])calls.GetField("Counts")!.GetValue(null)!;
            var names = ((string)calls.GetField("Names")!.GetValue(null)!).Split('\n');
            foreach (var (name, count) in names.Zip(counts).Where(pair => pair.Second > 0))
            {
                yield return $"{count}\t{name}";
            }
        }
    }

    public static string Line(params object?[] values) => string.Join(" ", values);

    // What an action throws, as a line: only the libraries' own messages, which do not vary.
    public static string Failure(Action action)
    {
        try
        {
            action();
            return "no exception";
        }
        catch (Exception exception)
        {
            return $"{exception.GetType().Name}: {exception.Message.ReplaceLineEndings(" ")}";
        }
    }
}
