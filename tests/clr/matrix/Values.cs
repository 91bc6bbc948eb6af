// Parameters and results of every type that is passed by value: each method gives back what it is given.
using System;
using System.Collections.Generic;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Values
{
    public static void Run()
    {
        Show(Boolean(true));
    }

    [Trace] private static bool Boolean(bool value) => value;
}
