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

    internal static bool IsSecret(string name)
    {
        var letters = new StringBuilder(name.Length);
        foreach (var character in name)
        {
            if (char.IsLetterOrDigit(character))
            {
                letters.Append(character);
            }
        }
        var plain = letters.ToString();
        return Array.Exists(words, word => plain.IndexOf(word, StringComparison.OrdinalIgnoreCase) >= 0);
    }
}
