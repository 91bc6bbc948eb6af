// Methods with protected blocks of every kind, alone and nested.
using System;
using System.IO;
using System.Threading;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Blocks
{
    public static void Run()
    {
        foreach (string what in new[] { "nothing", "format", "argument", "other" })
        {
            Catch(() => Show(TryCatch(what), $"TryCatch({what})"));
            Catch(() => Show(TryFinally(what), $"TryFinally({what})"));
            Catch(() => Show(Filtered(what), $"Filtered({what})"));
            Catch(() => Show(NestedBlocks(what), $"NestedBlocks({what})"));
            Catch(() => Show(InLoop(what), $"InLoop({what})"));
        }
        Catch(() => RethrowsItself());
        Catch(() => ThrowsInCatch());
        Catch(() => ThrowsInFinally());
        Show(ReturnsFromInnermost(1));
        Show(ReturnsFromInnermost(2));
        Show(Locked(new object()));
        Show(Used());
        Show(EntirelyProtected());
        HandlerAtTheEnd("format");
        HandlerAtTheEnd("nothing");
        SwallowsAll();
    }

    private static void Throw(string what)
    {
        switch (what)
        {
            case "format": throw new FormatException("format");
            case "argument": throw new ArgumentException("argument");
            case "other": throw new InvalidOperationException("other");
        }
    }

    [Trace]
    private static string TryCatch(string what)
    {
        try
        {
            Throw(what);
            return "not thrown";
        }
        catch (FormatException)
        {
            return "caught format";
        }
        catch (ArgumentException error)
        {
            return $"caught {error.Message}";
        }
    }

    [Trace]
    private static string TryFinally(string what)
    {
        try
        {
            Throw(what);
            return "returned";
        }
        finally
        {
            Console.WriteLine("finally");
        }
    }

    [Trace]
    private static string Filtered(string what)
    {
        try
        {
            Throw(what);
        }
        catch (Exception error) when (error is FormatException or ArgumentException && IsWanted(error))
        {
            return $"filtered {error.Message}";
        }
        return "not thrown";
    }

    [Trace] private static bool IsWanted(Exception error) => error.Message == "format";

    [Trace]
    private static string NestedBlocks(string what)
    {
        string trace = "";
        try
        {
            try
            {
                try
                {
                    Throw(what);
                    trace += "a";
                }
                catch (FormatException)
                {
                    trace += "b";
                    throw new ArgumentException("from the handler");
                }
                finally
                {
                    trace += "c";
                }
            }
            catch (ArgumentException)
            {
                trace += "d";
                try
                {
                    return trace += "e";
                }
                finally
                {
                    trace += "f";
                    Console.WriteLine(trace);
                }
            }
        }
        finally
        {
            Console.WriteLine(trace + "g");
        }
        return trace + "h";
    }

    [Trace]
    private static int InLoop(string what)
    {
        int round = 0;
        for (; round < 3; ++round)
        {
            try
            {
                if (round == 1)
                {
                    continue;
                }
                if (round == 2)
                {
                    Throw(what);
                    break;
                }
            }
            catch (FormatException)
            {
                return -round;
            }
            finally
            {
                Console.WriteLine($"end of round {round}");
            }
        }
        return round;
    }

    [Trace]
    private static void RethrowsItself()
    {
        try
        {
            Throw("other");
        }
        catch (InvalidOperationException)
        {
            Console.WriteLine("on its way");
            throw;
        }
    }

    [Trace]
    private static void ThrowsInCatch()
    {
        try
        {
            Throw("format");
        }
        catch (FormatException error)
        {
            throw new InvalidOperationException("wrapped", error);
        }
    }

    [Trace]
    private static void ThrowsInFinally()
    {
        try
        {
            Throw("format");
        }
        finally
        {
            Throw("argument");
        }
    }

    [Trace]
    private static int ReturnsFromInnermost(int number)
    {
        try
        {
            try
            {
                if (number == 1)
                {
                    return 10;
                }
                Throw("format");
            }
            catch (FormatException)
            {
                try
                {
                    return 20;
                }
                finally
                {
                    Console.WriteLine("innermost");
                }
            }
        }
        finally
        {
            Console.WriteLine("outermost");
        }
        return 30;
    }

    [Trace]
    private static int Locked(object gate)
    {
        lock (gate)
        {
            return Monitor.IsEntered(gate) ? 1 : 0;
        }
    }

    [Trace]
    private static string Used()
    {
        using var reader = new StringReader("read");
        using (var writer = new StringWriter())
        {
            writer.Write(reader.ReadToEnd());
            return writer.ToString();
        }
    }

    [Trace]
    private static string EntirelyProtected()
    {
        try
        {
            return "returned";
        }
        catch
        {
            return "caught";
        }
    }

    [Trace]
    private static void HandlerAtTheEnd(string what)
    {
        try
        {
            Throw(what);
        }
        catch (FormatException)
        {
            Console.WriteLine("handled");
        }
    }

    [Trace]
    private static void SwallowsAll()
    {
        try
        {
            Throw("other");
        }
        catch
        {
        }
    }
}
