// Exceptions on their way through marked methods. Where a stack trace begins a plain run and one in the default
// form cannot agree, so traces are not printed but passed to a marked method.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Exceptions
{
    public static void Run()
    {
        Identity();
        Kinds();
        Places();
        Traces();
        Later();
    }

    private static readonly Exception theOne = new InvalidOperationException("the one");

    private static void Identity()
    {
        try
        {
            Outer();
        }
        catch (Exception error)
        {
            Show(ReferenceEquals(error, theOne));
        }
        try
        {
            CarriesData();
        }
        catch (CustomException error)
        {
            Show(error.Number);
            Show(error.Data["key"]);
            Show(error.InnerException?.Message);
            Show(error.HResult);
        }
    }

    [Trace] private static void Outer() => Middle();
    [Trace] private static int Middle() => Inner() + 1;
    [Trace] private static int Inner() => Unmarked();
    private static int Unmarked() => throw theOne;

    [Trace]
    private static int CarriesData()
    {
        if (theOne.Message.Length > 0)
        {
            throw new CustomException(5, theOne) { Data = { ["key"] = "value" } };
        }
        return 0;
    }

    private sealed class CustomException : Exception
    {
        public CustomException(int number, Exception inner)
            : base("custom", inner)
        {
            Number = number;
            HResult = unchecked((int)0x80131234);
        }

        public int Number { get; }
        public override string Message => "not what it was made with";
    }

    // What the runtime itself throws.
    private static void Kinds()
    {
        Catch(() => Show(Dereferences(null)));
        Catch(() => Show(Divides(0)));
        Catch(() => Show(Indexes(new int[1])));
        Catch(() => Show(Casts("text")));
        Catch(() => Show(Unboxes("text")));
        Catch(() => Stores(new string[1]));
        Catch(() => Show(Allocates(-1).Length));
        Catch(() => Show(Parses("text")));
        Catch(() => Aggregates());
        Catch(() => Cancels());
    }

    [Trace] private static int Dereferences(string? text) => text!.Length;
    [Trace] private static int Divides(int by) => 1 / by;
    [Trace] private static int Indexes(int[] array) => array[1];
    [Trace] private static Animal Casts(object value) => (Animal)value;
    [Trace] private static int Unboxes(object value) => (int)value;
    [Trace] private static void Stores(object[] array) => array[0] = 5;
    [Trace] private static byte[] Allocates(int size) => new byte[size];
    [Trace] private static int Parses(string text) => int.Parse(text);
    [Trace] private static void Aggregates() => Task.FromException(theOne).Wait();
    [Trace] private static void Cancels() => new System.Threading.CancellationToken(true).ThrowIfCancellationRequested();

    private static void Places()
    {
        Catch(() => _ = new Fails(1));
        Catch(() => _ = new FailsInBase());
        Catch(() => Show(new Fails("").Property));
        Catch(() => FailsInCctor.Touch());
        Catch(() => FailsInCctor.Touch());
        Catch(() => Show(new Fails("") + 1));
        Catch(() => new Fails("").OfAStruct());
    }

    private class Fails
    {
        [Trace]
        public Fails(int number)
        {
            if (number > 0)
            {
                throw new ArgumentException("in a constructor");
            }
        }

        public Fails(string unused) => _ = unused;

        public int Property
        {
            [Trace]
            get
            {
                if (theOne.Message.Length == 0)
                {
                    return 0;
                }
                throw new NotSupportedException("in a property");
            }
        }

        [Trace]
        public static int operator +(Fails left, int right) =>
            right == 0 ? 0 : throw new NotSupportedException("in an operator");

        public void OfAStruct() => new Value().Fail();
    }

    private sealed class FailsInBase : Fails
    {
        [Trace]
        public FailsInBase()
            : base(1)
        {
        }
    }

    private static class FailsInCctor
    {
        private static readonly int number;

        [Trace]
        static FailsInCctor()
        {
            number = Divides(0);
        }

        public static void Touch() => Console.WriteLine(number);
    }

    private struct Value
    {
        private int number;

        [Trace]
        public void Fail()
        {
            if (++number > 0)
            {
                throw new NotSupportedException("in a struct");
            }
        }
    }

    private static void Traces()
    {
        foreach (Action action in new Action[] { Plain, Marked, MarkedTwice })
        {
            try
            {
                action();
            }
            catch (Exception error)
            {
                IEnumerable<string?> names =
                    new StackTrace(error).GetFrames().Select(frame => frame.GetMethod()?.Name);
                Seen(string.Join(" < ", names));
            }
        }
    }

    // The trace of an exception begins where it was thrown last, by default in a marked method.
    [Trace] private static string Seen(string frames) => frames;
    private static void Plain() => Unmarked();
    [Trace] private static void Marked() => Unmarked();
    [Trace] private static void MarkedTwice() => Marked();

    // What is thrown when the marked call is over is thrown by another method.
    private static void Later()
    {
        Catch(() => Asynchronous().GetAwaiter().GetResult());
        Catch(() => Show(Iterated().Count()));
    }

    [Trace]
    private static async Task<int> Asynchronous()
    {
        await Task.CompletedTask;
        throw new InvalidOperationException("asynchronous");
    }

    [Trace]
    private static IEnumerable<int> Iterated()
    {
        yield return 1;
        throw new InvalidOperationException("iterated");
    }
}
