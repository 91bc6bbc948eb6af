using System.IO;
using System.Linq;
using System.Xml.Linq;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Results;

public class DifferenceTests
{
    private static readonly XNamespace svg = "http://www.w3.org/2000/svg";

    private static string Draw(Profiles now, string before)
    {
        using var writer = new StringWriter { NewLine = "\n" };
        now.ToProfile().WriteDifference(writer, "shop", new StringReader(before));
        return writer.ToString();
    }

    // Each box with its figures, its part of the width and its colour.
    private static string[] Boxes(string drawing) =>
    [
        .. XDocument.Parse(drawing).Root!.Elements(svg + "svg").Single().Elements(svg + "svg").Select(box =>
            $"{box.Element(svg + "title")!.Value.Replace("\n", ": ")}; {box.Attribute("width")!.Value} {box.Element(svg + "rect")!.Attribute("fill")!.Value}"),
    ];

    [Fact]
    public void MoreIsRedAndLessIsBlue() => Assert.Equal(
        [
            "all: now 100.0 % of what runs, before 100.0 %; 100% #dfe3e8",
            "main: now 100.0 % of what runs, before 100.0 %; 100% #dfe3e8",
            "A.Main: now 100.0 % of what runs, before 100.0 %; 100% #dfe3e8",
            "B.Gone: now 0.0 % of what runs, before 50.0 %; 31.25% hsl(212,75%,60%)",
            "B.Less: now 20.0 % of what runs, before 30.0 %; 18.75% hsl(212,75%,79%)",
            "B.More: now 80.0 % of what runs, before 20.0 %; 50% hsl(6,75%,67%)",
        ],
        Boxes(Draw(
            new Profiles().Thread(1, "main", "A.Main|B.More", "A.Main|B.More", "A.Main|B.Less", "A.Main|B.More", "A.Main|B.More", "~A.Main|B.Wait"),
            "main;A.Main;B.Gone 50\nmain;A.Main;B.Less 30\nmain;A.Main;B.More 20\nmain;A.Main;B.Wait;(waiting) 1000\n")).Where(box => !box.StartsWith("B.Wait")));

    [Fact]
    public void AProfileDoesNotDifferFromItself()
    {
        var profiles = new Profiles().Thread(1, "main", "A|B", "A|C;x", "~A|C").Thread(77, null, "A|B");
        using var folded = new StringWriter { NewLine = "\n" };
        profiles.ToProfile().WriteFolded(folded);
        var boxes = Boxes(Draw(profiles, folded.ToString()));
        Assert.True(boxes.Length >= 6);
        Assert.All(boxes, box => Assert.EndsWith(" #dfe3e8", box));
    }

    [Fact]
    public void ThreadsWithoutNamesAreOne() => Assert.Equal(
        ["all", "thread", "A"],
        Boxes(Draw(new Profiles().Thread(1, null, "A").Thread(2, null, "A"), "thread 12;A 5\nthread 13;A 6\n")).Select(box => box.Split(':')[0]));

    [Theory]
    [InlineData("")]
    [InlineData("main;A;(waiting) 7\n")]
    public void BeforeMayBeEmpty(string before) =>
        Assert.Contains("main: now 100.0 % of what runs, before 0.0 %; 100% hsl(6,75%,60%)", Boxes(Draw(new Profiles().Thread(1, "main", "A"), before)));

    [Theory]
    [InlineData("<svg/>")]
    [InlineData("main;A x")]
    [InlineData(" 1")]
    [InlineData("main;A -1")]
    public void WhatIsNoProfileIsRefused(string before) => Assert.StartsWith(
        $"\"{before}\" is no folded stack", Assert.Throws<InvalidDataException>(() => Draw(new Profiles().Thread(1, "main", "A"), before)).Message);

    [Fact]
    public void StacksMayBeDeep()
    {
        var deep = string.Join(';', Enumerable.Repeat("R", 10_000));
        Assert.Equal(501, Boxes(Draw(new Profiles().Thread(1, "main", "A"), $"main;{deep} 1\n")).Length - 1);
    }
}
