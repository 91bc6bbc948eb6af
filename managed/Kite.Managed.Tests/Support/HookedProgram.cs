// A program that has no copy of the library, and the library in another place, for the runtime to bring together.
using System;
using System.IO;
using kite.managed;

namespace Kite.Managed.Tests;

internal sealed class HookedProgram : IDisposable
{
    private readonly TemporaryFolder folder = new();

    // The program alone, without its list of dependencies.
    internal HookedProgram()
    {
        const string Settings = "Kite.Managed.Tests.runtimeconfig.json";
        Path = folder["Kite.Managed.Tests.dll"];
        File.Copy(ChildProgram.Assembly, Path);
        File.Copy(System.IO.Path.Combine(System.IO.Path.GetDirectoryName(ChildProgram.Assembly)!, Settings), folder[Settings]);
        Library = System.IO.Path.Combine(Directory.CreateDirectory(folder["elsewhere"]).FullName, "kite.managed.dll");
        File.Copy(typeof(span).Assembly.Location, Library);
    }

    internal string Path { get; }

    internal string Library { get; }

    public void Dispose() => folder.Dispose();
}
