using System.Text;

namespace Corvane.Sampling.Results;

// Text for an XML file, in an element or in an attribute. No name reorders what stands beside it.
internal static class XmlText
{
    internal static string Escape(string text)
    {
        var escaped = new StringBuilder(text.Length);
        for (var i = 0; i < text.Length; i++)
        {
            switch (text[i])
            {
                case '&':
                    escaped.Append("&amp;");
                    break;
                case '<':
                    escaped.Append("&lt;");
                    break;
                case '>':
                    escaped.Append("&gt;");
                    break;
                case '"':
                    escaped.Append("&quot;");
                    break;
                default:
                    escaped.Append(IsWritable(text, i) ? text[i] : '\uFFFD');
                    break;
            }
        }
        return escaped.ToString();
    }

    // No file may hold the others, escaped or not; line breaks and tabs would not stay what they are.
    private static bool IsWritable(string text, int index) =>
        !char.IsControl(text[index]) && text[index] < '\uFFFE' && !Surrogates.IsLone(text, index) && !IsDirection(text[index]);

    // What makes text of one direction look like one of the other.
    private static bool IsDirection(char character) =>
        character is '\u061C' or '\u200E' or '\u200F' or (>= '\u202A' and <= '\u202E') or (>= '\u2066' and <= '\u2069');
}
