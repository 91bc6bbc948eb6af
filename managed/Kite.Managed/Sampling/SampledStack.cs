namespace Corvane.Sampling;

/// <summary>
/// A stack: a function and the stack that called it. Equal stacks are one object, so that a sample is small.
/// </summary>
public sealed class SampledStack
{
    internal SampledStack(SampledStack? caller, SampledFunction? function)
    {
        Caller = caller;
        Function = function;
        Depth = caller == null ? 0 : caller.Depth + 1;
    }

    /// <summary>The innermost function; null on the empty stack, which is that of a thread without managed code.</summary>
    public SampledFunction? Function { get; }

    /// <summary>The stack below, which ends with the empty one; null on that.</summary>
    public SampledStack? Caller { get; }

    /// <summary>How many functions there are.</summary>
    public int Depth { get; }

    /// <summary>The functions, outermost first.</summary>
    public SampledFunction[] ToArray()
    {
        var functions = new SampledFunction[Depth];
        for (var stack = this; stack.Caller != null; stack = stack.Caller)
        {
            functions[stack.Depth - 1] = stack.Function!;
        }
        return functions;
    }
}
