using System;
using System.Collections;
using System.Globalization;
using System.Linq;
using System.Runtime.CompilerServices;

namespace Matrix;

internal static class Output
{
    // Prints the expression and its value: "Sum(1, 2) = 3".
    public static void Show<T>(T value, [CallerArgumentExpression(nameof(value))] string expression = "") =>
        Console.WriteLine($"{expression} = {Describe(value)}");

    // Prints how it ends.
    public static void Catch(Action action, [CallerArgumentExpression(nameof(action))] string expression = "")
    {
        try
        {
            action();
            Console.WriteLine($"{expression} returns");
        }
        catch (Exception error)
        {
            Console.WriteLine($"{expression} throws {error.GetType()}: {error.Message}");
        }
    }

    public static string Describe(object? value) => value switch
    {
        null => "null",
        string text => $"\"{text}\"",
        '\0' => "'\\0'",
        char character => $"'{character}'",
        IEnumerable sequence => "[" + string.Join(", ", sequence.Cast<object?>().Select(Describe)) + "]",
        Delegate function => function.Method.Name,
        IFormattable number => number.ToString(null, CultureInfo.InvariantCulture),
        _ => value.ToString() ?? "",
    };
}
