using System;
using System.IO;
using System.IO.Pipes;
using System.Linq;
using System.Text;
using System.Threading;

/// <summary>Has the profiler attached to this process, which runs without it, and samples.</summary>
internal static class Attaching
{
    public static void SampleAfterwards()
    {
        using var before = new Target(Busy);
        using var asleep = new Target(Patient);
        Console.WriteLine($"attached: {Attach():X8}");
        using var behind = new Target(Busy);
        Print("before", before);
        Print("asleep", asleep);
        Print("behind", behind);
        string self = Sampled(Platform.GetCurrentThreadId());
        Console.WriteLine($"self: {self}");
        Console.WriteLine($"attached again: {Attach():X8}");
        Print("before", before);
        Console.WriteLine($"by the library: {SampledByLibrary()}");
        var ended = new Target(target => target.Arrive());
        ended.Dispose();
        bool isServed = !self.StartsWith("status", StringComparison.Ordinal);
        Console.WriteLine($"ended: {Chains.Describe(isServed ? Sampler.TakeOfEnded(ended.Id) : Sampler.Take(ended.Id))}");
    }

    private static void Print(string title, Target target)
    {
        Console.WriteLine($"{title}: {Sampled(target.Id)}");
        Console.WriteLine($"suspended {Platform.SuspendCount(target.Id)}");
    }

    // The last of the program's functions, which may be in the runtime.
    private static string Sampled(uint thread)
    {
        for (int i = 0; i < 1000; i++)
        {
            string chain = Chains.WithoutRuntime(Chains.Describe(Sampler.Take(thread)));
            if (!chain.StartsWith("status", StringComparison.Ordinal))
            {
                return chain;
            }
        }
        return Chains.Describe(Sampler.Take(thread));
    }

    private static string SampledByLibrary()
    {
        using var sampler = new Corvane.Sampling.Sampler();
        sampler.Start();
        while (sampler.Read().Cost.Rounds < 50)
        {
            Thread.Sleep(20);
        }
        var functions =
            from thread in sampler.Stop().Threads
            from sample in thread.Samples
            where sample.Stack != null
            from function in sample.Stack!.ToArray()
            select function.Name;
        return string.Join(", ", functions.Where(name => name.StartsWith("Attaching.", StringComparison.Ordinal)).Distinct().Order());
    }

    // By the runtime's diagnostic pipe, as a tool outside does. Gives the runtime's answer.
    private static uint Attach()
    {
        byte[] path = Encoding.Unicode.GetBytes(Sampler.Path + '\0');
        using var payload = new MemoryStream();
        using (var writer = new BinaryWriter(payload, Encoding.Unicode, leaveOpen: true))
        {
            writer.Write(30_000); // milliseconds
            writer.Write(new Guid("5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6").ToByteArray());
            writer.Write(path.Length / sizeof(char));
            writer.Write(path);
            writer.Write(0); // no data
        }
        using var pipe = new NamedPipeClientStream(".", $"dotnet-diagnostic-{Environment.ProcessId}", PipeDirection.InOut);
        pipe.Connect(30_000);
        using var message = new MemoryStream(); // in one piece: the runtime does not wait for the rest
        using var request = new BinaryWriter(message, Encoding.ASCII);
        request.Write(Encoding.ASCII.GetBytes("DOTNET_IPC_V1\0"));
        request.Write((ushort)(20 + payload.Length));
        request.Write((byte)3); // the profiler
        request.Write((byte)1); // is attached
        request.Write((ushort)0);
        request.Write(payload.ToArray());
        request.Flush();
        pipe.Write(message.ToArray());
        using var answer = new BinaryReader(pipe, Encoding.ASCII, leaveOpen: true);
        answer.ReadBytes(20);
        return answer.ReadUInt32();
    }

    private static void Busy(Target target)
    {
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            target.Progress++;
        }
    }

    private static void Patient(Target target)
    {
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            Platform.Sleep(100);
        }
    }
}
