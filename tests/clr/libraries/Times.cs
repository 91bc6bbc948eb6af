// Dates and durations.
using System.Globalization;
using Humanizer;
using Humanizer.Configuration;
using Humanizer.DateTimeHumanizeStrategy;
using Humanizer.Localisation;

internal static class Times
{
    public static IEnumerable<string> Run()
    {
        var now = new DateTime(2024, 3, 1, 12, 0, 0, DateTimeKind.Utc);
        var spans = new[]
        {
            TimeSpan.Zero, TimeSpan.FromMilliseconds(1), TimeSpan.FromSeconds(1), TimeSpan.FromSeconds(59),
            TimeSpan.FromMinutes(1.5), TimeSpan.FromHours(5), TimeSpan.FromDays(1), TimeSpan.FromDays(6.5), TimeSpan.FromDays(31), TimeSpan.FromDays(366),
            TimeSpan.FromDays(4000), new TimeSpan(16, 3, 2, 1, 999),
        };
        foreach (var span in spans)
        {
            yield return string.Join(" | ", span.Humanize(), span.Humanize(3), span.Humanize(7, true),
                span.Humanize(precision: 2, maxUnit: TimeUnit.Year, minUnit: TimeUnit.Second),
                span.Humanize(3, toWords: true), span.Humanize(2, collectionSeparator: null));
            yield return string.Join(" | ", (now - span).Humanize(utcDate: true, dateToCompareAgainst: now),
                (now + span).Humanize(utcDate: true, dateToCompareAgainst: now),
                new DateTimeOffset(now + span).Humanize(new DateTimeOffset(now)), ((DateTime?)null).Humanize());
        }
        Configurator.DateTimeHumanizeStrategy = new PrecisionDateTimeHumanizeStrategy(.75);
        Configurator.DateTimeOffsetHumanizeStrategy = new PrecisionDateTimeOffsetHumanizeStrategy(.5);
        foreach (var span in spans)
        {
            yield return Program.Line((now + span).Humanize(utcDate: true, dateToCompareAgainst: now),
                new DateTimeOffset(now - span).Humanize(new DateTimeOffset(now)));
        }
        Configurator.DateTimeHumanizeStrategy = new DefaultDateTimeHumanizeStrategy();
        Configurator.DateTimeOffsetHumanizeStrategy = new DefaultDateTimeOffsetHumanizeStrategy();
        string[] cultures = ["de", "fr", "es", "ru", "pt-BR", "ja", "ar"];
        foreach (var culture in cultures.Select(CultureInfo.GetCultureInfo))
        {
            // The package has the texts of one culture only.
            yield return Program.Line(culture.Name, Program.Failure(() => spans[11].Humanize(4, culture)),
                now.Humanize(true, now.AddDays(40), culture));
        }
        foreach (var name in new[] { "en-US", "en-GB", "fr", "es", "de", "lt", "pt" })
        {
            CultureInfo.CurrentCulture = CultureInfo.CurrentUICulture = CultureInfo.GetCultureInfo(name);
            yield return Program.Line(name, now.ToOrdinalWords(), now.ToOrdinalWords(GrammaticalCase.Genitive),
                DateOnly.FromDateTime(now).ToOrdinalWords(), new TimeOnly(13, 45).ToClockNotation(),
                new TimeOnly(4, 7).ToClockNotation(ClockNotationRounding.NearestFiveMinutes));
        }
        CultureInfo.CurrentCulture = CultureInfo.CurrentUICulture = CultureInfo.GetCultureInfo("en-US");
        yield return $"{2.Weeks()} {3.Days()} {4.Hours()} {5.Minutes()} {6.Seconds()} {7.Milliseconds()} {1.5.Days()}";
        yield return Program.Line(In.JanuaryOf(2001).ToString("O"), In.TheYear(2000).ToString("O"),
            now.At(7, 30).ToString("O"), now.AtMidnight().ToString("O"), now.AtNoon().ToString("O"), now.In(1999).ToString("O"));
        yield return $"{TimeUnit.Day.ToSymbol()} {TimeUnit.Millisecond.ToSymbol()} {TimeUnit.Year.ToSymbol()}";
    }
}

internal static class Units
{
    public static IEnumerable<string> Run()
    {
        foreach (var size in new[] { 0.Bits(), 7.Bits(), 1.Bytes(), 1023.Bytes(), 1.5.Kilobytes(), 3.Megabytes(),
            2.25.Gigabytes(), 5.Terabytes() })
        {
            yield return string.Join(" | ", size.Humanize(), size.Humanize("0.00 KB"), size.ToFullWords(),
                size.LargestWholeNumberSymbol, size.ToString("#.# MB", CultureInfo.InvariantCulture),
                size.Add(1.Kilobytes()).Bits, (size - 1.Bytes()).Bytes.ToString(CultureInfo.InvariantCulture),
                size.Per(1.5.Seconds()).Humanize(), size.Per(1.Minutes()).Humanize(TimeUnit.Hour));
        }
        foreach (var text in new[] { "1.5 KB", "7b", "3 GB", "2TB", "12 B", "nonsense", "", "1.5b", "1 ZB" })
        {
            yield return Program.Line(Humanizer.Bytes.ByteSize.TryParse(text, CultureInfo.InvariantCulture,
                out var size), size.Bits);
        }
        yield return Program.Line(1.Kilobytes() < 1.Megabytes(), 1.Kilobytes() == 1024.Bytes(),
            1.Kilobytes().CompareTo((object)2.Bytes()), 1.Kilobytes().Equals((object)1), -1.Megabytes(),
            1.Megabytes().GetHashCode() == 1024.Kilobytes().GetHashCode());
        yield return Program.Failure(() => Humanizer.Bytes.ByteSize.Parse("x"));
    }
}
