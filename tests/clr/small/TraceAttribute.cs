using System;

namespace Corvane.Instrumentation;

[AttributeUsage(AttributeTargets.Method | AttributeTargets.Constructor)]
internal sealed class TraceAttribute : Attribute
{
}
