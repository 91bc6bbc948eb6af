// Which build of the library is tested.
using kite.managed;
using System.Runtime.Versioning;
using System.Reflection;

namespace Kite.Managed.Tests;

internal static class Library
{
    internal static bool IsForNet { get; } =
        typeof(span).Assembly.GetCustomAttribute<TargetFrameworkAttribute>()!.FrameworkName.StartsWith(".NETCoreApp", System.StringComparison.Ordinal);
}
