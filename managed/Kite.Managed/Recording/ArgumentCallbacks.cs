using System;

namespace Corvane.Instrumentation.Recording;

// The registered callbacks. A call runs those that were registered when it began; any thread may change them.
internal sealed class ArgumentCallbacks
{
    private volatile MethodArgumentCallback[] callbacks = new MethodArgumentCallback[0];

    internal object Gate { get; } = new object();

    internal bool IsEmpty => callbacks.Length == 0;

    internal void Add(MethodArgumentCallback? callback)
    {
        if (callback == null)
        {
            return;
        }
        lock (Gate)
        {
            var longer = new MethodArgumentCallback[callbacks.Length + 1];
            callbacks.CopyTo(longer, 0);
            longer[callbacks.Length] = callback;
            callbacks = longer;
        }
    }

    internal bool Remove(MethodArgumentCallback? callback)
    {
        lock (Gate)
        {
            var position = Array.LastIndexOf(callbacks, callback);
            if (position < 0)
            {
                return false;
            }
            var shorter = new MethodArgumentCallback[callbacks.Length - 1];
            Array.Copy(callbacks, 0, shorter, 0, position);
            Array.Copy(callbacks, position + 1, shorter, position, shorter.Length - position);
            callbacks = shorter;
            return true;
        }
    }

    // A callback that throws keeps neither the others from running nor its own replacements from counting.
    internal void Run(
        MethodData method, object? receiver, object?[] arguments, InstrumentationDirectives directives,
        Action<Exception> failed)
    {
        directives.Open(method, arguments);
        foreach (var callback in callbacks)
        {
            try
            {
                callback(method, receiver, arguments, directives);
            }
            catch (Exception exception)
            {
                failed(exception);
            }
        }
        directives.Close();
    }
}
