using System;

namespace Corvane.Instrumentation;

[AttributeUsage(AttributeTargets.Method)]
internal sealed class TraceAttribute : Attribute
{
}
