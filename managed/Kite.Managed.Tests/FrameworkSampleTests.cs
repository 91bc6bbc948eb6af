// The sample for the .NET Framework, as far as Mono goes: without the profiler, which Mono does not load.
using System.IO;
using System.Reflection;
using Xunit;

namespace Kite.Managed.Tests;

public sealed class FrameworkSampleTests
{
    [Fact]
    public void RunsWithTheLibraryBesideIt()
    {
        var run = MonoProgram.Run("framework", []);
        Assert.Equal(["The balance is 1400.", "Nothing is not booked."], run.Output);
        Assert.Equal([], run.Errors);
        Assert.Equal(0, run.ExitCode);
        var beside = Path.Combine(Path.GetDirectoryName(MonoProgram.FileOf("framework"))!, "kite.managed.dll");
        Assert.Equal(Assembly.GetAssembly(typeof(kite.managed.span))!.FullName, AssemblyName.GetAssemblyName(beside).FullName);
    }
}
