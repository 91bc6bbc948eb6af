// Methods whose code returns, branches and repeats in every way.
using System;
using System.Collections.Generic;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Bodies
{
    public static void Run()
    {
        Returns();
        Switches();
        Loops();
        Recursion();
    }

    private static void Returns()
    {
        foreach (int number in new[] { -1, 0, 1, 7 })
        {
            Show(Many(number));
            ManyVoid(number);
            Show(Conditional(number));
        }
        Show(MiddleOnly(1));
        Catch(() => MiddleOnly(-1));
        Catch(() => TrailingThrow(-1));
        TrailingThrow(1);
        Catch(() => NeverReturns());
        Catch(() => Empty().ToString());
        Show(Widened(19));
        Show(Widened(-1));
        Show(Coalesced(null));
        Show(Coalesced("text"));
    }

    [Trace]
    private static string Many(int number)
    {
        if (number < 0)
        {
            return "negative";
        }
        if (number == 0)
        {
            return "zero";
        }
        return number == 1 ? "one" : "many";
    }

    [Trace]
    private static void ManyVoid(int number)
    {
        if (number < 0)
        {
            return;
        }
        if (number == 0)
        {
            Console.WriteLine("zero");
            return;
        }
        Console.WriteLine("positive");
    }

    // Its one ret finds the value on the stack, whichever branch put it there.
    [Trace] private static int Conditional(int number) => number > 0 ? number > 5 ? 2 : 1 : number < 0 ? -1 : 0;

    [Trace]
    private static int MiddleOnly(int number)
    {
        if (number > 0)
        {
            return number;
        }
        throw new ArgumentOutOfRangeException(nameof(number));
    }

    [Trace]
    private static void TrailingThrow(int number)
    {
        if (number > 0)
        {
            Console.WriteLine("positive");
            return;
        }
        Console.WriteLine("about to throw");
        throw new ArgumentOutOfRangeException(nameof(number));
    }

    // Without a return there is no exit to put anything at.
    [Trace] private static int NeverReturns() => throw new NotSupportedException("never");
    [Trace] private static object Empty() => null!;

    // Short branches across many returns, each of which takes more room than before.
    [Trace]
    private static int Widened(int number)
    {
        if (number >= 0)
        {
            if (number == 0) return 100;
            if (number == 1) return 101;
            if (number == 2) return 102;
            if (number == 3) return 103;
            if (number == 4) return 104;
            if (number == 5) return 105;
            if (number == 6) return 106;
            if (number == 7) return 107;
            if (number == 8) return 108;
            if (number == 9) return 109;
            if (number == 10) return 110;
            if (number == 11) return 111;
            if (number == 12) return 112;
            if (number == 13) return 113;
            if (number == 14) return 114;
            if (number == 15) return 115;
        }
        return number;
    }

    [Trace] private static int Coalesced(string? text) => text?.Length ?? -1;

    private static void Switches()
    {
        foreach (int number in new[] { 0, 3, 9 })
        {
            Show(Dense(number));
            Show(Sparse(number * 1000));
        }
        Show(OfStrings("five"));
        Show(OfStrings("eleven"));
        Show(OfPatterns(5));
        Show(OfPatterns("text"));
        Show(OfPatterns(new Point(0, 3)));
        Show(OfPatterns(new[] { 1, 2, 3 }));
        Show(OfPatterns(null));
    }

    [Trace]
    private static string Dense(int number)
    {
        switch (number)
        {
            case 0: return "zero";
            case 1: return "one";
            case 2:
            case 3: return "two or three";
            case 4: return "four";
            case 5: goto case 0;
            default: return "more";
        }
    }

    [Trace]
    private static string Sparse(int number) => number switch
    {
        0 => "none",
        3000 => "three thousand",
        1_000_000 => "a million",
        _ => "some",
    };

    [Trace]
    private static int OfStrings(string text) => text switch
    {
        "one" => 1,
        "two" => 2,
        "three" => 3,
        "four" => 4,
        "five" => 5,
        "six" => 6,
        "seven" => 7,
        "eight" => 8,
        _ => 0,
    };

    [Trace]
    private static string OfPatterns(object? value)
    {
        switch (value)
        {
            case int and > 3 and < 10: return "a digit";
            case string { Length: var length }: return $"{length} characters";
            case Point { X: 0, Y: var y }: return $"at height {y}";
            case int[] and [1, .., var last]: return $"from 1 to {last}";
            case null: return "nothing";
            default: return "something";
        }
    }

    private static void Loops()
    {
        Show(Endless(5));
        Show(Nested(4));
        Show(Goto(3));
        Show(BackToTheStart(3));
        Show(Long(100_000));
        Show(Each(new List<int> { 1, 2, 3 }));
        EndlessVoid();
    }

    [Trace]
    private static int Endless(int limit)
    {
        int number = 0;
        while (true)
        {
            if (++number > limit)
            {
                break;
            }
        }
        return number;
    }

    // The method's code ends in the branch back.
    [Trace]
    private static void EndlessVoid()
    {
        for (int number = 0; ; ++number)
        {
            if (number == 3)
            {
                return;
            }
            Console.WriteLine($"round {number}");
        }
    }

    [Trace]
    private static int Nested(int size)
    {
        int found = 0;
        for (int i = 0; i < size; ++i)
        {
            for (int k = 0; k < size; ++k)
            {
                if (k > i)
                {
                    break;
                }
                if ((i + k) % 2 == 0)
                {
                    continue;
                }
                ++found;
            }
        }
        return found;
    }

    [Trace]
    private static string Goto(int number)
    {
        string text = "";
    again:
        text += number;
        if (--number > 0)
        {
            goto again;
        }
        return text;
    }

    [Trace]
    private static int BackToTheStart(int number)
    {
        do
        {
            number *= 2;
        }
        while (number < 20);
        return number;
    }

    // Long enough for the runtime to replace the code while it runs.
    [Trace]
    private static long Long(int rounds)
    {
        long sum = 0;
        for (int i = 0; i < rounds; ++i)
        {
            sum += i % 7;
        }
        return sum;
    }

    [Trace]
    private static int Each(IEnumerable<int> numbers)
    {
        int sum = 0;
        foreach (int number in numbers)
        {
            if (number == 3)
            {
                return sum;
            }
            sum += number;
        }
        return -1;
    }

    private static void Recursion()
    {
        Show(Factorial(5));
        Show(Even(4));
        Show(Depth(8));
        Show(Ackermann(1, 2));
        Catch(() => FailsDeepDown(3));
    }

    [Trace] private static int Factorial(int number) => number <= 1 ? 1 : number * Factorial(number - 1);
    [Trace] private static bool Even(int number) => number == 0 || Odd(number - 1);
    [Trace] private static bool Odd(int number) => number != 0 && Even(number - 1);
    [Trace] private static int Depth(int number) => number == 0 ? 0 : 1 + Depth(number - 1);

    [Trace]
    private static int Ackermann(int m, int n) =>
        m == 0 ? n + 1 : n == 0 ? Ackermann(m - 1, 1) : Ackermann(m - 1, Ackermann(m, n - 1));

    [Trace]
    private static void FailsDeepDown(int number)
    {
        if (number == 0)
        {
            throw new InvalidOperationException("deep down");
        }
        FailsDeepDown(number - 1);
    }

}
