using System;

namespace Corvane.Instrumentation;

/// <summary>
/// Marks a method to be instrumented. It does nothing by itself: the profiler looks for its name, so that
/// an attribute of that name of the program's own serves as well.
/// </summary>
[AttributeUsage(AttributeTargets.Method | AttributeTargets.Constructor, Inherited = false)]
public sealed class TraceAttribute : Attribute
{
}
