namespace Corvane.Instrumentation;

/// <summary>
/// Is called at the start of every call of an instrumented method, on the thread that makes the call, and
/// may ask <paramref name="directives"/> for other arguments. Instrumented methods that it calls itself are
/// neither recorded nor shown to callbacks. What it throws is counted and goes no further.
/// </summary>
/// <param name="method">The method that is called.</param>
/// <param name="receiver">
/// The object it is called on; null for a static method and for a method of a value type. In a constructor
/// it is not constructed yet.
/// </param>
/// <param name="arguments">The arguments; writing into the array does nothing by itself.</param>
/// <param name="directives">Asks for other arguments. It serves only until the callback returns.</param>
public delegate void MethodArgumentCallback(
    MethodData method, object? receiver, object?[] arguments, InstrumentationDirectives directives);
