// A few calls, made while the managed library fails: none of them may notice.
using System;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Guards
{
    private static readonly Exception theOne = new InvalidOperationException("the method's own");

    public static void Run()
    {
        Show(Add(1, 2));
        Show(Add(3, 4));
        Nothing();
        Show(new Thing("made").Name);
        Show(Outer(new Dog(), true));
        try
        {
            Show(Outer(new Dog(), false));
        }
        catch (Exception error)
        {
            Show(ReferenceEquals(error, theOne));
        }
    }

    [Trace] private static int Add(int left, int right) => left + right;
    [Trace] private static void Nothing() => Console.WriteLine("nothing");
    [Trace] private static string Outer(Animal animal, bool returns) => $"{Inner(animal, returns)}, after all";
    [Trace] private static string Inner(Animal animal, bool returns) => returns ? animal.Name : throw theOne;

    private sealed class Thing
    {
        [Trace]
        public Thing(string name) => Name = name;

        public string Name { get; }
    }
}
