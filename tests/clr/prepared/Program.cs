// Has methods of the framework's assemblies compiled, as many as can be, without a call of any. All assemblies are
// loaded before the first of the methods is compiled. An argument is a number N: of the assemblies every Nth counts.
using System.Reflection;
using System.Runtime.CompilerServices;

static class Program
{
    const BindingFlags All = BindingFlags.DeclaredOnly | BindingFlags.Public | BindingFlags.NonPublic | BindingFlags.Instance | BindingFlags.Static;

    static int Main(string[] arguments)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        int step = int.Parse(arguments[0]);
        string folder = Path.GetDirectoryName(typeof(object).Assembly.Location)!;
        var assemblies = Directory.GetFiles(folder, "*.dll").Order(StringComparer.OrdinalIgnoreCase)
            .Select(Load).OfType<Assembly>().Where(assembly => assembly != typeof(object).Assembly).ToList();
        int prepared = 0;
        int refused = 0;
        for (int i = 0; i < assemblies.Count; i += step)
        {
            foreach (var type in TypesOf(assemblies[i]))
            {
                foreach (var method in type.GetMethods(All).Cast<MethodBase>().Concat(type.GetConstructors(All)))
                {
                    if (HasCode(method))
                    {
                        _ = Prepare(method) ? ++prepared : ++refused;
                    }
                }
            }
        }
        // The same in every run: a method that was spoilt would be refused.
        Console.WriteLine($"{assemblies.Count} assemblies, {prepared} methods prepared, {refused} refused");
        return 42;
    }

    static Assembly? Load(string file)
    {
        try
        {
            return Assembly.Load(AssemblyName.GetAssemblyName(file));
        }
        catch (Exception)
        {
            return null; // a native library
        }
    }

    static IEnumerable<Type> TypesOf(Assembly assembly)
    {
        try
        {
            return assembly.GetTypes().Where(type => !type.ContainsGenericParameters);
        }
        catch (ReflectionTypeLoadException some)
        {
            return some.Types.OfType<Type>().Where(type => !type.ContainsGenericParameters);
        }
    }

    static bool HasCode(MethodBase method)
    {
        const MethodImplAttributes notManaged = MethodImplAttributes.InternalCall | MethodImplAttributes.CodeTypeMask;
        return !method.ContainsGenericParameters && !method.IsAbstract && (method.Attributes & MethodAttributes.PinvokeImpl) == 0 &&
            (method.MethodImplementationFlags & notManaged) == 0;
    }

    static bool Prepare(MethodBase method)
    {
        try
        {
            RuntimeHelpers.PrepareMethod(method.MethodHandle);
            return true;
        }
        catch (Exception)
        {
            return false;
        }
    }
}
