// Instance methods of classes and of value types, and what else is handed over with a call: which receiver
// it has when it begins and when it ends, and what is said of one that throws.
using System;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Receivers
{
    public static void Run()
    {
        Nobody(1);
        var door = new Door("closed");
        door.Open(2);
        Door gate = new Gate();
        gate.Open(3);
        Show(((INamed)gate).Name);
        Show(door.Push(8));
        Catch(() => door.Push(9));
        Catch(() => door.PushTwice(9));

        var counter = new Counter(5);
        Show(counter.Increase(2));
        Show(counter.Value);
        object boxed = counter;
        Show(((IAdds)boxed).Add(3));
        Show(boxed);
        Catch(() => new Counter(1).Decrease(2));
        Show(counter.Next().Value);
        Show(new Labelled("label").Length());
        Show(new Slot<int>(4).Empty());
        Show(new Slot<string>("text").Empty());
    }

    [Trace] private static void Nobody(int number) => Console.WriteLine(number);

    private class Door : INamed
    {
        protected string state;

        [Trace]
        public Door(string state) => this.state = state;

        string INamed.Name { [Trace] get => state; }

        [Trace] public virtual void Open(int wide) => state = $"open {wide} wide";

        [Trace]
        public int Push(int hard)
        {
            state = "pushed";
            return hard < 9 ? hard : throw new InvalidOperationException("it broke");
        }

        [Trace] public int PushTwice(int hard) => Push(hard) + Push(hard);

        public override string ToString() => $"door {state}";
    }

    private sealed class Gate : Door
    {
        public Gate()
            : base("locked")
        {
        }

        [Trace]
        public override void Open(int wide)
        {
            base.Open(wide + 1);
            state += " at last";
        }

        public override string ToString() => $"gate {state}";
    }

    private interface IAdds
    {
        int Add(int number);
    }

    private struct Counter : IAdds
    {
        public int Value;

        [Trace]
        public Counter(int value) => Value = value;

        [Trace] public int Increase(int by) => Value += by;
        [Trace] public readonly Counter Next() => new() { Value = Value + 1 };
        [Trace] int IAdds.Add(int number) => Value += number;

        [Trace]
        public int Decrease(int by)
        {
            Value -= by;
            return Value >= 0 ? Value : throw new InvalidOperationException("below zero");
        }

        public override readonly string ToString() => $"counter at {Value}";
    }

    private readonly struct Labelled
    {
        private readonly string label;
        private readonly Point point;
        private readonly double number;

        public Labelled(string label)
        {
            this.label = label;
            point = new Point(1, 2);
            number = 0.5;
        }

        [Trace] public int Length() => label.Length;

        public override string ToString() => FormattableString.Invariant($"{label} {point} {number}");
    }

    private struct Slot<T>
    {
        private T? content;

        public Slot(T content) => this.content = content;

        [Trace]
        public string Empty()
        {
            string text = $"{content}";
            content = default;
            return text;
        }

        public override readonly string ToString() => $"slot of {content}";
    }
}
