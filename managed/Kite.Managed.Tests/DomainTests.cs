// The build for the .NET Framework where it has application domains: in Mono.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using Kite.Managed.Tests.Export;
using Xunit;

namespace Kite.Managed.Tests;

public sealed class DomainTests : IDisposable
{
    private const int Domains = 5;
    private const int Calls = 2_000;

    private readonly TemporaryFolder folder = new();

    public void Dispose() => folder.Dispose();

    // Each has a thread in a call that never ends. The last one is the program's own domain, which has none.
    [Fact]
    public void ARecycledDomainLosesNothingAndOverwritesNothing()
    {
        var run = Run(("CORVANE_OTLP_FILE", folder["spans.jsonl"]), ("CORVANE_SUMMARY", folder["summary.txt"]));
        Assert.Equal([], run.Errors);
        Assert.Equal(0, run.ExitCode);
        var files = folder.Files.Select(file => file.Name).Order().ToArray();
        Assert.Equal(2 * (Domains + 1), files.Length);
        Assert.All(files, name => Assert.Matches(@"^(spans|summary)(-domain\d+(-\d+)?)?\.(jsonl|txt)$", name));

        var ids = new List<string?>();
        foreach (var file in folder.Files.Where(file => file.Extension == ".jsonl"))
        {
            var spans = Export.Spans.In(Export.Spans.Read(file.FullName, isJson: true)).ToArray();
            var isOwn = file.Name == "spans.jsonl";
            Assert.Equal(isOwn ? 0 : 1, spans.Count(span => span.Text("name") == "Worker.Wait"));
            Assert.Equal(Calls, spans.Count(span => span.Text("name") == "Worker.Serve"));
            ids.AddRange(spans.Select(span => span.Text("spanId")));
        }
        Assert.Equal((Domains + 1) * Calls + Domains, ids.Distinct().Count());
        Assert.All(
            folder.Files.Where(file => file.Extension == ".txt"),
            file => Assert.Contains(File.ReadLines(file.FullName), line => line.Contains("Worker.Serve") && line.Contains(" 2000 ")));
    }

    [Fact]
    public void TheTreesOfAllDomainsAreWritten()
    {
        var run = Run(("CORVANE_CALL_TREE", "stderr"));
        Assert.Equal(Domains, run.Errors.Count(line => line == $"{Calls + 1} calls, 2 threads, 0 dropped"));
        Assert.Equal($"{Calls} calls, 1 threads, 0 dropped", run.Errors[^1]);
        Assert.Equal(0, run.ExitCode);
    }

    private static ChildProgram Run(params (string, string)[] variables) =>
        MonoProgram.Run("domains", [Domains.ToString(), Calls.ToString()], variables);
}
