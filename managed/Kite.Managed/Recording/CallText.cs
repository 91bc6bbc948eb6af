using System;
using System.Diagnostics;
using System.Globalization;
using System.Text;
using Corvane.Instrumentation.Privacy;

namespace Corvane.Instrumentation.Recording;

// The parts of a call's line in the tree, each made when it becomes known, and the line itself:
//     Shop.Cart.Add(name: "tea", count: 2) = true  [12.3 us]
// Any thread; the caller lends the builder.
internal static class CallText
{
    internal const int MaxArguments = 1000;

    internal static string Arguments(
        StringBuilder text, MethodSignature method, object? receiver, object?[] arguments, RecordedValues values,
        bool areSecret)
    {
        text.Clear();
        if (method.OwnType != null && receiver != null && TypeNames.Of(receiver.GetType()) is var type &&
            type != method.OwnType)
        {
            text.Append("this: {").Append(type).Append('}');
        }
        // Another number of arguments is that of another method that got the same number.
        var labelled = method.ParameterCount == arguments.Length;
        for (var position = 0; position < arguments.Length; position++)
        {
            text.Append(text.Length == 0 ? "" : ", ");
            if (text.Length > MaxArguments)
            {
                text.Append("...");
                break;
            }
            var hasValue = true;
            text.Append(labelled ? method.Label(position, out hasValue) : $"arg{position}");
            if (hasValue)
            {
                AppendValue(text, ": ", arguments[position], values, isSecret: areSecret || method.IsSecret(position));
            }
        }
        return text.ToString();
    }

    internal static string Result(
        StringBuilder text, MethodSignature method, object? result, RecordedValues values, bool isSecret)
    {
        text.Clear();
        if (result != null || method.ReturnsValue)
        {
            AppendValue(text, " = ", result, values, isSecret || method.ResultIsSecret);
        }
        return text.ToString();
    }

    internal static string Exception(StringBuilder text, Exception? exception, RecordedValues values) =>
        ValueText.AppendException(text.Clear().Append(" ! "), exception, values).ToString();

    internal static void AppendLine(StringBuilder text, Call call)
    {
        text.Append(call.Method.Name).Append('(').Append(call.Arguments).Append(')');
        if (call.Outcome == null)
        {
            text.Append(" ...");
            return;
        }
        var elapsed = call.Elapsed is { } ticks
            ? (ticks * 1e6 / Stopwatch.Frequency).ToString("0.0", CultureInfo.InvariantCulture)
            : "?";
        text.Append(call.Outcome).Append("  [").Append(elapsed).Append(" us]");
    }

    // All values of a call are, whose method cannot be the registered one, or in which a text names a secret: the
    // secret itself may be any of the others.
    internal static bool AreSecret(MethodSignature method, object?[] arguments)
    {
        if (method.ParameterCount != arguments.Length)
        {
            return true;
        }
        foreach (var argument in arguments)
        {
            if (argument is string text && SecretNames.IsSecret(text, ValueText.MaxSearched))
            {
                return true;
            }
        }
        return false;
    }

    private static void AppendValue(
        StringBuilder text, string before, object? value, RecordedValues values, bool isSecret)
    {
        if (values == RecordedValues.None)
        {
            return;
        }
        text.Append(before);
        if (isSecret)
        {
            text.Append(SecretText.Mask);
        }
        else
        {
            ValueText.AppendValue(text, value, values);
        }
    }
}
