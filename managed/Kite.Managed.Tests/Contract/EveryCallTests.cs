// Which methods are optimised at once: what every call of an instrumented method runs in the library, down to where
// somebody wants to hear of it.
using System;
using System.Linq;
using System.Reflection;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests;

public class EveryCallTests
{
    private const BindingFlags Declared =
        BindingFlags.Public | BindingFlags.NonPublic | BindingFlags.Static | BindingFlags.Instance | BindingFlags.DeclaredOnly;

    [Fact]
    public void WhatEveryCallRunsIsOptimisedAtOnce()
    {
        var optimised =
            from type in typeof(span).Assembly.GetTypes()
            from method in type.GetMembers(Declared).OfType<MethodBase>()
            where (method.MethodImplementationFlags & MethodImplAttributes.AggressiveOptimization) != 0
            select $"{type.Name}.{method.Name}";
        string[] expected =
        [
            "InstrumentationDirectives..ctor",
            "InstrumentationDirectives.GetIndexes",
            "Invokers.ContainsKey",
            "Invokers.HasListeners",
            "MethodTable.Find",
            "Recorder.FindsListener",
            "Recorder.Finish",
            "Recorder.Leave",
            "Recorder.Log",
            "span.GenericEpilogue",
            "span.GenericPrologue",
            "span.Log",
        ];
        Assert.Equal(expected, optimised.Order(StringComparer.Ordinal));
    }
}
