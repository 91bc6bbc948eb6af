using System;
using System.IO;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public sealed class TraceLogTests : IDisposable
{
    private readonly TemporaryFolder folder = new();

    public void Dispose() => folder.Dispose();

    private TraceLog Open(string path)
    {
        const string Variable = "KITE_MANAGED_TESTS_TRACE";
        Environment.SetEnvironmentVariable(Variable, path);
        return new TraceLog(OutputTarget.FromVariable(Variable)!);
    }

    private static string Line(int level, string text) => $"{level} {Environment.CurrentManagedThreadId} {text}";

    [Fact]
    public void ALineIsInTheFileAtOnce()
    {
        File.WriteAllText(folder["log"], "before\n");
        var log = Open(folder["log"]);
        log.Write(4, "one");
        Assert.Equal(["before", Line(4, "one")], File.ReadAllLines(folder["log"]));
        log.Write(0, null);
        Assert.Equal(["before", Line(4, "one"), Line(0, "")], File.ReadAllLines(folder["log"]));
    }

    [Fact]
    public void AFileThatIsOpenElsewhereIsWrittenTo()
    {
        var (one, other) = (Open(folder["log"]), Open(folder["log"]));
        one.Write(4, "one");
        other.Write(4, "other");
        Assert.Equal([Line(4, "one"), Line(4, "other")], File.ReadAllLines(folder["log"]));
    }

    [Fact]
    public void OneThatCannotBeWrittenIsGivenUp()
    {
        var log = Open(folder["later/log"]);
        log.Write(4, "one");
        Directory.CreateDirectory(folder["later"]);
        log.Write(4, "two");
        Assert.False(File.Exists(folder["later/log"]));
    }
}
