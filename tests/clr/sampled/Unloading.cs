using System;
using System.Collections.Generic;
using System.Linq;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Runtime.Loader;
using System.Threading;

/// <summary>Numbers that are no functions, or none any more.</summary>
internal static unsafe class Unloading
{
    private const MethodImplOptions AsWritten = MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization;

    /// <summary>Asks for the names of numbers that were never those of a function.</summary>
    public static void NumbersThatAreNoFunctions()
    {
        void* zeroed = NativeMemory.AllocZeroed(4096);
        void* heap = (void*)Platform.HeapAlloc(Platform.GetProcessHeap(), 8, 4096);
        int[] array = new int[1000];
        fixed (int* managed = array)
        {
            double[] numbers = [0, 1, 4096, 1_000_000, (nuint)zeroed, (nuint)heap, (nuint)managed, Sampler.Module,
                0x7FFF_FFFF_0000, double.MaxValue, double.NaN, -1];
            foreach (double number in numbers)
            {
                Console.WriteLine(Sampler.Names([number])[0]);
            }
        }
        NativeMemory.Free(zeroed);
    }

    /// <summary>Samples code that is unloaded afterwards, and asks for names before and after.</summary>
    public static void FunctionsThatAreUnloaded()
    {
        double[] frames = SampleOnce(out WeakReference context);
        Console.WriteLine($"loaded: {Own(frames)}");
        while (context.IsAlive || Own(frames).StartsWith("Plugin", StringComparison.Ordinal))
        {
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        Console.WriteLine($"unloaded: {Own(frames)}");
        Console.WriteLine($"loaded again: {Own(SampleOnce(out _))}");
    }

    // From the innermost frame to the one that this program's own thread begins with.
    private static string Own(double[] frames)
    {
        string[] names = Sampler.Names(frames);
        return string.Join(" < ", names.Take(Array.IndexOf(names, "Target.Run") + 1));
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static double[] SampleOnce(out WeakReference context)
    {
        var loaded = new AssemblyLoadContext("plugin", isCollectible: true);
        context = new WeakReference(loaded);
        using (var target = new Target(new InPlugin(loaded).Run))
        {
            for (;;)
            {
                // Where nothing but the plugin's own code is on top.
                Snapshot snapshot = Sampler.Take(target.Id);
                if (snapshot.Frames is { Length: > 4 } frames && Sampler.Names(frames)[0] == "Plugin.Spin")
                {
                    loaded.Unload();
                    return frames;
                }
            }
        }
    }

    /// <summary>Samples code while it is loaded and unloaded all the time.</summary>
    public static void WhileItIsUnloaded(int count)
    {
        bool isToStop = false;
        uint id = 0;
        var worker = new Thread(() =>
        {
            Volatile.Write(ref id, Platform.GetCurrentThreadId());
            for (int i = 0; i < count; i++)
            {
                RunOnce(i);
            }
            Volatile.Write(ref isToStop, true);
        });
        worker.Start();
        var seen = new HashSet<double>();
        int inPlugin = 0;
        int inGenerated = 0;
        while (!Volatile.Read(ref isToStop))
        {
            if (Volatile.Read(ref id) == 0 || Sampler.Take(id).Frames is not { Length: > 0 } frames)
            {
                continue;
            }
            seen.UnionWith(frames);
            string[] names = Sampler.Names(frames);
            inPlugin += names.Contains("Plugin.Hold") ? 1 : 0;
            inGenerated += names.Contains("?.?") ? 1 : 0;
            if (seen.Count > 5000)
            {
                seen.Clear();
            }
            Sampler.Names([.. seen]); // also of what is gone by now
        }
        worker.Join();
        Console.Error.WriteLine($"unloading: {inPlugin} in plugins, {inGenerated} with functions without a name");
        Console.WriteLine(inPlugin > 0 ? "unloading: sampled" : "unloading: never in a plugin");
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void RunOnce(int round)
    {
        var context = new AssemblyLoadContext("plugin", isCollectible: true);
        long until = Environment.TickCount64 + 20;
        new InPlugin(context).Hold(() => { }, () => Environment.TickCount64 >= until);
        context.Unload();
        Generated()(1000);
        if (round % 4 == 3)
        {
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
    }

    // A method that has no metadata, and goes when nobody holds it.
    private static Func<int, int> Generated()
    {
        var method = new DynamicMethod("generated", typeof(int), [typeof(int)], typeof(Unloading).Module);
        ILGenerator code = method.GetILGenerator();
        Label again = code.DefineLabel();
        code.MarkLabel(again);
        code.Emit(OpCodes.Ldarg_0);
        code.Emit(OpCodes.Ldc_I4_1);
        code.Emit(OpCodes.Sub);
        code.Emit(OpCodes.Starg_S, (byte)0);
        code.Emit(OpCodes.Ldarg_0);
        code.Emit(OpCodes.Brtrue, again);
        code.Emit(OpCodes.Ldarg_0);
        code.Emit(OpCodes.Ret);
        return method.CreateDelegate<Func<int, int>>();
    }

    private sealed class InPlugin(AssemblyLoadContext context)
    {
        public readonly Action<Action, Func<bool>> Hold = context
            .LoadFromAssemblyPath(typeof(Plugin).Assembly.Location)
            .GetType(nameof(Plugin))!
            .GetMethod(nameof(Plugin.Hold))!
            .CreateDelegate<Action<Action, Func<bool>>>();

        [MethodImpl(AsWritten)]
        public void Run(Target target) => Hold(target.Arrive, () => target.IsToStop);
    }
}
