// A startup hook that has the managed library replace every argument that it can.
using Corvane.Instrumentation;
using Probe;

internal static class StartupHook
{
    public static void Initialize() =>
        Invokers.AddArgumentCallback((method, _, arguments, directives) =>
        {
            object?[] others = (object?[])arguments.Clone();
            Replacements.Make(method.Method!.GetParameters(), others, wrongly: false);
            for (int i = 0; i < others.Length; ++i)
            {
                directives.ReplaceArgument(i, others[i]);
            }
        });
}
