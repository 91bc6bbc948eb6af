using System.Runtime.CompilerServices;

namespace Corvane.Instrumentation;

// For what every call of an instrumented method runs. The runtime optimises a method once it compiles no new ones for
// a while, which may be late in a program's life; until then these would take more time than all the rest.
internal static class EveryCall
{
    // AggressiveOptimization, which .NET Standard does not name. The .NET Framework does not look at it.
    internal const MethodImplOptions Options = (MethodImplOptions)512;
}
