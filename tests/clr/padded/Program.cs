// Calls marked methods of modules that differ in how many types they refer to: the references that injected code
// needs get the rows behind those.
using System;
using System.Globalization;
using System.IO;
using System.Reflection;
using System.Reflection.Metadata;
using System.Reflection.PortableExecutable;

internal static class Program
{
    private static void Main()
    {
        Console.WriteLine($"runtime {Environment.Version}");
        for (int row = 26; row <= 31; ++row)
        {
            string file = Path.Combine(AppContext.BaseDirectory, $"padded{row}.dll");
            Console.WriteLine($"{row} behind {TypeReferences(file)}");
            Type type = Assembly.LoadFrom(file).GetType("Padded", throwOnError: true)!;
            string text = row.ToString(CultureInfo.InvariantCulture);
            Console.WriteLine(type.GetMethod("Text")!.CreateDelegate<Func<string, string>>()(text));
            try
            {
                type.GetMethod("Fail")!.CreateDelegate<Func<string, string>>()(text);
            }
            catch (InvalidOperationException exception)
            {
                Console.WriteLine($"caught {exception.Message}");
            }
            if (TypeReferences(file) != row - 1)
            {
                return;
            }
        }
        Environment.ExitCode = 42;
    }

    private static int TypeReferences(string file)
    {
        using var reader = new PEReader(File.OpenRead(file));
        return reader.GetMetadataReader().TypeReferences.Count;
    }
}
