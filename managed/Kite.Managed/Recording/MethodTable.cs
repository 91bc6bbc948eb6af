using System.Collections.Concurrent;
using System.Reflection;

namespace Corvane.Instrumentation.Recording;

// The registered methods by their numbers. Any thread, without a lock on the way that every call takes.
internal sealed class MethodTable
{
    private readonly ConcurrentDictionary<uint, MethodData> methods = new ConcurrentDictionary<uint, MethodData>();

    internal bool IsEmpty => methods.IsEmpty;

    internal MethodData? Find(uint index) => methods.TryGetValue(index, out var method) ? method : null;

    // The first one keeps a number that two methods share.
    internal void Register(uint index, MethodBase? method, bool traced)
    {
        if (!methods.ContainsKey(index))
        {
            methods.TryAdd(index, new MethodData(index, method, traced));
        }
    }
}
