// What injected code calls: a managed library that writes down all that it is handed, in full, and behaves
// as badly as it is told to. CORVANE_PROBE_FILE names the file, CORVANE_PROBE_FAILS what throws ("Error",
// "GenericPrologue", ...), CORVANE_PROBE_REPLACES=1 has every argument replaced ("wrongly": by an object of a
// foreign type), and CORVANE_PROBE_TELLS=1 has it write down as well what every call has alike. With
// CORVANE_PROBE_LISTENS=0 it says that nobody listens.
using System;
using System.Collections.Generic;
using System.Reflection;
using Probe;

internal static class StartupHook
{
    public static void Initialize()
    {
    }
}

namespace kite.managed
{
    public static class span
    {
        public static void Log(int level, string text) => Report.Log(level, text);

        public static bool Error(string? text, Exception exception)
        {
            Report.Error(text, exception);
            Report.FailIn(nameof(Error));
            return true;
        }

        public static void GenericPrologue(
            uint index, object? receiver, object?[] arguments, Corvane.Instrumentation.InstrumentationDirectives directives)
        {
            Report.Enter(index, receiver, arguments, directives);
            Report.FailIn(nameof(GenericPrologue));
        }

        public static void GenericEpilogue(
            uint index, object? receiver, object?[] arguments, object? result,
            Corvane.Instrumentation.InstrumentationDirectives directives)
        {
            Report.Leave(index, receiver, arguments, result);
            Report.FailIn(nameof(GenericEpilogue));
        }
    }
}

namespace Corvane.Instrumentation
{
    public static class Invokers
    {
        private static readonly Dictionary<uint, MethodBase> methods = new();

        public static bool HasListeners()
        {
            Report.FailIn(nameof(HasListeners));
            return Environment.GetEnvironmentVariable("CORVANE_PROBE_LISTENS") != "0";
        }

        public static bool ContainsKey(uint index)
        {
            Report.FailIn(nameof(ContainsKey));
            return methods.ContainsKey(index);
        }

        public static void RegisterMethod(uint index, MethodBase method, bool traced)
        {
            methods.Add(index, method);
            Report.FailIn(nameof(RegisterMethod));
        }

        internal static MethodBase Method(uint index) => methods[index];
    }

    public class InstrumentationDirectives
    {
        public InstrumentationDirectives() => Report.FailIn(".ctor");

        internal int[] Indexes { get; set; } = Array.Empty<int>();

        public int[] GetIndexes()
        {
            Report.FailIn(nameof(GetIndexes));
            return Indexes;
        }
    }

    public delegate void MethodArgumentCallback();

    public class MethodData
    {
    }
}
