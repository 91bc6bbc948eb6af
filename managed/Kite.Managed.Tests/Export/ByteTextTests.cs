using System;
using System.Linq;
using System.Text;
using System.Text.Json;
using Corvane.Instrumentation.Export;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class ByteTextTests
{
    private static string Text(ByteText text) => Encoding.UTF8.GetString(text.ToArray());

    [Fact]
    public void EveryCharacterIsReadBackFromJsonAndUtf8()
    {
        foreach (var point in Enumerable.Range(0, 0x11000).Where(point => point is < 0xD800 or > 0xDFFF))
        {
            var character = char.ConvertFromUtf32(point);
            Assert.Equal(character, JsonSerializer.Deserialize<string>(new ByteText().Json(character).ToArray()));
            Assert.Equal(Encoding.UTF8.GetBytes(character), new ByteText().Utf8(character).ToArray());
        }
    }

    [Fact]
    public void HalvesOfCharactersAreReplacedAsThePlatformDoes()
    {
        foreach (var text in new[] { "\uD800", "\uDC00", "a\uD83Db", "\uDE00\uD83D", "\uD83D\uD83D\uDE00" })
        {
            Assert.Equal(Encoding.UTF8.GetBytes(text), new ByteText().Utf8(text).ToArray());
        }
    }

    [Theory]
    [InlineData(0)]
    [InlineData(-1)]
    [InlineData(1234567890)]
    [InlineData(long.MaxValue)]
    [InlineData(long.MinValue)]
    public void NumbersAreDecimal(long number) => Assert.Equal(number.ToString(), Text(new ByteText().Decimal(number)));

    [Theory]
    [InlineData(double.NaN, "\"NaN\"")]
    [InlineData(double.PositiveInfinity, "\"Infinity\"")]
    [InlineData(double.NegativeInfinity, "\"-Infinity\"")]
    [InlineData(-0.5, "-0.5")]
    [InlineData(1e300, "1E+300")]
    public void NumbersThatJsonLacksAreTexts(double number, string json) => Assert.Equal(json, Text(new ByteText().Json(number)));

    [Fact]
    public void ItGrowsAndBeginsAnew()
    {
        var text = new ByteText();
        for (var round = 0; round < 2; round++)
        {
            for (var part = 0; part < 3000; part++)
            {
                text.Ascii("abcdef").Hex(255, 2).Decimal(7, 3);
            }
            Assert.Equal(string.Concat(Enumerable.Repeat("abcdefff007", 3000)), Text(text));
            text.Clear();
            Assert.Empty(text.ToArray());
        }
    }
}
