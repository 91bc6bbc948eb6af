using System;
using System.Collections.Generic;
using Corvane.Instrumentation.Recording;

namespace Corvane.Instrumentation.Observing;

// The registered observers. Any thread may change them; a call is shown to those that are registered when it begins.
// None of this throws. Where nobody wants a method, its calls cost a look at the table of methods, and nothing is
// allocated.
internal sealed class CallObservers
{
    private readonly MethodTable methods;
    private readonly object gate = new object();
    private volatile ObserverRegistration[] registered = new ObserverRegistration[0];

    internal CallObservers(MethodTable methods) => this.methods = methods;

    internal bool IsEmpty => registered.Length == 0;

    // Is called with what an observer threw.
    internal Action<Exception> Failed { get; set; } = _ => { };

    internal IDisposable Add(CallObserver observer)
    {
        var added = new ObserverRegistration(this, observer);
        lock (gate)
        {
            registered = [.. registered, added];
        }
        return added;
    }

    internal void Remove(ObserverRegistration removed)
    {
        lock (gate)
        {
            registered = Array.FindAll(registered, one => one != removed);
        }
    }

    // Who sees the call, for its end; null for nobody. A call that cannot be shown whole is not shown.
    internal ObservedCall[]? Begin(uint index, object? receiver, object?[] arguments)
    {
        if (methods.Find(index) is not { } method)
        {
            return null;
        }
        var wanting = Wanting(method);
        return wanting.Length == 0 || method.Signature.ParameterCount != arguments.Length
            ? null
            : Begin(wanting, method, receiver, arguments);
    }

    internal void End(ObservedCall[] calls, object? result)
    {
        for (var position = calls.Length - 1; position >= 0; position--)
        {
            try
            {
                calls[position].Observer?.OnEnd(calls[position].State, result);
            }
            catch (Exception exception)
            {
                Failed(exception);
            }
        }
    }

    internal void Error(ObservedCall[] calls, Exception? why)
    {
        for (var position = calls.Length - 1; position >= 0; position--)
        {
            try
            {
                calls[position].Observer?.OnError(calls[position].State, why);
            }
            catch (Exception exception)
            {
                Failed(exception);
            }
        }
    }

    private ObservedCall[] Begin(
        ObserverRegistration[] wanting, MethodData method, object? receiver, object?[] arguments)
    {
        var calls = new ObservedCall[wanting.Length];
        for (var position = 0; position < wanting.Length; position++)
        {
            try
            {
                if (wanting[position].Observer is { } observer)
                {
                    calls[position].State = observer.OnBegin(method, receiver, arguments);
                    calls[position].Observer = observer;
                }
            }
            catch (Exception exception)
            {
                Failed(exception);
            }
        }
        return calls;
    }

    private ObserverRegistration[] Wanting(MethodData method)
    {
        var all = registered;
        return method.Observers is { } known && known.Asked == all ? known.Wanting : Ask(method, all);
    }

    private ObserverRegistration[] Ask(MethodData method, ObserverRegistration[] all)
    {
        var answers = new ObserversOfMethod(all, Array.FindAll(all, one => Wants(one, method)));
        method.Observers = answers;
        return answers.Wanting;
    }

    // Who was asked before is not asked again.
    private bool Wants(ObserverRegistration registration, MethodData method)
    {
        if (method.Observers is { } known && Array.IndexOf(known.Asked, registration) >= 0)
        {
            return Array.IndexOf(known.Wanting, registration) >= 0;
        }
        try
        {
            return method.Method is { } definition && registration.Observer?.Wants(definition) == true;
        }
        catch (Exception exception)
        {
            Failed(exception);
            return false;
        }
    }
}

// One registration of an observer, which its maker may take back. It keeps the observer no longer than that: methods
// keep it as long as they live.
internal sealed class ObserverRegistration : IDisposable
{
    private readonly CallObservers? observers;
    private volatile CallObserver? observer;

    internal ObserverRegistration(CallObservers? observers, CallObserver observer)
    {
        this.observers = observers;
        this.observer = observer;
    }

    internal CallObserver? Observer => observer;

    public void Dispose()
    {
        observer = null;
        observers?.Remove(this);
    }
}

// What was found out about a method.
internal sealed class ObserversOfMethod
{
    internal ObserversOfMethod(ObserverRegistration[] asked, ObserverRegistration[] wanting)
    {
        Asked = asked;
        Wanting = wanting;
    }

    internal ObserverRegistration[] Asked { get; }

    internal ObserverRegistration[] Wanting { get; }
}

// That an observer saw a call begin; without an observer, it did not.
internal struct ObservedCall
{
    internal CallObserver? Observer;
    internal object? State;
}
