using System;
using System.Reflection;
using System.Text;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Recording;

// What a line of the call tree needs of a method, as text: made once, so that
// a call costs no reflection and the method's assembly can be unloaded. Immutable, but for one count.
internal sealed class MethodSignature
{
    private readonly string[] labels;
    private readonly bool[] shown;
    private readonly bool[] secret;

    private MethodSignature(string name, MethodBase? method)
    {
        Name = name;
        var parameters = method?.GetParameters() ?? new ParameterInfo[0];
        labels = Array.ConvertAll(parameters, LabelOf);
        shown = Array.ConvertAll(parameters, IsHandedOver);
        ResultIsSecret = method == null || NamesSecret(method);
        secret = Array.ConvertAll(
            parameters, parameter => ResultIsSecret || SecretNames.IsSecret(parameter.Name ?? ""));
        ReturnsValue = method is MethodInfo function && function.ReturnType != typeof(void);
        HasObjectReceiver = method is { IsStatic: false, DeclaringType.IsValueType: false };
        WorkEnd = method == null ? WorkEnd.Return : WorkEnds.Of(method);
        OwnType = HasObjectReceiver && !method!.DeclaringType!.IsSealed ? TypeNames.Of(method.DeclaringType) : null;
    }

    internal string Name { get; }

    internal bool ReturnsValue { get; }

    // The name of the method or of a type around it says so, or is not known. Then every argument is secret as well.
    internal bool ResultIsSecret { get; }

    // A value of the call, then, may be in the message of an exception.
    internal bool HasSecrets => ResultIsSecret || Array.IndexOf(secret, true) >= 0;

    // In a value type's method the receiver may be the address of the value instead of an object.
    internal bool HasObjectReceiver { get; }

    internal WorkEnd WorkEnd { get; }

    // The declaring type's name where the receiver may be of another type, else null.
    internal string? OwnType { get; }

    internal int ParameterCount => labels.Length;

    // How many tasks that it returned have not completed yet, of those whose end is waited for.
    internal int OpenTasks;

    internal static MethodSignature Of(uint index, MethodBase? method)
    {
        try
        {
            return new MethodSignature(method == null ? $"method #{index}" : NameOf(method), method);
        }
        catch (Exception)
        {
            // A parameter's type may be in an assembly that is missing.
            return new MethodSignature($"method #{index}", null);
        }
    }

    // The parameter's name and mode, and whether there is a value to show behind it.
    internal string Label(int parameter, out bool hasValue)
    {
        hasValue = shown[parameter];
        return labels[parameter];
    }

    internal bool IsSecret(int parameter) => secret[parameter];

    private static bool NamesSecret(MethodBase method)
    {
        var isSecret = SecretNames.IsSecret(method.Name);
        for (var type = method.DeclaringType; type != null && !isSecret; type = type.DeclaringType)
        {
            isSecret = SecretNames.IsSecret(type.Name);
        }
        return isSecret;
    }

    private static string NameOf(MethodBase method)
    {
        var text = new StringBuilder();
        if (method.DeclaringType != null)
        {
            text.Append(TypeNames.Of(method.DeclaringType)).Append('.');
        }
        text.Append(method.Name);
        if (method.IsGenericMethod)
        {
            text.Append('<').Append(string.Join(", ", Array.ConvertAll(method.GetGenericArguments(), TypeNames.Of)))
                .Append('>');
        }
        return text.ToString();
    }

    private static string LabelOf(ParameterInfo parameter)
    {
        var mode = !parameter.ParameterType.IsByRef ? "" : parameter.IsOut ? "out " : parameter.IsIn ? "in " : "ref ";
        return mode + (string.IsNullOrEmpty(parameter.Name) ? $"arg{parameter.Position}" : parameter.Name);
    }

    // What is passed by reference is handed over only where it is no string, object or class, and is worth
    // showing only where the callee may read it.
    private static bool IsHandedOver(ParameterInfo parameter)
    {
        var type = parameter.ParameterType;
        return !type.IsByRef ||
            (!parameter.IsOut && type.GetElementType() is { IsValueType: true } or { IsArray: true } or { IsGenericType: true });
    }
}
