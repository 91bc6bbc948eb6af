using System.Text;

namespace Corvane.Sampling.Results;

// Text for an XML file, in an element or in an attribute.
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
        !char.IsControl(text[index]) && text[index] < '\uFFFE' && !Surrogates.IsLone(text, index);
}
