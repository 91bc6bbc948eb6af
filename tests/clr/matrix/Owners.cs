// Methods of every kind of owner and of every kind of member. Instance methods of value types are left as
// they are by default, for their receiver is no object; methods with type parameters are never chosen.
using System;
using System.Collections.Generic;
using System.Linq;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Owners
{
    public static void Run()
    {
        Members();
        Structs();
        Generics();
        Inheritance();
        CompilerMade();
        Finalized();
    }

    private static void Members()
    {
        var account = new Account(5);
        Show(account.Balance);
        account.Balance = 6;
        Show(account["key", 1]);
        account["key", 2] = "value";
        Show((account + new Account(1)).Balance);
        Show((int)account);
        Show(account == new Account(6));
        account.Changed += Print;
        account.Raise();
        account.Changed -= Print;
        Show(new Account { Note = "initialised" }.Note);
        Show(account.Overloaded(1));
        Show(account.Overloaded("one"));
        Show(new Account("chained").Balance);
        Show(new Account.Entry(account).Owner.Balance);
        Show(Account.Shared);
        Show(account.Text());
        var (balance, note) = account;
        Show($"{balance} {note}");
        Show(7.Doubled());
        using (new Scope())
        {
            Console.WriteLine("in scope");
        }
    }

    private static void Print(object? sender, EventArgs arguments) => Console.WriteLine("raised");

    private class Account
    {
        private int balance;
        private EventHandler? changed;

        [Trace]
        static Account()
        {
            Shared = 3;
        }

        public Account()
        {
        }

        [Trace]
        public Account(int balance)
        {
            this.balance = balance;
        }

        [Trace]
        public Account(string text)
            : this(text.Length)
        {
            ++balance;
        }

        public static int Shared { get; }

        public int Balance
        {
            [Trace] get => balance;
            [Trace] set => balance = value;
        }

        public string? Note { [Trace] get; [Trace] init; }

        public string this[string key, int index]
        {
            [Trace] get => $"{key} {index}";
            [Trace] set => Console.WriteLine($"{key} {index} {value}");
        }

        public event EventHandler? Changed
        {
            [Trace] add => changed += value;
            [Trace] remove => changed -= value;
        }

        public void Raise() => changed?.Invoke(this, EventArgs.Empty);

        [Trace] public static Account operator +(Account left, Account right) => new(left.balance + right.balance);
        [Trace] public static explicit operator int(Account account) => account.balance;
        [Trace] public static bool operator ==(Account left, Account right) => left is not null && left.Equals(right);
        public static bool operator !=(Account left, Account right) => !(left == right);

        [Trace] public string Overloaded(int value) => $"number {value}";
        [Trace] public string Overloaded(string value) => $"text {value}";
        [Trace] public void Deconstruct(out int currentBalance, out string? note) => (currentBalance, note) = (balance, Note);
        [Trace] public string Text() => $"account of {balance}";

        [Trace] public override bool Equals(object? other) => other is Account account && account.balance == balance;
        [Trace] public override int GetHashCode() => balance;
        [Trace] public override string ToString() => "an account";

        public class Entry
        {
            [Trace]
            public Entry(Account owner)
            {
                Owner = owner;
            }

            public Account Owner { [Trace] get; }
        }
    }

    private sealed class Scope : IDisposable
    {
        [Trace] public void Dispose() => Console.WriteLine("disposed");
    }

    private static void Structs()
    {
        var counter = new Counter(5);
        Show(counter.Increase(2));
        Show(counter.Value);
        Show(Counter.Zero().Value);
        Show(counter.ToString());
        IAdds adds = counter;
        Show(adds.Add(3));
        Show(((Counter)adds).Value);
        Func<int, int> bound = counter.Increase;
        Show(bound(1));
        Show(new Fixed(6).Half());
        Show(new View(new[] { 1, 2 }).Length());
        Show(new Holder<int>(1).Held());
        Show(new Holder<string>("text").Held());
        Show(Holder<int>.Made().Held());
        Show(Colours.Name(Colour.Green));
        Show(CallConstrained(new Counter(7)));
        var counters = new[] { new Counter(1) };
        counters[0].Increase(1);
        Show(counters[0].Value);
    }

    private interface IAdds
    {
        int Add(int number);
    }

    private struct Counter : IAdds
    {
        public int Value;

        [Trace]
        public Counter(int value)
        {
            Value = value;
        }

        // What it changes stays changed.
        [Trace] public int Increase(int by) => Value += by;
        [Trace] public static Counter Zero() => default;
        [Trace] public override readonly string ToString() => $"counter at {Value}";
        [Trace] int IAdds.Add(int number) => Value += number;
    }

    private readonly struct Fixed
    {
        private readonly double value;

        public Fixed(double value) => this.value = value;

        [Trace] public double Half() => value / 2;
    }

    private ref struct View
    {
        private readonly Span<int> content;

        [Trace]
        public View(int[] content)
        {
            this.content = content;
        }

        [Trace] public readonly int Length() => content.Length;
    }

    private readonly struct Holder<T>
    {
        private readonly T? value;

        public Holder(T value) => this.value = value;

        [Trace] public static Holder<T> Made() => default;
        [Trace] public string Held() => $"{typeof(T).Name} {value}";
    }

    private static class Colours
    {
        [Trace] public static string Name(Colour colour) => colour.ToString();
    }

    private static int CallConstrained<T>(T value)
        where T : IAdds => value.Add(1) + value.Add(1);

    private static void Generics()
    {
        Show(new Box<int>(5).Count());
        Show(new Box<string>("text").Count());
        Show(new Box<Point>(default).Count());
        Show(new Box<int>(5).Value());
        Show(new Box<string>("text").Many().Count);
        Show(new Box<int>(5).Array());
        Show(new Box<int>(5).Optional());
        Show(new Box<Point>(new Point(1, 2)).Both());
        Show(new Box<string>("text").Both());
        Show(Box<int>.Static(1));
        Show(new Box<int>.Lid<string>().Describe());
        Show(Identity(5));
        Show(Identity("text"));
        Show(TypeOf<int>());
        Show(new Strings().Count());
    }

    private class Box<T>
    {
        private readonly T value;

        [Trace]
        public Box(T value) => this.value = value;

        [Trace] public string Count() => $"one {typeof(T).Name}";
        [Trace] public T Value() => value;
        [Trace] public List<T> Many() => new() { value, value };
        [Trace] public T[] Array() => new[] { value };
        [Trace] public (T, int) Both() => (value, 1);
        [Trace] public static string Static(int number) => $"{typeof(T).Name} {number}";

        public class Lid<TLid>
        {
            [Trace] public string Describe() => $"{typeof(T).Name} {typeof(TLid).Name}";
        }
    }

    [Trace] private static T? Optional<T>(this Box<T> box)
        where T : struct => box.Value();

    [Trace] private static T Identity<T>(T value) => value;
    [Trace] private static string TypeOf<T>() => typeof(T).Name;

    private sealed class Strings : Box<string>
    {
        public Strings()
            : base("text")
        {
        }
    }

    private static void Inheritance()
    {
        Shape shape = new Square(3);
        Show(shape.Area());
        Show(shape.Name());
        Show(shape.Describe());
        Show(((INumbered)shape).Number());
        Show(((INumbered)shape).Default());
        Show(INumbered.Static());
        Show(((IExplicit)shape).Explicit(1));
        Show(Absolute<Whole>());
        Show(new Circle { Radius = 2 }.Area());
        Show(new Circle { Radius = 2 } with { Radius = 3 });
        Show(new Range(1, 2).Length());
        Show(new Range(1, 2).ToString());
    }

    private interface INumbered
    {
        int Number();
        [Trace] string Default() => $"number {Number()}";
        [Trace] static string Static() => "static";
    }

    private interface IExplicit
    {
        int Explicit(int value);
    }

    private abstract class Shape : INumbered, IExplicit
    {
        public abstract int Area();
        [Trace] public virtual string Name() => "shape";
        [Trace] public string Describe() => $"{Name()} of {Area()}";
        [Trace] int INumbered.Number() => 1;
        [Trace] int IExplicit.Explicit(int value) => value + 1;
    }

    private sealed class Square : Shape
    {
        private readonly int side;

        public Square(int side) => this.side = side;

        [Trace] public override int Area() => side * side;
        [Trace] public override string Name() => "square, a " + base.Name();
    }

    private interface IAbsolute
    {
        static abstract int Value();
    }

    private class Whole : IAbsolute
    {
        [Trace] public static int Value() => 9;
    }

    private static int Absolute<T>()
        where T : IAbsolute => T.Value();

    private record Circle
    {
        public int Radius { [Trace] get; [Trace] init; }
        [Trace] public int Area() => 3 * Radius * Radius;
    }

    private readonly record struct Range(int From, int To)
    {
        [Trace] public int Length() => To - From;
    }

    private static void CompilerMade()
    {
        Show(Numbers(3).ToList());
        Show(Later(5).Result);
        LaterNothing().Wait();
        Show(Quick(6).Result);
        Show(Streamed().Result);
        Func<int, int> lambda = [Trace] (number) => number + 1;
        Show(lambda(1));
        int captured = 10;
        Func<int, int> closure = [Trace] (number) => number + captured;
        Show(closure(1));
        Show(Local(2));
        Show(Capturing(3));
        Func<int, int> typed = [Trace] static (int number) => number * 3;
        Show(typed(4));

        [Trace] static int Local(int number) => number * 2;
        [Trace] int Capturing(int number) => number * captured;
    }

    // Only the call that makes the iterator or starts the task is the marked method; what runs later is another.
    [Trace]
    private static IEnumerable<int> Numbers(int count)
    {
        for (int i = 0; i < count; ++i)
        {
            yield return i;
        }
    }

    [Trace]
    private static async System.Threading.Tasks.Task<int> Later(int number)
    {
        await System.Threading.Tasks.Task.Yield();
        return number + 1;
    }

    [Trace]
    private static async System.Threading.Tasks.Task LaterNothing() => await System.Threading.Tasks.Task.Yield();

    [Trace]
    private static async System.Threading.Tasks.ValueTask<int> Quick(int number)
    {
        await System.Threading.Tasks.Task.CompletedTask;
        return number;
    }

    private static async System.Threading.Tasks.Task<int> Streamed()
    {
        int sum = 0;
        await foreach (int number in Stream())
        {
            sum += number;
        }
        return sum;
    }

    [Trace]
    private static async IAsyncEnumerable<int> Stream()
    {
        yield return 1;
        await System.Threading.Tasks.Task.CompletedTask;
        yield return 2;
    }

    // Finalizers have a thread of their own.
    private static void Finalized()
    {
        MakeGarbage();
        GC.Collect();
        GC.WaitForPendingFinalizers();
        Show(Garbage.Collected);
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void MakeGarbage() => _ = new Garbage();

    private sealed class Garbage
    {
        public static int Collected;

        [Trace]
        ~Garbage()
        {
            ++Collected;
        }
    }
}

internal static class Extensions
{
    [Trace] public static int Doubled(this int number) => number * 2;
}
