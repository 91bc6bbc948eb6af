using System;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation;
using Corvane.Instrumentation.Recording;

// Names and signatures of this file are the injected code's, down to the letter.
#pragma warning disable CS8981 // the class is called so by the injected code

namespace kite.managed;

/// <summary>
/// What the code injected into an instrumented method calls, on the thread that runs the method. Nothing
/// here throws, and nothing here runs code of the program but the callbacks that it registered.
/// </summary>
public static class span
{
    /// <summary>
    /// Takes a trace line of the injected code; 0 is the most important level. A line of level 4 ends the innermost
    /// call of this thread if an exception was reported for it.
    /// </summary>
    /// <param name="level">0 for what fails or is about to be reported, 4 where a method's own code is over.</param>
    /// <param name="text">The line.</param>
    [MethodImpl(EveryCall.Options)]
    public static void Log(int level, string? text) => Recorder.Current?.Log(level, text);

    /// <summary>
    /// Reports an exception that is about to leave the innermost call of this thread that it was not yet reported for.
    /// </summary>
    /// <param name="text">A remark; the injected code passes null.</param>
    /// <param name="exception">What was thrown.</param>
    /// <returns>Whether there is such a call. The injected code does not look at it.</returns>
    public static bool Error(string? text, Exception? exception) => Recorder.Current?.Fail(exception) == true;

    /// <summary>
    /// Begins a call: the argument callbacks run, and then it is recorded. Replaced values are in
    /// <paramref name="arguments"/> when this returns, and <paramref name="directives"/> lists their indexes.
    /// </summary>
    /// <param name="index">The number under which the method was registered.</param>
    /// <param name="receiver">
    /// The object it was called on, or null. In a constructor it is not constructed yet. In a method of a
    /// value type it may be no object at all, so that it is never looked at there.
    /// </param>
    /// <param name="arguments">The arguments, boxed; null for a string, an object or a class passed by reference.</param>
    /// <param name="directives">Where the callbacks ask for other arguments.</param>
    [MethodImpl(EveryCall.Options)]
    public static void GenericPrologue(
        uint index, object? receiver, object?[]? arguments, InstrumentationDirectives? directives)
    {
        var recorder = Recorder.Current;
        if (recorder == null || recorder.IsIdle)
        {
            return;
        }
        if (receiver != null && !recorder.HasObjectReceiver(index))
        {
            // Not only passed over but forgotten: the garbage collector is not to take it for an object either.
            receiver = null;
        }
        recorder.Enter(index, receiver, arguments, directives);
    }

    /// <summary>Ends a call that returned.</summary>
    /// <param name="index">The number under which the method was registered.</param>
    /// <param name="receiver">As in the prologue.</param>
    /// <param name="arguments">The arguments as they are at exit.</param>
    /// <param name="result">What it returns, boxed; null if that is nothing.</param>
    /// <param name="directives">Takes part for symmetry: what a method returns cannot be replaced.</param>
    [MethodImpl(EveryCall.Options)]
    public static void GenericEpilogue(
        uint index, object? receiver, object?[]? arguments, object? result, InstrumentationDirectives? directives)
    {
        receiver = null; // as in the prologue
        Recorder.Current?.Leave(index, arguments, result);
    }
}
