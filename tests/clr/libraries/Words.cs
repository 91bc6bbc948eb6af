// Strings: casing, inflection, truncation.
using System.ComponentModel;
using System.Globalization;
using Humanizer;

internal static class Words
{
    private enum Level
    {
        [Description("not at all")]
        None,
        SomeOfIt,
        EVERYTHING,
    }

    public static IEnumerable<string> Run()
    {
        foreach (var text in new[] { "PascalCaseInputString", "Underscored_input_string", "HTMLPage",
            "with spaces here", "MixedUP-case_1st", "", "X" })
        {
            yield return string.Join(" | ", text.Humanize(), text.Humanize(LetterCasing.Title),
                text.Humanize(LetterCasing.AllCaps), text.Titleize(),
                text.Pascalize(), text.Camelize(), text.Underscore(), text.Dasherize(), text.Hyphenate(),
                text.Kebaberize(), text.Dehumanize(),
                text.Transform(To.LowerCase, To.SentenceCase), text.ApplyCase(LetterCasing.Sentence));
        }
        foreach (var word in new[] { "man", "box", "child", "analysis", "Index", "money", "fox", "quiz", "status",
            "datum", "series", "person", "cactus", "wolf", "tooth", "campus" })
        {
            yield return Program.Line(word, word.Pluralize(false), word.Pluralize(false).Singularize(false),
                word.ToQuantity(2), word.ToQuantity(1, ShowQuantityAs.Words),
                word.ToQuantity(1234, "N0", CultureInfo.InvariantCulture));
        }
        const string Long = "Long text to truncate in several ways";
        foreach (var length in new[] { 0, 1, 5, 10, 60 })
        {
            yield return string.Join(" | ", Long.Truncate(length), Long.Truncate(length, "--"),
                Long.Truncate(length, Truncator.FixedNumberOfWords),
                Long.Truncate(length, Truncator.FixedNumberOfCharacters, TruncateFrom.Left),
                Long.Truncate(length, "...", Truncator.FixedNumberOfWords, TruncateFrom.Left));
        }
        foreach (var level in Enum.GetValues<Level>())
        {
            yield return Program.Line(level.Humanize(), level.Humanize(LetterCasing.Title),
                level.Humanize().DehumanizeTo<Level>());
        }
        yield return Program.Failure(() => "no such level".DehumanizeTo<Level>());
        yield return $"{"no such level".DehumanizeTo(typeof(Level), OnNoMatch.ReturnsNull) is null}";
        var list = new[] { "a", "b", "c" };
        yield return string.Join(" / ", list.Humanize(), list.Humanize("or"), list.Humanize(x => x.ToUpperInvariant()),
            list.Take(2).Humanize(), list.Take(1).Humanize(), list.Take(0).Humanize());
        foreach (var culture in new[] { "de", "es", "fr", "it", "nb", "ru", "ro", "sv", "pt", "nl" })
        {
            CultureInfo.CurrentUICulture = CultureInfo.GetCultureInfo(culture);
            yield return $"{culture} {list.Humanize()}";
        }
        CultureInfo.CurrentUICulture = CultureInfo.GetCultureInfo("en-US");
        yield return "{0} of {1}".FormatWith(1, "two");
        Humanizer.Inflections.Vocabularies.Default.AddIrregular("foot's", "feet's");
        Humanizer.Inflections.Vocabularies.Default.AddUncountable("plankton");
        Humanizer.Inflections.Vocabularies.Default.AddPlural("bus$", "busses");
        yield return $"{"plankton".Pluralize()} {"bus".Pluralize()} {"foot's".Pluralize()}";
    }
}
