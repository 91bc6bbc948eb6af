using System;
using System.Reflection;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Observing;
using Corvane.Instrumentation.Recording;

namespace Corvane.Instrumentation;

/// <summary>
/// The instrumented methods that were called so far, and the callbacks and observers that want to hear of calls.
/// </summary>
public static class Invokers
{
    /// <summary>
    /// Whether anybody wants to hear of calls now: the recorder, a callback, an observer or a listener to activities. The
    /// injected code of strict IL asks at the start and at the end of every call, and makes the other calls only then.
    /// </summary>
    [MethodImpl(EveryCall.Options)]
    public static bool HasListeners() => Recorder.Current?.HasListeners == true;

    /// <summary>Whether a method is registered under this number.</summary>
    /// <param name="index">The number that the method got when it was instrumented.</param>
    [MethodImpl(EveryCall.Options)]
    public static bool ContainsKey(uint index) => Recorder.Current?.Methods.Find(index) != null;

    /// <summary>
    /// Registers a method at its first call. Two methods that were compiled at the same moment may have got
    /// the same number: the first one keeps it, and calls of the other are recorded under its name.
    /// </summary>
    /// <param name="index">The number that the method got when it was instrumented.</param>
    /// <param name="method">The method; for a generic one its definition.</param>
    /// <param name="traced">Whether it was chosen for its trace attribute.</param>
    public static void RegisterMethod(uint index, MethodBase? method, bool traced) =>
        Recorder.Current?.Register(index, method, traced);

    /// <summary>
    /// Registers a callback for every call of every instrumented method from now on. Callbacks run in the
    /// order of their registration, each seeing the arguments as the one before left them.
    /// </summary>
    /// <param name="callback">The callback; null is passed over.</param>
    public static void AddArgumentCallback(MethodArgumentCallback? callback) => Recorder.Current?.Callbacks.Add(callback);

    /// <summary>Takes back one registration of a callback.</summary>
    /// <param name="callback">What was registered.</param>
    /// <returns>Whether it was registered.</returns>
    public static bool RemoveArgumentCallback(MethodArgumentCallback? callback) =>
        Recorder.Current?.Callbacks.Remove(callback) == true;

    /// <summary>
    /// Registers an observer for the calls that begin from now on. Registered twice, it sees each call twice.
    /// </summary>
    /// <param name="observer">The observer.</param>
    /// <returns>
    /// Takes the registration back when it is disposed of. Calls that the observer saw begin still end; another thread may
    /// just be about to show it one more.
    /// </returns>
    /// <exception cref="ArgumentNullException">There is no observer.</exception>
    public static IDisposable AddObserver(CallObserver observer)
    {
        if (observer == null)
        {
            throw new ArgumentNullException(nameof(observer));
        }
        return Recorder.Current?.Observe(observer) ?? new ObserverRegistration(null, observer);
    }
}
