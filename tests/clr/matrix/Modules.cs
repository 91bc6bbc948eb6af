// Methods of modules that are not like most: with few or very many type references, loaded beside the program,
// made while it runs.
using System;
using System.IO;
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using System.Runtime.Loader;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Modules
{
    public static void Run()
    {
        Show(Few.initialized);
        Show(Few.Add(1, 2));
        Show(Few.Text("few"));
        Show(Crowded.Add(1, 2));
        Show(Crowded.Text("crowded"));
        Loaded();
        Collected();
        Emitted();
    }

    // The same file twice is two modules.
    private static void Loaded()
    {
        foreach (string name in new[] { "first", "second" })
        {
            var context = new AssemblyLoadContext(name);
            Show(CallInto(context, 1));
        }
    }

    private static void Collected()
    {
        WeakReference context = LoadAndUnload();
        for (int i = 0; context.IsAlive && i < 20; ++i)
        {
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        Show(context.IsAlive);
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static WeakReference LoadAndUnload()
    {
        var context = new AssemblyLoadContext("collected", isCollectible: true);
        Show(CallInto(context, 2));
        context.Unload();
        return new WeakReference(context);
    }

    private static object? CallInto(AssemblyLoadContext context, int number)
    {
        string file = Path.Combine(AppContext.BaseDirectory, "crafted.dll");
        Type type = context.LoadFromAssemblyPath(file).GetType("Crafted.Flow", throwOnError: true)!;
        return type.GetMethod("Tail")!.Invoke(null, new object[] { number });
    }

    private static void Emitted()
    {
        ModuleBuilder module = AssemblyBuilder
            .DefineDynamicAssembly(new AssemblyName("emitted"), AssemblyBuilderAccess.Run)
            .DefineDynamicModule("emitted");
        TypeBuilder type = module.DefineType("Emitted", TypeAttributes.Public);
        MethodBuilder method = type.DefineMethod(
            "Twice", MethodAttributes.Public | MethodAttributes.Static, typeof(int), new[] { typeof(int) });
        method.SetCustomAttribute(
            new CustomAttributeBuilder(typeof(TraceAttribute).GetConstructor(Type.EmptyTypes)!, Array.Empty<object>()));
        ILGenerator il = method.GetILGenerator();
        il.Emit(OpCodes.Ldarg_0);
        il.Emit(OpCodes.Ldc_I4_2);
        il.Emit(OpCodes.Mul);
        il.Emit(OpCodes.Ret);
        Show(type.CreateType()!.GetMethod("Twice")!.Invoke(null, new object[] { 4 }), "emitted");

        var dynamic = new DynamicMethod("Dynamic", typeof(int), new[] { typeof(int) });
        il = dynamic.GetILGenerator();
        il.Emit(OpCodes.Ldarg_0);
        il.Emit(OpCodes.Ret);
        Show(dynamic.Invoke(null, new object[] { 5 }), "dynamic");
    }
}
