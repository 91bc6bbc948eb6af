using System;
using System.Globalization;
using System.Text;

namespace Corvane.Instrumentation.Export;

// What came of an attempt to send spans.
internal readonly struct OtlpAnswer
{
    private OtlpAnswer(bool isAccepted, long rejected, bool mayRetry, TimeSpan? retryAfter, string why)
    {
        IsAccepted = isAccepted;
        Rejected = rejected;
        MayRetry = mayRetry;
        RetryAfter = retryAfter;
        Why = why;
    }

    // All but those that are rejected.
    internal bool IsAccepted { get; }

    internal long Rejected { get; }

    internal bool MayRetry { get; }

    internal TimeSpan? RetryAfter { get; }

    internal string Why { get; }

    internal static OtlpAnswer Accepted(long rejected) => new OtlpAnswer(true, rejected, false, null, "");

    internal static OtlpAnswer None(string why) => new OtlpAnswer(false, 0, true, null, why);

    internal static OtlpAnswer Refused(int status, TimeSpan? retryAfter) =>
        new OtlpAnswer(
            false, 0, status is 429 or 502 or 503 or 504, retryAfter,
            $"the end point answered {status.ToString(CultureInfo.InvariantCulture)}");

    // Of an answer that cannot be read, none.
    internal static long RejectedIn(byte[] answer, bool isJson) => Math.Max(0, isJson ? InJson(answer) : InProtobuf(answer));

    // {"partialSuccess":{"rejectedSpans":"3","errorMessage":"..."}}
    private static long InJson(byte[] answer)
    {
        const string Name = "\"rejectedSpans\"";
        var text = Encoding.UTF8.GetString(answer);
        var position = text.IndexOf(Name, StringComparison.Ordinal);
        if (position < 0)
        {
            return 0;
        }
        position += Name.Length;
        while (position < text.Length && text[position] is ' ' or ':' or '"' or '\t' or '\r' or '\n')
        {
            position++;
        }
        var end = position;
        while (end < text.Length && text[end] is >= '0' and <= '9')
        {
            end++;
        }
        return long.TryParse(text.Substring(position, end - position), NumberStyles.None, CultureInfo.InvariantCulture, out var count)
            ? count
            : 0;
    }

    // Field 1 is the message about a partial success, and field 1 in it the number.
    private static long InProtobuf(byte[] answer)
    {
        var position = 0;
        if (!Skip(answer, ref position, 0x0A) || !Number(answer, ref position, out _) || !Skip(answer, ref position, 0x08))
        {
            return 0;
        }
        return Number(answer, ref position, out var count) ? (long)count : 0;
    }

    private static bool Skip(byte[] answer, ref int position, byte expected) =>
        position < answer.Length && answer[position++] == expected;

    private static bool Number(byte[] answer, ref int position, out ulong number)
    {
        number = 0;
        for (var shift = 0; shift < 64 && position < answer.Length; shift += 7)
        {
            var part = answer[position++];
            number |= (ulong)(part & 0x7F) << shift;
            if ((part & 0x80) == 0)
            {
                return true;
            }
        }
        return false;
    }
}
