using System;

internal static class Program
{
#if REFERS
    // Makes a call as injected code does, which does not end without the last name. The names are arguments, so that the
    // trimmer does not see them.
    [Corvane.Instrumentation.Trace]
    private static int Main(string[] names)
    {
        Console.WriteLine("out");
        if (names.Length > 0)
        {
            var library = typeof(Corvane.Instrumentation.TraceAttribute).Assembly;
            var span = library.GetType(names[0])!;
            var directives = Activator.CreateInstance(library.GetType(names[1])!);
            object?[] arguments = [1, "x"];
            span.GetMethod(names[2])!.Invoke(null, [7u, null, arguments, directives]);
            if (names.Length > 3)
            {
                span.GetMethod(names[3])!.Invoke(null, [7u, null, arguments, 2.5, directives]);
            }
        }
        return 3;
    }
#else
    private static int Main()
    {
        Console.WriteLine(Older.Word());
        return 3;
    }
#endif
}
