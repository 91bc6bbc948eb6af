using System;
using System.Diagnostics;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Threading;

namespace Corvane.Instrumentation.Conventions;

// Reads a property of objects of any type, through a delegate that is made once for each type. A property that
// throws or takes long three times is not read any more for that type.
internal sealed class PropertyReader
{
    internal const int MaxStrikes = 3;

    // So many quick reads make up for a slow one: a thread may have to wait anywhere.
    internal const int QuickReads = 1_000;

    private static readonly long slow = Stopwatch.Frequency / 1_000;

    private readonly ConditionalWeakTable<Type, Getter> getters = new ConditionalWeakTable<Type, Getter>();
    private readonly string name;
    private readonly Func<long> clock;

    internal PropertyReader(string name, Func<long>? clock = null)
    {
        this.name = name;
        this.clock = clock ?? Stopwatch.GetTimestamp;
    }

    // Null also if there is no such property or it failed.
    internal object? Read(object? from) => from == null ? null : getters.GetValue(from.GetType(), Make).Read(from);

    internal string? ReadText(object? from) => Read(from) as string;

    // Of a number or an enumeration.
    internal int? ReadNumber(object? from) => Read(from) is IConvertible number and not string ? number.ToInt32(null) : null;

    private Getter Make(Type type)
    {
        try
        {
            return new Getter(Members.Getter(type, name) is { } getter ? MakeDelegate(getter) : null, clock);
        }
        catch (Exception)
        {
            // A type that the property names may be missing.
            return new Getter(null, clock);
        }
    }

    private static Func<object, object?>? MakeDelegate(MethodInfo getter)
    {
        var owner = getter.DeclaringType!;
        if (owner.IsValueType || getter.ReturnType.IsByRef || getter.ReturnType.IsPointer)
        {
            return null;
        }
        return ((ITyped)Members.New(typeof(Typed<,>), owner, getter.ReturnType)).Bind(getter);
    }

    private interface ITyped
    {
        Func<object, object?> Bind(MethodInfo getter);
    }

    private sealed class Typed<TOwner, TValue> : ITyped
    {
        public Func<object, object?> Bind(MethodInfo getter)
        {
            var read = (Func<TOwner, TValue>)Delegate.CreateDelegate(typeof(Func<TOwner, TValue>), getter);
            return from => read((TOwner)from);
        }
    }

    // Threads may lose a strike of each other; there will be another one.
    private sealed class Getter
    {
        private readonly Func<long> clock;
        private Func<object, object?>? read;
        private int failures;
        private int slowReads;
        private int quickReads;

        internal Getter(Func<object, object?>? read, Func<long> clock)
        {
            this.read = read;
            this.clock = clock;
        }

        internal object? Read(object from)
        {
            var read = Volatile.Read(ref this.read);
            if (read == null)
            {
                return null;
            }
            var started = clock();
            try
            {
                return read(from);
            }
            catch (Exception exception) when (exception is not ThreadInterruptedException)
            {
                failures++;
                return null;
            }
            finally
            {
                Judge(clock() - started > slow);
            }
        }

        private void Judge(bool isSlow)
        {
            if (isSlow)
            {
                slowReads++;
                quickReads = 0;
            }
            else if (slowReads > 0 && ++quickReads == QuickReads)
            {
                slowReads = 0;
                quickReads = 0;
            }
            if (failures >= MaxStrikes || slowReads >= MaxStrikes)
            {
                Volatile.Write(ref read, null);
            }
        }
    }
}
