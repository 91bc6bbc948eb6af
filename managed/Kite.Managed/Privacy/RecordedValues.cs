using System;
using Corvane.Instrumentation.Recording;

namespace Corvane.Instrumentation.Privacy;

// What is recorded of the values that a program passes and returns.
internal enum RecordedValues
{
    None, // names of parameters and types of exceptions
    Safe, // also numbers, truth values, enumerations, times and GUIDs, types of objects and lengths of texts
    All, // also texts and messages of exceptions, without what looks like a secret
}

internal static class RecordedValuesVariable
{
    internal const string Name = "CORVANE_VALUES";

    // What is not understood records nothing: more than was asked for would be worse than less.
    internal static RecordedValues Read()
    {
        var asked = Environment.GetEnvironmentVariable(Name);
        switch (asked)
        {
            case null or "" or "none":
                return RecordedValues.None;
            case "safe":
                return RecordedValues.Safe;
            case "all":
                return RecordedValues.All;
            default:
                Complaint.Write($"{Name} is '{asked}', which is none of 'none', 'safe' and 'all': no values are recorded");
                return RecordedValues.None;
        }
    }
}
