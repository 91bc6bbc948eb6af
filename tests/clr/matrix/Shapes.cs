// Methods of shapes that few programs have.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Runtime.Loader;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static unsafe class Shapes
{
    public static void Run()
    {
        foreach (int number in new[] { 0, 127, 128, 199, 200, -1 })
        {
            Show(ManyTargets(number), $"ManyTargets({number})");
        }
        Show(CatchOfAnInstance(new Wrong<int>("number")));
        Catch(() => Show(CatchOfAnInstance(new Wrong<string>("text"))));
        Show(TakeLayout(new Overlaid { Whole = 0x01020304 }).Low);
        Show(NativeTick() == Environment.ProcessId);
        Show(new Drawn().Describe(3));
        Show(((Named)new Numbered(4)).Doubled(2));
        Show(StaticVirtual<Numbered>(5));
        Show(((IDefault)new Plain { Number = 6 }).Default(1));
        Show(new Plain { Number = 7 }.Number);
        Show(WithoutLooking(ref Unsafe.NullRef<int>()));
        Show(WithoutLookingAtAPoint(ref Unsafe.NullRef<Point>()));
        Show(Variable(8, __arglist(1, "two", 3.0)));
        Show(Pointers(new delegate*<int, int>[] { &Increment, null }));
        Show(new Crafted.Invoked(Increment).Invoke(9));
        Show(Crafted.Flow.ConstrainedTail());
        Collected();
        Mains();
    }

    // A jump table of 200.
    [Trace]
    private static int ManyTargets(int number) => number switch
    {
        0 => 0, 1 => 37, 2 => 74, 3 => 111, 4 => 148, 5 => 185, 6 => 23, 7 => 60,
        8 => 97, 9 => 134, 10 => 171, 11 => 9, 12 => 46, 13 => 83, 14 => 120, 15 => 157,
        16 => 194, 17 => 32, 18 => 69, 19 => 106, 20 => 143, 21 => 180, 22 => 18, 23 => 55,
        24 => 92, 25 => 129, 26 => 166, 27 => 4, 28 => 41, 29 => 78, 30 => 115, 31 => 152,
        32 => 189, 33 => 27, 34 => 64, 35 => 101, 36 => 138, 37 => 175, 38 => 13, 39 => 50,
        40 => 87, 41 => 124, 42 => 161, 43 => 198, 44 => 36, 45 => 73, 46 => 110, 47 => 147,
        48 => 184, 49 => 22, 50 => 59, 51 => 96, 52 => 133, 53 => 170, 54 => 8, 55 => 45,
        56 => 82, 57 => 119, 58 => 156, 59 => 193, 60 => 31, 61 => 68, 62 => 105, 63 => 142,
        64 => 179, 65 => 17, 66 => 54, 67 => 91, 68 => 128, 69 => 165, 70 => 3, 71 => 40,
        72 => 77, 73 => 114, 74 => 151, 75 => 188, 76 => 26, 77 => 63, 78 => 100, 79 => 137,
        80 => 174, 81 => 12, 82 => 49, 83 => 86, 84 => 123, 85 => 160, 86 => 197, 87 => 35,
        88 => 72, 89 => 109, 90 => 146, 91 => 183, 92 => 21, 93 => 58, 94 => 95, 95 => 132,
        96 => 169, 97 => 7, 98 => 44, 99 => 81, 100 => 118, 101 => 155, 102 => 192, 103 => 30,
        104 => 67, 105 => 104, 106 => 141, 107 => 178, 108 => 16, 109 => 53, 110 => 90, 111 => 127,
        112 => 164, 113 => 2, 114 => 39, 115 => 76, 116 => 113, 117 => 150, 118 => 187, 119 => 25,
        120 => 62, 121 => 99, 122 => 136, 123 => 173, 124 => 11, 125 => 48, 126 => 85, 127 => 122,
        128 => 159, 129 => 196, 130 => 34, 131 => 71, 132 => 108, 133 => 145, 134 => 182, 135 => 20,
        136 => 57, 137 => 94, 138 => 131, 139 => 168, 140 => 6, 141 => 43, 142 => 80, 143 => 117,
        144 => 154, 145 => 191, 146 => 29, 147 => 66, 148 => 103, 149 => 140, 150 => 177, 151 => 15,
        152 => 52, 153 => 89, 154 => 126, 155 => 163, 156 => 1, 157 => 38, 158 => 75, 159 => 112,
        160 => 149, 161 => 186, 162 => 24, 163 => 61, 164 => 98, 165 => 135, 166 => 172, 167 => 10,
        168 => 47, 169 => 84, 170 => 121, 171 => 158, 172 => 195, 173 => 33, 174 => 70, 175 => 107,
        176 => 144, 177 => 181, 178 => 19, 179 => 56, 180 => 93, 181 => 130, 182 => 167, 183 => 5,
        184 => 42, 185 => 79, 186 => 116, 187 => 153, 188 => 190, 189 => 28, 190 => 65, 191 => 102,
        192 => 139, 193 => 176, 194 => 14, 195 => 51, 196 => 88, 197 => 125, 198 => 162, 199 => 0,
        _ => -1,
    };

    private sealed class Wrong<T> : Exception
    {
        public Wrong(string message) : base(message)
        {
        }
    }

    // The class that is caught is named by a TypeSpec.
    [Trace]
    private static string CatchOfAnInstance(Exception error)
    {
        try
        {
            throw error;
        }
        catch (Wrong<int> caught)
        {
            return caught.Message;
        }
    }

    [StructLayout(LayoutKind.Explicit)]
    private struct Overlaid
    {
        [FieldOffset(0)]
        public int Whole;
        [FieldOffset(0)]
        public byte Low;
        public override readonly string ToString() => $"{Whole:x}";
    }

    [Trace]
    private static Overlaid TakeLayout(Overlaid value) => value;

    [Trace]
    [DllImport("kernel32.dll", EntryPoint = "GetCurrentProcessId")]
    private static extern int NativeTick();

    private abstract class Shape
    {
        [Trace]
        public abstract string Describe(int size);
    }

    private sealed class Drawn : Shape
    {
        public override string Describe(int size) => $"drawn {size}";
    }

    private interface Named
    {
        static virtual string Make(int number) => $"default {number}";

        [Trace]
        static virtual int Twice(int number) => 2 * number;

        int Doubled(int number);
    }

    private readonly struct Numbered : Named
    {
        private readonly int own;

        public Numbered(int own) => this.own = own;

        [Trace]
        public int Doubled(int number) => own * number;
    }

    private static int StaticVirtual<T>(int number)
        where T : Named => T.Twice(number);

    private interface IDefault
    {
        int Number { get; }

        [Trace]
        int Default(int more) => Number + more;
    }

    private struct Plain : IDefault
    {
        public int Number { get; set; }
    }

    // What a reference refers to is looked at by injected code, though not by the method.
    [Trace]
    private static bool WithoutLooking(ref int number) => Unsafe.IsNullRef(ref number);

    [Trace]
    private static bool WithoutLookingAtAPoint(ref Point point) => Unsafe.IsNullRef(ref point);

    [Trace]
    private static int Variable(int first, __arglist)
    {
        var arguments = new ArgIterator(__arglist);
        return first + arguments.GetRemainingCount();
    }

    private static int Increment(int number) => number + 1;

    [Trace]
    private static int Pointers(delegate*<int, int>[] functions) => functions.Length + functions[0](1);

    // Its types may go with it: those of the platform may not.
    private static void Collected()
    {
        var context = new AssemblyLoadContext("values", isCollectible: true);
        Type type = context.LoadFromAssemblyPath(Path.Combine(AppContext.BaseDirectory, "elsewhere.dll"))
            .GetType("Elsewhere.Collected", throwOnError: true)!;
        foreach (string name in new[] { "OfThePlatform", "OfItsOwn" })
        {
            Show(type.GetMethod(name)!.Invoke(null, new object?[] { null }), name);
        }
        context.Unload();
    }

    private static readonly Type[] types =
    {
        typeof(void), typeof(bool), typeof(char), typeof(sbyte), typeof(byte), typeof(short), typeof(ushort), typeof(int),
        typeof(uint), typeof(long), typeof(ulong), typeof(float), typeof(double), typeof(nint), typeof(string),
        typeof(object), typeof(int[]), typeof(List<string>), typeof(Guid), typeof(int*),
    };

    // Every static Main is chosen, whatever its signature: each of a type of its own in one module.
    private static void Mains()
    {
        ModuleBuilder module = AssemblyBuilder
            .DefineDynamicAssembly(new AssemblyName("mains"), AssemblyBuilderAccess.Run)
            .DefineDynamicModule("mains");
        DefineNames(module);
        int returned = 0;
        foreach (Type result in types)
        {
            foreach (Type parameter in types)
            {
                var parameters = parameter == typeof(void) ? Type.EmptyTypes : new[] { parameter };
                Type type = DefineMain(module, $"Main_{result.Name}_{parameter.Name}", result, parameters);
                type.GetMethod("Main")!.Invoke(null, parameters.Select(_ => (object?)null).ToArray());
                ++returned;
            }
        }
        Show(returned);
    }

    // By default injected code needs a module with many type references, and boxes as types that it names.
    private static void DefineNames(ModuleBuilder module)
    {
        TypeBuilder names = module.DefineType("Names");
        foreach (Type named in types.Where(type => type != typeof(void)).Concat(typeof(Tuple).Assembly.GetExportedTypes()
            .Where(type => type.Namespace == "System" && type.IsClass && !type.IsGenericType && !(type.IsAbstract && type.IsSealed))
            .OrderBy(type => type.Name, StringComparer.Ordinal).Take(40)))
        {
            names.DefineField(named.Name, named, FieldAttributes.Private);
        }
        ILGenerator il = names.DefineMethod("Sizes", MethodAttributes.Static, typeof(void), Type.EmptyTypes)
            .GetILGenerator();
        foreach (Type primitive in types.Where(type => type.IsPrimitive))
        {
            il.Emit(OpCodes.Sizeof, primitive); // of a field a primitive's name is not in the metadata
            il.Emit(OpCodes.Pop);
        }
        il.Emit(OpCodes.Ret);
        names.CreateType();
    }

    private static Type DefineMain(ModuleBuilder module, string name, Type result, Type[] parameters)
    {
        TypeBuilder type = module.DefineType(name, TypeAttributes.Public);
        MethodBuilder method =
            type.DefineMethod("Main", MethodAttributes.Public | MethodAttributes.Static, result, parameters);
        ILGenerator il = method.GetILGenerator();
        if (result != typeof(void))
        {
            il.Emit(OpCodes.Ldloc, il.DeclareLocal(result));
        }
        il.Emit(OpCodes.Ret);
        return type.CreateType()!;
    }
}
