// What is loaded again and again. The marked methods, whose names begin with "Method", are written when it is built.
using System;

/// <summary>A hundred marked methods of one shape.</summary>
public static partial class Plugin
{
    private static int Work(int value, int number) =>
        value >= 0 ? value + number : throw new ArgumentOutOfRangeException(nameof(value));
}
