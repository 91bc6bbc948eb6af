using System.Reflection;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// The registered methods by their numbers. Any thread, without a lock on the way that every call takes. That way
// goes through nothing but this library and the core library: any other one may be instrumented itself, and would
// come back here without end.
internal sealed class MethodTable
{
    private readonly object gate = new object();
    private Entry?[] lists = new Entry?[64]; // by the number's last bits
    private int count;

    internal bool IsEmpty => Volatile.Read(ref count) == 0;

    internal MethodData? Find(uint index)
    {
        var all = Volatile.Read(ref lists);
        for (var entry = Volatile.Read(ref all[index & (uint)(all.Length - 1)]); entry != null; entry = entry.Next)
        {
            if (entry.Index == index)
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
            if (count == lists.Length)
            {
                Volatile.Write(ref lists, Grown());
            }
            Add(lists, index, registered);
            ++count;
        }
    }

    private Entry?[] Grown()
    {
        var grown = new Entry?[2 * lists.Length];
        foreach (var list in lists)
        {
            for (var entry = list; entry != null; entry = entry.Next)
            {
                Add(grown, entry.Index, entry.Method);
            }
        }
        return grown;
    }

    private static void Add(Entry?[] lists, uint index, MethodData method)
    {
        ref var first = ref lists[index & (uint)(lists.Length - 1)];
        Volatile.Write(ref first, new Entry(index, method, first));
    }

    private sealed class Entry
    {
        internal Entry(uint index, MethodData method, Entry? next)
        {
            Index = index;
            Method = method;
            Next = next;
        }

        internal uint Index { get; }

        internal MethodData Method { get; }

        internal Entry? Next { get; }
    }
}
