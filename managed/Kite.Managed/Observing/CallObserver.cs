using System;
using System.Collections.Generic;
using System.Reflection;

namespace Corvane.Instrumentation;

/// <summary>
/// Sees calls of instrumented methods: that each begins, and that it ends with a result or an error. Derive from it,
/// override what is of use, and register it with <see cref="Invokers.AddObserver"/>.
/// </summary>
/// <remarks>
/// <para>
/// Every call that an observer sees begin comes to exactly one end, and no end comes without a begin: a call that began
/// before the registration is not seen, and one that is open when the registration is taken back still ends. The only
/// calls without an end are those that are open when the process ends. Where an end cannot be seen, the call ends with
/// the one around it, with an error that is null.
/// </para>
/// <para>
/// All members are called on the threads that make the calls, at any time, several at once. Instrumented methods that
/// they call are neither recorded nor observed. What they throw is counted and goes no further; an observer whose
/// <see cref="OnBegin"/> threw sees no end of that call. With several observers the first registered sees the begin
/// first and the end last.
/// </para>
/// <para>
/// An async method ends when it returns its task, as any other method does, and an iterator when it returns its sequence:
/// the work may go on behind that. The task is the result; whoever needs the end of the work can continue it.
/// </para>
/// </remarks>
public abstract class CallObserver
{
    /// <summary>
    /// Chooses a method. It is asked once, before the first call of the method that the observer could see; two threads
    /// that make this call at the same moment may both ask. Without an override every method is chosen.
    /// </summary>
    /// <param name="method">The method; for a generic one its definition.</param>
    /// <returns>Whether the observer is to see its calls.</returns>
    public virtual bool Wants(MethodBase method) => true;

    /// <summary>Sees a call begin, before the method's own code runs.</summary>
    /// <param name="method">The method that is called.</param>
    /// <param name="receiver">
    /// The object it is called on; null for a static method and for a method of a value type. In a constructor
    /// it is not constructed yet.
    /// </param>
    /// <param name="arguments">
    /// The arguments that the method's own code gets, boxed; null for a string, an object or a class passed by reference.
    /// </param>
    /// <returns>What the end of this call is to be given, or null.</returns>
    public virtual object? OnBegin(MethodData method, object? receiver, IReadOnlyList<object?> arguments) => null;

    /// <summary>Sees a call return.</summary>
    /// <param name="state">What <see cref="OnBegin"/> returned for this call.</param>
    /// <param name="result">What the method returns, boxed; null if that is nothing.</param>
    public virtual void OnEnd(object? state, object? result)
    {
    }

    /// <summary>Sees an exception leave a call.</summary>
    /// <remarks>
    /// It is called when the method's own code, its finally blocks too, is over. If one of these throws another exception
    /// that the method itself catches, the method returns after all: the observer is told of the first exception then,
    /// and not of the result.
    /// </remarks>
    /// <param name="state">What <see cref="OnBegin"/> returned for this call.</param>
    /// <param name="exception">
    /// The exception; null if it is not known what ended the call, as where an object was thrown that is no exception.
    /// </param>
    public virtual void OnError(object? state, Exception? exception)
    {
    }
}
