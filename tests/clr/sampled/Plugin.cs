using System;
using System.Collections.Generic;
using System.Runtime.CompilerServices;

/// <summary>Code that is loaded once more into contexts that can be unloaded.</summary>
public static class Plugin
{
    private const MethodImplOptions AsWritten = MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization;

    private readonly record struct Value(int Number, Action Arrive, Func<bool> IsToStop);

    /// <summary>Stays until it is told to stop, below a function of the runtime that was made for a type of
    /// this assembly.</summary>
    [MethodImpl(AsWritten)]
    public static void Hold(Action arrive, Func<bool> isToStop) =>
        new List<Value> { new(1, arrive, isToStop) }.ForEach(Each);

    [MethodImpl(AsWritten)]
    private static void Each(Value value) => Spin(value);

    [MethodImpl(AsWritten)]
    private static void Spin(Value value)
    {
        value.Arrive();
        for (long i = value.Number; !value.IsToStop(); i++)
        {
        }
    }
}
