// Numbers in words, in every culture that has rules of its own.
using System.Globalization;
using Humanizer;

internal static class Numbers
{
    private static readonly string[] cultures =
    [
        "af", "ar", "az", "bg", "bn", "cs", "da", "de", "de-CH", "de-LI", "el", "en", "en-IN", "en-GB", "es", "fa", "fi",
        "fr", "fr-BE", "fr-CH", "he", "hr", "hu", "hy", "id", "is", "it", "ja", "ko", "ku", "lt", "lv", "mt", "nb", "nl",
        "pl", "pt", "pt-BR", "ro", "ru", "sk", "sl", "sr", "sr-Latn", "sv", "ta", "th", "tr", "uk", "uz-Cyrl-UZ",
        "uz-Latn-UZ", "vi", "zh-CN", "zh-Hans", "zh-Hant",
    ];

    private static readonly int[] cardinals = [0, 1, 2, 11, 21, 100, 1999, -48, 1_000_001, 2_123_456_789];
    private static readonly int[] ordinals = [1, 2, 3, 10, 22, 103, 1000];

    public static IEnumerable<string> Run()
    {
        foreach (var name in cultures)
        {
            var culture = CultureInfo.GetCultureInfo(name);
            yield return $"{name} {string.Join("; ", cardinals.Select(n => Words(n, culture)))}";
            yield return $"{name} {string.Join("; ", ordinals.Select(n => OrdinalWords(n, culture)))}";
            yield return $"{name} {string.Join("; ", ordinals.Select(n => LongWords(n, culture)))}";
        }
        foreach (var number in new[] { 1, 4, 9, 14, 40, 90, 400, 1987, 3999 })
        {
            yield return Program.Line(number.ToRoman(), number.ToRoman().FromRoman(), number.ToMetric(),
                (number * 1000.0).ToMetric(MetricNumeralFormats.UseName | MetricNumeralFormats.WithSpace, 2),
                number.Ordinalize(), number.Ordinalize(GrammaticalGender.Neuter));
        }
        yield return Program.Line(1.Millions(), 2.Thousands(), 3.Hundreds(), 4.Tens(),
            1.5.Billions().ToString(CultureInfo.InvariantCulture));
        yield return Program.Line("1k".FromMetric(), "2.5M".FromMetric(),
            "100m".FromMetric().ToString(CultureInfo.InvariantCulture), 0.0012.ToMetric());
        foreach (var degrees in new[] { 0.0, 33, 100, 180, 285, 359.9 })
        {
            yield return Program.Line(degrees.ToHeading(), degrees.ToHeading(HeadingStyle.Full),
                degrees.ToHeadingArrow(), degrees.ToHeading().FromAbbreviatedHeading());
        }
        yield return Program.Failure(() => 4000.ToRoman());
        yield return Program.Failure(() => "IC?".FromRoman());
        yield return Program.Failure(() => "1q".FromMetric());
    }

    private static string Words(int number, CultureInfo culture) => Program.Line(
        Safe(() => number.ToWords(culture)),
        Safe(() => number.ToWords(GrammaticalGender.Feminine, culture)),
        Safe(() => number.ToWords(addAnd: false, culture)));

    private static string OrdinalWords(int number, CultureInfo culture) => Program.Line(
        Safe(() => number.ToOrdinalWords(culture)),
        Safe(() => number.ToOrdinalWords(GrammaticalGender.Feminine, culture)),
        Safe(() => number.Ordinalize(culture)));

    private static string LongWords(int number, CultureInfo culture) => Program.Line(
        Safe(() => number.ToTuple()),
        Safe(() => (number * 1_000_000_007L).ToWords(culture)));

    // Some cultures lack some forms.
    private static string Safe(Func<string> make)
    {
        try
        {
            return make();
        }
        catch (Exception exception) when (exception is NotImplementedException or NotSupportedException or
            ArgumentOutOfRangeException or IndexOutOfRangeException or KeyNotFoundException)
        {
            return exception.GetType().Name;
        }
    }
}
