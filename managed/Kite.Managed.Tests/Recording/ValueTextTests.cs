using System;
using System.Globalization;
using System.Text;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class ValueTextTests
{
    private enum Empty : ulong;

    private static string Describe(object? value) => ValueText.AppendValue(new StringBuilder(), value, RecordedValues.All).ToString();

    private static string Describe(Exception? exception) =>
        ValueText.AppendException(new StringBuilder(), exception, RecordedValues.All).ToString();

    [Theory]
    [InlineData(null, "null")]
    [InlineData(true, "true")]
    [InlineData(false, "false")]
    [InlineData((sbyte)-128, "-128")]
    [InlineData((byte)255, "255")]
    [InlineData((short)-32768, "-32768")]
    [InlineData((ushort)65535, "65535")]
    [InlineData(int.MinValue, "-2147483648")]
    [InlineData(uint.MaxValue, "4294967295")]
    [InlineData(long.MinValue, "-9223372036854775808")]
    [InlineData(ulong.MaxValue, "18446744073709551615")]
    [InlineData(0.1, "0.1")]
    [InlineData(1e300, "1E+300")]
    [InlineData(double.NaN, "NaN")]
    [InlineData(1.5f, "1.5")]
    [InlineData('a', "'a'")]
    [InlineData('\'', "'\\''")]
    [InlineData('"', "'\"'")]
    [InlineData('\ud800', "'\\uD800'")]
    [InlineData("", "\"\"")]
    [InlineData("tea", "\"tea\"")]
    [InlineData("a\"b\\c\n\r\t\0\u0001\u2028é", "\"a\\\"b\\\\c\\n\\r\\t\\0\\u0001\\u2028é\"")]
    [InlineData("\u2029\u202a\ufffe", "\"\\u2029\u202a\ufffe\"")]
    [InlineData('\u2028', "'\\u2028'")]
    [InlineData('\u2029', "'\\u2029'")]
    [InlineData("it's", "\"it's\"")]
    [InlineData(DayOfWeek.Friday, "Friday")]
    [InlineData(AttributeTargets.Class | AttributeTargets.Method, "Class | Method")]
    [InlineData((DayOfWeek)77, "77")]
    [InlineData(new[] { 1, 2 }, "{System.Int32[]}")]
    public void AValueIsShownAsInSource(object? value, string text) => Assert.Equal(text, Describe(value));

    [Fact]
    public void OtherValuesAreShown()
    {
        Assert.Equal("1.50", Describe(1.50m));
        Assert.Equal("0x1F", Describe((IntPtr)31));
        Assert.Equal("0xFFFFFFFFFFFFFFFF", Describe(UIntPtr.MaxValue));
        Assert.Equal("0", Describe(default(Empty)));
        Assert.Equal("2024-02-29T13:14:15.0000000Z", Describe(new DateTime(2024, 2, 29, 13, 14, 15, DateTimeKind.Utc)));
        Assert.Equal("2024-02-29T13:14:15.0000000+01:00", Describe(new DateTimeOffset(2024, 2, 29, 13, 14, 15, TimeSpan.FromHours(1))));
        Assert.Equal("1.02:03:04", Describe(new TimeSpan(1, 2, 3, 4)));
        Assert.Equal("00000000-0000-0000-0000-000000000000", Describe(Guid.Empty));
        Assert.Equal("{System.Text.StringBuilder}", Describe(new StringBuilder("text")));
        Assert.Equal("3", Describe((int?)3));
    }

    [Fact]
    public void TheProgramsCultureDoesNotMatter()
    {
        var culture = (CultureInfo)CultureInfo.InvariantCulture.Clone();
        culture.NumberFormat.NegativeSign = "minus ";
        culture.NumberFormat.NumberDecimalSeparator = ",";
        var before = CultureInfo.CurrentCulture;
        CultureInfo.CurrentCulture = culture;
        try
        {
            Assert.Equal("-1", Describe(-1));
            Assert.Equal("-1.5", Describe(-1.5));
            Assert.Equal("-1.5", Describe(-1.5m));
        }
        finally
        {
            CultureInfo.CurrentCulture = before;
        }
    }

    [Fact]
    public void ALongStringIsTrimmedButNotWithinACharacter()
    {
        Assert.Equal($"\"{new string('x', 64)}\"", Describe(new string('x', 64)));
        Assert.Equal($"\"{new string('x', 64)}\"...", Describe(new string('x', 65)));
        Assert.Equal($"\"{new string('x', 62)}\U0001F375\"...", Describe(new string('x', 62) + "\U0001F375y"));
        Assert.Equal($"\"{new string('x', 63)}\"...", Describe(new string('x', 63) + "\U0001F375"));
    }

    [Fact]
    public void AnExceptionIsShownWithItsTypeAndMessage()
    {
        Assert.Equal("System.InvalidOperationException: we are out of \"soup\"\\nand \\ cake",
            Describe(new InvalidOperationException("we are out of \"soup\"\nand \\ cake")));
        Assert.Equal("System.InvalidOperationException", Describe(new InvalidOperationException("")));
        Assert.Equal("unknown", Describe((Exception?)null));
        Assert.Equal($"System.Exception: {new string('x', 200)}", Describe(new Exception(new string('x', 200))));
        Assert.Equal($"System.Exception: {new string('x', 200)}...", Describe(new Exception(new string('x', 201))));
    }

    [Fact]
    public void NothingOfTheProgramIsCalled()
    {
        Assert.Equal("{Kite.Managed.Tests.Hostile}", Describe(new Hostile()));
        Assert.Equal("{Kite.Managed.Tests.HostileValue}", Describe(default(HostileValue)));
        Assert.Equal("Kite.Managed.Tests.HostileException: as made", Describe(new HostileException()));
        Assert.Equal(0, Hostile.Calls);
    }
}
