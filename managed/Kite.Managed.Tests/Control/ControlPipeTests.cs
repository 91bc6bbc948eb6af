// Clients of all kinds, at a real pipe.
using System;
using System.IO;
using System.IO.Pipes;
using System.Linq;
using System.Text;
using System.Threading;
using Corvane.Instrumentation.Control;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Control;

public sealed class ControlPipeTests : IDisposable
{
    private readonly string name = "kite-managed-" + Guid.NewGuid().ToString("N");
    private readonly Thread server;
    private volatile bool isOver;
    private Exception? failure;

    public ControlPipeTests()
    {
        var recording = new RecordedCalls(summary: new CallSummary()).With(0, "Open");
        recording.Enter(0);
        recording.Leave(0);
        var commands = new ControlCommands(recording.Recorder, _ => throw new InvalidOperationException(), _ => { });
        var control = new ControlPipe(commands, TimeSpan.FromSeconds(3));
        server = new Thread(() =>
        {
            try
            {
                control.Serve(Make);
            }
            catch (Exception exception)
            {
                failure = exception;
            }
        })
        {
            IsBackground = true,
        };
        server.Start();
    }

    public void Dispose()
    {
        isOver = true;
        // It may wait for a client, or be about to see that there are no more.
        for (var attempt = 0; !server.Join(20); attempt++)
        {
            Assert.InRange(attempt, 0, 1000);
            try
            {
                using var last = new NamedPipeClientStream(".", name, PipeDirection.InOut, PipeOptions.Asynchronous);
                last.Connect(20);
            }
            catch (Exception exception) when (exception is IOException or TimeoutException)
            {
            }
        }
        Assert.Null(failure);
    }

    private NamedPipeServerStream? Make() => isOver
        ? null
        : new NamedPipeServerStream(
            name, PipeDirection.InOut, 1, PipeTransmissionMode.Byte, PipeOptions.CurrentUserOnly);

    private NamedPipeClientStream Connect()
    {
        var client = new NamedPipeClientStream(".", name, PipeDirection.InOut, PipeOptions.Asynchronous);
        client.Connect(30_000);
        return client;
    }

    // On this system the next client may have been taken in before the pipe of the one before is closed, and goes with it.
    private string Ask(string request)
    {
        for (var attempt = 0; ; attempt++)
        {
            try
            {
                using var client = Connect();
                client.Write(Encoding.UTF8.GetBytes(request));
                using var reader = new StreamReader(client);
                if (reader.ReadToEnd() is { Length: > 0 } answer)
                {
                    return answer;
                }
            }
            catch (Exception exception) when (exception is IOException or TimeoutException && attempt < 1000)
            {
            }
            Thread.Sleep(5);
        }
    }

    private void Write(byte[] bytes)
    {
        using var client = Connect();
        try
        {
            client.Write(bytes);
        }
        catch (IOException)
        {
            // It was let go while it wrote.
        }
    }

    [Fact]
    public void EachClientIsAnswered()
    {
        for (var client = 0; client < 5; client++)
        {
            var answer = Ask("summary\n");
            Assert.StartsWith("ok\npart summary ", answer);
            Assert.EndsWith("\nend\n", answer);
        }
        Assert.Equal("error that is no request\n", Ask("what?\r\n"));
    }

    [Fact]
    public void WhoSaysNothingOrGoesIsLetGo()
    {
        using (Connect())
        {
            Assert.StartsWith("ok\n", Ask("summary\n"));
        }
        Connect().Dispose();
        Write("summary\n"u8.ToArray());
        Assert.StartsWith("ok\n", Ask("summary\n"));
    }

    // Whoever keeps the pool busy: here the program does, whose threads all wait for one that never comes.
    [Fact]
    public void TheProgramsPoolIsOfNoConcern()
    {
        var release = new ManualResetEventSlim(); // for as long as any of them
        ThreadPool.GetMinThreads(out var workers, out _);
        for (var item = 0; item < 4 * workers + 50; item++)
        {
            ThreadPool.UnsafeQueueUserWorkItem(_ => release.Wait(), null);
        }
        try
        {
            using var client = Connect();
            client.Write("summary\n"u8);
            Assert.Equal('o', client.ReadByte());
        }
        finally
        {
            release.Set();
        }
    }

    // A byte at a time is as good as nothing.
    [Fact]
    public void WhoTakesTooLongForAWholeRequestIsLetGo()
    {
        using var slow = Connect();
        var isLetGo = false;
        for (var bytes = 0; bytes < 200 && !isLetGo; bytes++)
        {
            try
            {
                slow.WriteByte((byte)'x');
                Thread.Sleep(100);
            }
            catch (IOException)
            {
                isLetGo = true;
            }
        }
        Assert.True(isLetGo);
        Assert.StartsWith("ok\n", Ask("summary\n"));
    }

    [Fact]
    public void GarbageIsNotAnswered()
    {
        var random = new Random(5);
        for (var client = 0; client < 20; client++)
        {
            var garbage = new byte[5_000];
            random.NextBytes(garbage);
            Write(garbage);
        }
        Assert.StartsWith("ok\n", Ask("summary\n"));
    }

    [Fact]
    public void ManyClientsAreServedOneAfterTheOther()
    {
        var answers = new string[100];
        var clients = Enumerable.Range(0, answers.Length).Select(client => new Thread(() => answers[client] = Ask("summary\n"))).ToArray();
        Array.ForEach(clients, client => client.Start());
        Array.ForEach(clients, client => client.Join());
        Assert.All(answers, answer => Assert.StartsWith("ok\n", answer));
    }
}
