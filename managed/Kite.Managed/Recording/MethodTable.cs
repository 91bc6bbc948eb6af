using System.Reflection;
using System.Runtime.CompilerServices;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// The registered methods by their numbers. Any thread, without a lock on the way that every call takes. That way
// goes through nothing but this library and the core library: any other one may be instrumented itself, and would
// come back here without end.
internal sealed class MethodTable
{
    private readonly object gate = new object();
    private MethodData?[] methods = new MethodData?[1024]; // by number
    private Entry? others; // with numbers far beyond
    private int count;

    internal bool IsEmpty => Volatile.Read(ref count) == 0;

    [MethodImpl(EveryCall.Options)]
    internal MethodData? Find(uint index)
    {
        var all = Volatile.Read(ref methods);
        var found = index < (uint)all.Length ? Volatile.Read(ref all[index]) : null;
        return found ?? (Volatile.Read(ref others) == null ? null : FindOther(index));
    }

    private MethodData? FindOther(uint index)
    {
        for (var entry = Volatile.Read(ref others); entry != null; entry = entry.Next)
        {
            if (entry.Method.Index == index)
            {
                return entry.Method;
            }
        }
        return null;
    }

    // The first one keeps a number that two methods share. What is to be known of it later than its assembly lives is
    // described now, which may run code of the program.
    internal void Register(uint index, MethodBase? method, bool traced, bool describe = true)
    {
        if (Find(index) != null)
        {
            return;
        }
        var registered = new MethodData(index, method, traced);
        if (describe)
        {
            _ = registered.Signature;
        }
        lock (gate)
        {
            if (Find(index) != null)
            {
                return;
            }
            Add(registered);
            ++count;
        }
    }

    // The numbers are those of a counter, so that there are few gaps.
    private void Add(MethodData method)
    {
        var index = method.Index;
        if (index >= 2 * (uint)methods.Length)
        {
            Volatile.Write(ref others, new Entry(method, others));
            return;
        }
        if (index >= (uint)methods.Length)
        {
            var grown = new MethodData?[2 * methods.Length];
            methods.CopyTo(grown, 0);
            Volatile.Write(ref methods, grown);
        }
        Volatile.Write(ref methods[index], method);
    }

    private sealed class Entry
    {
        internal Entry(MethodData method, Entry? next)
        {
            Method = method;
            Next = next;
        }

        internal MethodData Method { get; }

        internal Entry? Next { get; }
    }
}
