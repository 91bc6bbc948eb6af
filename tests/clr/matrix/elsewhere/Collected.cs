// Loaded once more where the collector may take it away.
using System;
using Corvane.Instrumentation;

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}

namespace Elsewhere
{
    public static class Collected
    {
        [Trace]
        public static string OfThePlatform(Guid id) => id.ToString();

        [Trace]
        public static string OfItsOwn(Size size) => size.ToString();
    }
}
