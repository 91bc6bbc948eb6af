using System;
using System.Text;

namespace Corvane.Instrumentation.Privacy;

// Names that say that a value is confidential: of parameters, methods and types, and of the pairs in texts. It
// is enough that a word is part of the name, in any case and with any separators: a "monkey" too much is hidden
// rather than an "apikey" shown.
internal static class SecretNames
{
    private static readonly string[] words =
    [
        "password", "passwd", "passphrase", "pwd", "secret", "token", "key", "credential", "authorization", "cookie",
        "connectionstring", "connstr",
    ];

    // Looks at no more than `most` characters.
    internal static bool IsSecret(string name, int most = int.MaxValue)
    {
        var letters = new StringBuilder(Math.Min(name.Length, most));
        for (var position = 0; position < name.Length && position < most; position++)
        {
            if (char.IsLetterOrDigit(name[position]))
            {
                letters.Append(name[position]);
            }
        }
        var plain = letters.ToString();
        return Array.Exists(words, word => plain.IndexOf(word, StringComparison.OrdinalIgnoreCase) >= 0);
    }
}
