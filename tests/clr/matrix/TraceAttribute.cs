namespace Corvane.Instrumentation;

using System;

// What the profiler looks for is the name.
[AttributeUsage(AttributeTargets.Method | AttributeTargets.Constructor)]
internal sealed class TraceAttribute : Attribute
{
}
