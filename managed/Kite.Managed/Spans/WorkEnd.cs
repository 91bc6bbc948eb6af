using System;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Threading.Tasks;

namespace Corvane.Instrumentation.Spans;

// When the work of a call is over.
internal enum WorkEnd
{
    Return,
    Task,      // when the task that it returns has completed
    ValueTask, // the same, as far as its value task may be looked into
    Unknown,   // some time after it returned
    Part,      // it has none of its own: it is a part of an asynchronous method, from one await to the next
}

internal static class WorkEnds
{
    internal static WorkEnd Of(MethodBase method)
    {
        if (method.Name.EndsWith("MoveNext", StringComparison.Ordinal) && IsAsyncStateMachine(method.DeclaringType))
        {
            return WorkEnd.Part;
        }
        var type = (method as MethodInfo)?.ReturnType;
        if (type == null)
        {
            return WorkEnd.Return;
        }
        if (typeof(Task).IsAssignableFrom(type))
        {
            return WorkEnd.Task;
        }
        // Not every platform has these types.
        switch (type.Namespace + "." + type.Name)
        {
            case "System.Threading.Tasks.ValueTask" or "System.Threading.Tasks.ValueTask`1":
                return WorkEnd.ValueTask;
            case "System.Collections.Generic.IAsyncEnumerable`1" or "System.Collections.Generic.IAsyncEnumerator`1"
                or "System.IAsyncResult":
                return WorkEnd.Unknown;
            default:
                return IsAsync(method) ? WorkEnd.Unknown : WorkEnd.Return;
        }
    }

    // The attributes of a method may be of an assembly that is missing.
    private static bool IsAsync(MethodBase method)
    {
        try
        {
            return method.IsDefined(typeof(AsyncStateMachineAttribute), inherit: false);
        }
        catch (Exception)
        {
            return false;
        }
    }

    private static bool IsAsyncStateMachine(Type? type) => type != null && typeof(IAsyncStateMachine).IsAssignableFrom(type);
}
