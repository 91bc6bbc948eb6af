using System;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;

/// <summary>Lets the exports fail, and shows what their caller gets. It goes on afterwards.</summary>
internal static unsafe class Failures
{
    public static void ShowAll()
    {
        using var target = new Target(Busy);
        ShowToCaller(target);
        Console.WriteLine($"by the library: {SampledByLibrary(target)}");
        Console.WriteLine($"suspended {Platform.SuspendCount(target.Id)}");
    }

    private static void ShowToCaller(Target target)
    {
        Console.WriteLine($"negative count: {Error(() => Sampler.NamesOfNegativeCount())}");
        using (WithoutArrays())
        {
            Console.WriteLine($"no array: {Error(() => Sampler.Take(target.Id))}");
        }
        using (WithoutThreads())
        {
            Console.WriteLine($"no thread: {Error(() => Sampler.Take(target.Id))}");
            Console.WriteLine($"no thread for names: {Error(() => Sampler.Names([1]))}");
        }
        int walked = 0;
        for (int i = 0; i < 100; i++)
        {
            Error(() => Sampler.NamesOfNegativeCount());
            walked += Sampler.Take(target.Id).Count > 0 ? 1 : 0;
        }
        Console.WriteLine(walked > 0 ? "it goes on" : "none walked");
    }

    // Its sampler counts what fails, and takes snapshots again as soon as it can.
    private static string SampledByLibrary(Target target)
    {
        using var sampler = new Corvane.Sampling.Sampler(new Corvane.Sampling.SamplerOptions
        {
            Interval = TimeSpan.FromMilliseconds(1),
            Filter = thread => thread.Id == target.Id,
        });
        sampler.Start();
        WaitUntil(sampler, cost => cost.Snapshots > 0);
        long failed = sampler.Read().Cost.Failed;
        using (WithoutArrays())
        {
            failed = WaitUntil(sampler, cost => cost.Failed > failed).Failed;
        }
        using (WithoutThreads())
        {
            failed = WaitUntil(sampler, cost => cost.Failed > failed).Failed;
        }
        long taken = sampler.Read().Cost.Snapshots;
        WaitUntil(sampler, cost => cost.Snapshots > taken + 10);
        return sampler.Stop().Failure?.ToString() ?? "it goes on";
    }

    // Or until the sampling has ended by itself.
    private static Corvane.Sampling.SamplingCost WaitUntil(
        Corvane.Sampling.Sampler sampler, Func<Corvane.Sampling.SamplingCost, bool> isSo)
    {
        while (true)
        {
            Corvane.Sampling.Profile profile = sampler.Read();
            if (isSo(profile.Cost) || profile.Failure != null)
            {
                return profile.Cost;
            }
            Thread.Sleep(10);
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static string Error(Action call)
    {
        try
        {
            call();
            return "none";
        }
        catch (Exception error) when (error is not InvalidOperationException)
        {
            return error is ExternalException ? error.GetType().Name : error.ToString();
        }
    }

    private static void Busy(Target target)
    {
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            target.Progress++;
        }
    }

    private static ReplacedImport WithoutArrays() =>
        new("SafeArrayCreate", (nint)(delegate* unmanaged<ushort, uint, nint, nint>)&NoArray);

    private static ReplacedImport WithoutThreads() =>
        new("_beginthreadex", (nint)(delegate* unmanaged<nint, uint, nint, nint, uint, nint, nint>)&NoThread);

    [UnmanagedCallersOnly]
    private static nint NoArray(ushort type, uint dimensions, nint bounds) => 0;

    [UnmanagedCallersOnly]
    private static nint NoThread(nint security, uint size, nint entry, nint argument, uint flags, nint id) => 0;

    /// <summary>Puts a function in the place of one that the profiler imports, while it lives.</summary>
    private sealed class ReplacedImport : IDisposable
    {
        private readonly nint* slot_;
        private readonly nint original_;

        public ReplacedImport(string name, nint replacement)
        {
            slot_ = Find((byte*)Sampler.Module, name);
            original_ = *slot_;
            Write(replacement);
        }

        public void Dispose() => Write(original_);

        private void Write(nint function)
        {
            Platform.MakeWritable(slot_, (nuint)sizeof(nint));
            *slot_ = function;
        }

        // The import directory is the second one; its entries have 20 bytes.
        private static nint* Find(byte* image, string name)
        {
            byte* headers = image + *(int*)(image + 0x3C);
            const int Directories = 24 + 112;
            for (byte* library = image + *(int*)(headers + Directories + 8); *(int*)(library + 12) != 0; library += 20)
            {
                long* names = (long*)(image + *(int*)library);
                for (int i = 0; names[i] != 0; i++)
                {
                    if (names[i] > 0 && Marshal.PtrToStringAnsi((nint)(image + names[i] + 2)) == name)
                    {
                        return (nint*)(image + *(int*)(library + 16)) + i;
                    }
                }
            }
            throw new NotSupportedException($"{name} is not imported");
        }
    }
}
