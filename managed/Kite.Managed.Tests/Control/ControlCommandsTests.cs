// What is answered, byte by byte.
using System;
using System.Collections.Generic;
using System.IO;
using System.IO.Compression;
using System.Linq;
using System.Text;
using Corvane.Instrumentation.Control;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;
using Corvane.Sampling;
using Xunit;

namespace Kite.Managed.Tests.Control;

public sealed class ControlCommandsTests : IDisposable
{
    private readonly TemporaryFolder folder = new();
    private readonly FakeProcess process = new();

    public void Dispose() => folder.Dispose();

    private static ControlCommands Of(Recorder? recorder) =>
        new(recorder, _ => throw new InvalidOperationException("the profiler is not in this process:\nset it"), _ => { });

    private static string Answer(ControlCommands commands, string request)
    {
        var reply = new MemoryStream();
        commands.Answer(request, reply);
        return Encoding.UTF8.GetString(reply.ToArray());
    }

    [Theory]
    [InlineData("")]
    [InlineData("nonsense")]
    [InlineData("summary now")]
    [InlineData("Flush")]
    [InlineData("sample")]
    [InlineData("sample 1 10")]
    public void NoRequestIsSaidToBeNone(string request) =>
        Assert.Equal("error that is no request\n", Answer(Of(null), request));

    [Theory]
    [InlineData("sample 0 10 svg", "a number is not from 1 to 3600")]
    [InlineData("sample 3601 10 svg", "a number is not from 1 to 3600")]
    [InlineData("sample -1 10 svg", "a number is not from 1 to 3600")]
    [InlineData("sample 99999999999 10 svg", "a number is not from 1 to 3600")]
    [InlineData("sample 1 0 svg", "a number is not from 1 to 60000")]
    [InlineData("sample 1 10 png", "a format is none of folded, speedscope, svg, pprof")]
    [InlineData("sample 1 10 svg,", "a format is none of folded, speedscope, svg, pprof")]
    [InlineData("sample 1 10 svg", "the profiler is not in this process: set it")]
    [InlineData("summary", "there is no summary of calls: the process was started without CORVANE_SUMMARY")]
    [InlineData("flush", "no file is written by this process: CORVANE_CALL_TREE, CORVANE_SUMMARY, CORVANE_OTLP_FILE, CORVANE_TRACE_FILE and CORVANE_SAMPLE name none")]
    public void WhatCannotBeDoneHasAReason(string request, string reason)
    {
        Assert.Equal($"error {reason}\n", Answer(Of(null), request));
        Assert.Equal($"error {reason}\n", Answer(Of(new RecordedCalls().Recorder), request));
    }

    [Fact]
    public void TheSummaryIsTheTableOfNow()
    {
        var recording = new RecordedCalls(summary: new CallSummary()).With(0, "Open");
        recording.Enter(0);
        recording.Leave(0);
        var lines = Answer(Of(recording.Recorder), "summary").Split('\n');
        Assert.Equal("ok", lines[0]);
        Assert.StartsWith("part summary ", lines[1]);
        Assert.Contains("Kite.Managed.Tests.Shop.Open", lines[3]);
        Assert.StartsWith("1 calls, 0 errors, 1 methods", lines[4]);
        Assert.Equal("end", lines[5]);
    }

    // What is written at the end takes the place of it.
    [Fact]
    public void FilesAreWrittenAsIfTheProcessEnded()
    {
        var outputs = new Recorder.Outputs { Tree = Target("tree.txt"), Summary = Target("summary.txt") };
        var recording = new RecordedCalls(summary: new CallSummary(), outputs: outputs).With(0, "Open");
        recording.Enter(0);
        var newLine = Environment.NewLine;
        var files = $"{folder["tree.txt"]}{newLine}{folder["summary.txt"]}{newLine}";
        Assert.Equal($"ok\npart files {files.Length}\n{files}part remarks 0\nend\n", Answer(Of(recording.Recorder), "flush"));
        Assert.Equal("1 calls, 1 threads, 0 dropped", File.ReadLines(folder["tree.txt"]).Last());
        recording.Leave(0);
        recording.Enter(0);
        recording.Leave(0);
        recording.Recorder.Print();
        Assert.Equal("2 calls, 1 threads, 0 dropped", File.ReadLines(folder["tree.txt"]).Last());
    }

    [Fact]
    public void SamplesAreWrittenToo()
    {
        process.Add(10, "worker", 2, 1);
        using var sampler = new Sampler(process, process, new SamplerOptions { Interval = TimeSpan.FromMilliseconds(5) });
        var files = new ProfileFiles(sampler, folder.FullName, "shop", (_, _) => { });
        sampler.Start();
        var commands = new ControlCommands(null, _ => throw new InvalidOperationException(), files.Flush);
        var names = Answer(commands, "flush").Split('\n')[2..6].Select(line => line.TrimEnd('\r')).ToArray();
        Assert.Equal([folder["shop.folded"], folder["shop.speedscope.json"], folder["shop.svg"], folder["shop.pb.gz"]], names);
        Assert.All(names, name => Assert.True(File.Exists(name)));
    }

    // An end point is none.
    [Fact]
    public void FilesOfSpansAreNamedOnceThereAreSpans()
    {
        var sinks = new Sinks([], [folder["spans.jsonl"]], "http://collector", new Variables(name => name == "CORVANE_END_SECONDS" ? "600" : null, _ => { }));
        var span = new Span(new TraceId(0, 1), 1, 2, "name", "method", Span.CallScope);
        var flushed = new Flushed();
        sinks.Flush(flushed);
        sinks.Spans.OnBegun(span);
        sinks.Flush(flushed);
        Assert.Empty(flushed.Files);
        Assert.Equal(["no span has ended yet", "no span has ended yet"], flushed.Remarks);
        sinks.Spans.OnEnded(span);
        flushed = new Flushed();
        sinks.Flush(flushed);
        Assert.Equal([folder["spans.jsonl"]], flushed.Files);
        Assert.Equal(["spans are on their way to http://collector"], flushed.Remarks);
        sinks.End();
    }

    [Fact]
    public void AFileThatCannotBeWrittenIsSaid()
    {
        var outputs = new Recorder.Outputs { Tree = Target("missing/tree.txt") };
        var answer = Answer(Of(new RecordedCalls(outputs: outputs).Recorder), "flush");
        Assert.Contains("part files 0\n", answer);
        Assert.Contains($"nothing was written to {folder["missing/tree.txt"]}; ", answer);
    }

    [Fact]
    public void AProfileHasAllFormatsThatAreAskedFor()
    {
        process.Add(10, "worker", 2, 1);
        var commands = new ControlCommands(null, options =>
        {
            Assert.Equal(TimeSpan.FromMilliseconds(5), options.Interval);
            return new Sampler(process, process, options);
        }, _ => { });
        using var reply = new WriteTo("wait 1\n", () => process.WaitForRounds());
        commands.Answer("sample 1 5 folded,pprof,svg,speedscope", reply);
        reply.Position = 0;
        Assert.Equal("ok", ReadLine(reply));
        Assert.Equal("wait 1", ReadLine(reply));
        var parts = new Dictionary<string, byte[]>();
        for (var line = ReadLine(reply); line != "end"; line = ReadLine(reply))
        {
            var words = line.Split(' ');
            Assert.Equal("part", words[0]);
            var bytes = new byte[int.Parse(words[2])];
            reply.ReadExactly(bytes);
            parts.Add(words[1], bytes);
        }
        Assert.Equal(["folded", "pprof", "svg", "speedscope", "cost"], parts.Keys);
        Assert.Contains("Type.F1;Type.F2", Encoding.UTF8.GetString(parts["folded"]));
        Assert.Contains("<svg", Encoding.UTF8.GetString(parts["svg"]));
        Assert.Contains("Type.F2", Encoding.UTF8.GetString(parts["speedscope"]));
        using var unzipped = new GZipStream(new MemoryStream(parts["pprof"]), CompressionMode.Decompress);
        Assert.NotEqual(-1, unzipped.ReadByte());
        Assert.StartsWith("1 thread every 5 ms", Encoding.UTF8.GetString(parts["cost"]));
    }

    // Nobody is sampled for nobody.
    [Fact]
    public void AClientThatGoesEndsTheSampling()
    {
        process.Add(10, "worker", 2, 1);
        var commands = new ControlCommands(null, options => new Sampler(process, process, options), _ => { });
        Assert.Throws<IOException>(() => commands.Answer("sample 3600 5 svg", new WriteTo("wait 3599\n", () => throw new IOException("gone"))));
        var rounds = process.Rounds;
        System.Threading.Thread.Sleep(100);
        Assert.Equal(rounds, process.Rounds);
    }

    private static string ReadLine(Stream stream)
    {
        var line = new StringBuilder();
        for (var next = stream.ReadByte(); next != '\n'; next = stream.ReadByte())
        {
            Assert.NotEqual(-1, next);
            line.Append((char)next);
        }
        return line.ToString();
    }

    private OutputTarget Target(string name)
    {
        var variable = "KITE_MANAGED_TESTS_" + name;
        Environment.SetEnvironmentVariable(variable, folder[name]);
        return OutputTarget.FromVariable(variable)!;
    }

    // Acts when that has been written.
    private sealed class WriteTo(string last, Action act) : MemoryStream
    {
        public override void Write(byte[] buffer, int offset, int count)
        {
            base.Write(buffer, offset, count);
            if (Encoding.UTF8.GetString(ToArray()).EndsWith(last, StringComparison.Ordinal))
            {
                act();
            }
        }
    }
}
