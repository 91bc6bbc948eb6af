using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Xml.Linq;
using Corvane.Sampling;
using Corvane.Sampling.Results;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Results;

public class FlameGraphTests
{
    private static readonly XNamespace svg = "http://www.w3.org/2000/svg";

    private static string Draw(Profiles profiles, string title = "shop", bool byThread = true)
    {
        using var writer = new StringWriter { NewLine = "\n" };
        profiles.ToProfile().WriteFlameGraph(writer, title, byThread);
        return writer.ToString();
    }

    private static XElement[] Boxes(string drawing) =>
        [.. Part(drawing, "boxes").Elements(svg + "svg")];

    private static XElement Part(string drawing, string id) =>
        XDocument.Parse(drawing).Root!.Elements(svg + "svg").Single(part => part.Attribute("id")!.Value == id);

    private static string Name(XElement box) => box.Element(svg + "title")!.Value.Split('\n')[0];

    private static IEnumerable<string> Notes(string drawing) =>
        XDocument.Parse(drawing).Root!.Elements(svg + "text").Select(text => text.Value);

    private static Profiles Shop() => new Profiles().Thread(7, "main",
        "Shop.Main", "Shop.Main|Shop.Pay", "Shop.Main|Shop.Pay", "Shop.Main|Shop.Pay|System.Math.Sqrt", "Shop.Main|Shop.Add");

    [Fact]
    public void ABoxIsAsWideAsItsSamplesAndBelowItsCaller()
    {
        var drawing = Draw(Shop());
        const string First = "<svg id=\"boxes\" x=\"1%\" y=\"78\" width=\"98%\" height=\"95\">\n";
        var begin = drawing.IndexOf(First, StringComparison.Ordinal) + First.Length;
        Assert.Equal(
            """
            <svg x="0%" y="0" width="100%" height="18" data-running="0 5" data-all="0 5"><title>all
            5 samples running, 100.0 %</title><rect width="100%" height="100%" fill="#d5d9de"/><text x="4" y="13">all</text></svg>
            <svg x="0%" y="19" width="100%" height="18" data-running="0 5" data-all="0 5"><title>main
            5 samples running, 100.0 %</title><rect width="100%" height="100%" fill="#c3cad3"/><text x="4" y="13">main</text></svg>
            <svg x="0%" y="38" width="100%" height="18" data-running="0 5" data-all="0 5"><title>Shop.Main
            5 samples running, 100.0 %</title><rect width="100%" height="100%" fill="hsl(173,42%,62%)"/><text x="4" y="13">Shop.Main</text></svg>
            <svg x="0%" y="57" width="20%" height="18" data-running="0 1" data-all="0 1"><title>Shop.Add
            1 sample running, 20.0 %</title><rect width="100%" height="100%" fill="hsl(173,42%,62%)"/><text x="4" y="13">Shop.Add</text></svg>
            <svg x="20%" y="57" width="60%" height="18" data-running="1 3" data-all="1 3"><title>Shop.Pay
            3 samples running, 60.0 %</title><rect width="100%" height="100%" fill="hsl(173,48%,68%)"/><text x="4" y="13">Shop.Pay</text></svg>
            <svg x="20%" y="76" width="20%" height="18" data-running="1 1" data-all="1 1"><title>System.Math.Sqrt
            1 sample running, 20.0 %</title><rect width="100%" height="100%" fill="hsl(231,30%,82%)"/><text x="4" y="13">Math.Sqrt</text></svg>
            </svg>

            """,
            drawing[begin..(drawing.IndexOf("\n</svg>\n", begin, StringComparison.Ordinal) + 8)]);
    }

    [Fact]
    public void ItIsOneFileWithAllThatItNeeds()
    {
        var drawing = Draw(Shop(), "shop-12");
        var root = XDocument.Parse(drawing).Root!;
        Assert.Equal("shop-12", root.Element(svg + "title")!.Value);
        Assert.Equal("100%", root.Attribute("width")!.Value);
        Assert.Equal("269", root.Attribute("height")!.Value); // 78 above, five rows of 19, 30 below; 66 for a thread over time
        Assert.Equal(
            [
                "shop-12",
                "1 thread every 10 ms: 0 snapshots in 0.0 s; the sampler was busy 0.0 % of the time, no thread was stopped for more than " +
                    "0.0 % of the run; that is too short to say anything: 5 samples in all",
                "",
            ],
            Notes(drawing));
        Assert.Contains("#boxes", root.Element(svg + "style")!.Value);
        Assert.Contains("addEventListener(\"keydown\"", root.Element(svg + "script")!.Value);
        // But for the names of formats it names no place in the network.
        Assert.Equal(["http://www.w3.org/2000/svg", "http://www.w3.org/1999/xhtml"],
            drawing.Split('"').Where(text => text.Contains("//") && text.Contains(':') && !text.Contains(' ')).Distinct());
        Assert.DoesNotContain("href", drawing);
        Assert.DoesNotContain("url(", drawing);
    }

    [Fact]
    public void TheSameProfileGivesTheSameFileInEveryCulture()
    {
        var before = CultureInfo.CurrentCulture;
        var comma = (CultureInfo)CultureInfo.InvariantCulture.Clone();
        comma.NumberFormat = new NumberFormatInfo { NumberDecimalSeparator = ",", NumberGroupSeparator = ".", NegativeSign = "~" };
        var drawing = Draw(Shop());
        try
        {
            CultureInfo.CurrentCulture = comma;
            Assert.Equal(drawing, Draw(Shop()));
        }
        finally
        {
            CultureInfo.CurrentCulture = before;
        }
    }

    [Fact]
    public void TextIsEscaped()
    {
        const string Name = "<script>alert(1)</script> & \"x\" ]]>";
        var drawing = Draw(new Profiles().Thread(7, "<t>", Name, "a\nb\u0001\uffff\ud800"), "a<b>&\"c\"");
        var boxes = Boxes(drawing);
        Assert.Equal(["all", "<t>", Name, "a\ufffdb\ufffd\ufffd\ufffd"], boxes.Select(FlameGraphTests.Name));
        Assert.Equal(Name, boxes[2].Element(svg + "text")!.Value);
        Assert.Equal("a<b>&\"c\"", Notes(drawing).First());
    }

    // It is there for the drawing with all samples.
    [Fact]
    public void WaitingIsNotShownAtFirst()
    {
        var drawing = Draw(new Profiles().Thread(7, "t", "A.Main", "A.Main|B.Work", "~A.Main|B.Wait", "~A.Main|B.Wait"));
        Assert.Equal(
            [
                ("all", "0%", "100%", "0 2", "0 4", null),
                ("t", "0%", "100%", "0 2", "0 4", null),
                ("A.Main", "0%", "100%", "0 2", "0 4", null),
                ("B.Wait", "0%", "0%", "0 0", "0 2", "none"),
                ("B.Work", "0%", "50%", "0 1", "2 1", null),
            ],
            Boxes(drawing).Select(box => (Name(box), box.Attribute("x")!.Value, box.Attribute("width")!.Value,
                box.Attribute("data-running")!.Value, box.Attribute("data-all")!.Value, box.Attribute("display")?.Value)));
        Assert.Equal(
            ["2 samples running, 100.0 %; 2 samples waiting, 100.0 %", "2 samples waiting, 100.0 %", "1 sample running, 50.0 %"],
            Boxes(drawing).Where((_, i) => i is 2 or 3 or 4).Select(box => box.Element(svg + "title")!.Value.Split('\n')[1]));
    }

    [Fact]
    public void WaitingIsShownWhereThereIsNothingElse() => Assert.Equal(
        [("all", "100%"), ("t", "100%"), ("A.Main", "50%"), ("B.Main", "50%")],
        Boxes(Draw(new Profiles().Thread(7, "t", "~A.Main", "~B.Main"))).Select(box => (Name(box), box.Attribute("width")!.Value)));

    private static (string Name, string Waited, string Ran)[] Lanes(string drawing) =>
    [
        .. Part(drawing, "timeline").Elements(svg + "svg").Where(lane => lane.Attribute("class")?.Value == "lane").Select(lane => (
            lane.Element(svg + "title")!.Value,
            lane.Elements(svg + "path").Single(path => path.Attribute("class")!.Value == "waited").Attribute("d")!.Value,
            lane.Elements(svg + "path").Single(path => path.Attribute("class")!.Value == "ran").Attribute("d")!.Value)),
    ];

    [Fact]
    public void ThreadsAreShownOverTime()
    {
        var profiles = new Profiles()
            .Thread(1, "<idle>", "~A", "~A", "~A", "~A")
            .Thread(2, "main", "A", "A|B", "~A", null)
            .ThreadAt(30_000, 3, "late", "A")
            .Thread(4, "native", "", "");
        profiles.Cost.Duration = TimeSpan.FromMilliseconds(40);
        profiles.Cost.Rounds = 4;
        Assert.Equal(
            [
                ("main\nran 0.02 s, waited 0.01 s", "M240 1V0.85H360V1z", "M0 1V0H240V1z"),
                ("late\nran 0.01 s, waited 0.00 s", "", "M360 1V0H480V1z"),
                ("<idle>\nran 0.00 s, waited 0.04 s", "M0 1V0.85H480V1z", ""),
            ],
            Lanes(Draw(profiles)));
    }

    // A sixth of a second in each twentieth of the picture.
    [Fact]
    public void AMomentIsAsHighAsItsPart()
    {
        var samples = Enumerable.Range(0, 4800).Select(i => i % 10 < 3 ? "A" : "~A").ToArray();
        var profiles = new Profiles().Thread(1, "t", samples);
        profiles.Cost.Duration = TimeSpan.FromSeconds(48);
        profiles.Cost.Rounds = 4800;
        Assert.Equal([("t\nran 14.40 s, waited 33.60 s", "M0 1V0.85H480V1z", "M0 1V0.7H480V1z")], Lanes(Draw(profiles)));
    }

    [Fact]
    public void CollectionsAreMarked()
    {
        var profile = new Profiles { Cost = { Duration = TimeSpan.FromMilliseconds(40), Rounds = 4 } }
            .Thread(1, "t", "A", "A", "A", "A").ToProfile();
        profile.Collections = [new GarbageCollections(10_000, 3, 0), new GarbageCollections(35_000, 2, 1)];
        using var writer = new StringWriter { NewLine = "\n" };
        profile.WriteFlameGraph(writer, "shop");
        var timeline = Part(writer.ToString(), "timeline");
        Assert.Equal("M120 0V1M420 0V1", timeline.Descendants(svg + "path").Single(path => path.Attribute("class")!.Value == "collected").Attribute("d")!.Value);
        Assert.Contains("Garbage collections: 5, of them 1 of everything.", timeline.Elements(svg + "text").Select(text => text.Value));
    }

    [Fact]
    public void OfManyThreadsThoseThatRanMostHaveLanes()
    {
        var profiles = new Profiles();
        for (var id = 1U; id <= 1000; id++)
        {
            profiles.Thread(id, $"t{id}", id % 100 == 0 ? ["A", "A"] : ["~A", "~A"]);
        }
        var drawing = Draw(profiles);
        var lanes = Lanes(drawing);
        Assert.Equal(60, lanes.Length);
        Assert.All(lanes.Take(10), lane => Assert.NotEqual("", lane.Ran));
        Assert.Contains("Threads that are left out: 940, those that ran least.", Part(drawing, "timeline").Value);
    }

    [Fact]
    public void ThreadsMayBeTogether()
    {
        var profiles = new Profiles().Thread(1, "one", "A.Run", "A.Run").Thread(2, "two", "A.Run", "B.Run");
        Assert.Equal(["all", "one", "A.Run", "two", "A.Run", "B.Run"], Boxes(Draw(profiles)).Select(Name));
        Assert.Equal(["all", "A.Run", "B.Run"], Boxes(Draw(profiles, byThread: false)).Select(Name));
    }

    [Fact]
    public void NarrowBoxesAreLeftOutAndCounted()
    {
        // 1 of 2,000 is 0.05 %, 1 of 2,001 is less.
        string[] many = [.. Enumerable.Repeat("A.Main", 1999), "A.Main|B.Rare|C.Rarer"];
        Assert.Equal(["all", "t", "A.Main", "B.Rare", "C.Rarer"], Boxes(Draw(new Profiles().Thread(1, "t", many))).Select(Name));
        var drawing = Draw(new Profiles().Thread(1, "t", [.. many, "A.Main"]));
        Assert.Equal(["all", "t", "A.Main"], Boxes(drawing).Select(Name));
        Assert.Equal("Left out: 2 boxes with less than 0.05 % of the samples.", Notes(drawing).Last());
    }

    [Fact]
    public void ABoxWithoutRoomHasNoLabel()
    {
        var boxes = Boxes(Draw(new Profiles().Thread(1, "t", [.. Enumerable.Repeat("A.Main", 99), "A.Main|B.Rare"])));
        Assert.Equal("B.Rare", Name(boxes[3]));
        Assert.Null(boxes[2].Element(svg + "text")!.Attribute("display"));
        Assert.Equal("none", boxes[3].Element(svg + "text")!.Attribute("display")!.Value);
    }

    [Theory]
    [InlineData(12, null)]
    [InlineData(11, "none")]
    public void ABoxOfMoreThanOneInAHundredHasRoom(int samples, string? display)
    {
        var boxes = Boxes(Draw(new Profiles().Thread(1, "t",
            [.. Enumerable.Repeat("A.Main", 1000 - samples), .. Enumerable.Repeat("A.Main|B.Rare", samples)])));
        Assert.Equal(display, boxes[3].Element(svg + "text")!.Attribute("display")?.Value);
    }

    [Theory]
    [InlineData(1, "1 sample running, 100.0 %")]
    [InlineData(2, "2 samples running, 100.0 %")]
    [InlineData(1200, "1,200 samples running, 100.0 %")]
    public void ABoxSaysHowManySamplesItHas(int samples, string text) =>
        Assert.Equal(text, Boxes(Draw(new Profiles().Thread(1, "t", [.. Enumerable.Repeat("A.Main", samples)])))[0]
            .Element(svg + "title")!.Value.Split('\n')[1]);

    [Theory]
    [InlineData("Namespace.Inner.Type.Method", "Type.Method")]
    [InlineData("Namespace.Type..ctor", "Type..ctor")]
    [InlineData("Type..cctor", "Type..cctor")]
    [InlineData("Type.Method", "Type.Method")]
    [InlineData("Method", "Method")]
    [InlineData("(no name)", "(no name)")]
    [InlineData(".ctor", ".ctor")]
    public void ALabelHasNoNamespace(string name, string label) =>
        Assert.Equal(label, Boxes(Draw(new Profiles().Thread(1, "a.b.c", name)))[2].Element(svg + "text")!.Value);

    [Fact]
    public void AThreadIsLabelledInFull() =>
        Assert.Equal("a.b.c", Boxes(Draw(new Profiles().Thread(1, "a.b.c", "A.B.C")))[1].Element(svg + "text")!.Value);

    [Fact]
    public void DeepBoxesAreLeftOutAndCounted()
    {
        var drawing = Draw(new Profiles().Thread(1, "t", string.Join('|', Enumerable.Repeat("R.R", 20_000))));
        Assert.Equal(501, Boxes(drawing).Length);
        Assert.Equal("Left out: 19,501 boxes deeper than 500.", Notes(drawing).Last());
    }

    [Fact]
    public void AnEmptyProfileSaysSo()
    {
        foreach (var profiles in new[] { new Profiles(), new Profiles().Thread(1, "idle", "", null) })
        {
            var drawing = Draw(profiles);
            Assert.Empty(Boxes(drawing));
            Assert.Equal("There are no samples of managed code.", Notes(drawing).Last());
        }
    }

    private static SampledFunction Function(string name, bool? isPlatform = null)
    {
        var function = new SampledFunction(1);
        function.Resolve(null, name);
        function.Place(null, isPlatform);
        return function;
    }

    [Theory]
    [InlineData("System.Shop.Add", false, "hsl(1")]
    [InlineData("Shop.Cart.Add", true, "hsl(2")]
    public void TheOriginDecidesWhereItIsKnown(string name, bool isPlatform, string colour) =>
        Assert.StartsWith(colour, FunctionColor.Of(new StackTree().Root.Child(Function(name, isPlatform))));

    // By the name alone: it is the same in every picture.
    [Theory]
    [InlineData("Shop.Cart.Add", "hsl(189,52%,72%)")]
    [InlineData("Shop.Cart.Remove", "hsl(189,43%,63%)")]
    [InlineData("Shop.Cart..ctor", "hsl(189,45%,65%)")]
    [InlineData("Shop.Stock.Add", "hsl(150,43%,63%)")]
    [InlineData("System.Math.Sqrt", "hsl(231,30%,82%)")]
    [InlineData("Microsoft.Win32.Registry.GetValue", "hsl(240,31%,82%)")]
    [InlineData("Internal.Console.Write", "hsl(229,35%,84%)")]
    [InlineData("Interop.Sys.Read", "hsl(253,32%,83%)")]
    [InlineData("SystemShop.Cart.Add", "hsl(166,52%,72%)")]
    [InlineData("(no name)", "hsl(159,44%,64%)")]
    public void AColourIsThatOfItsName(string name, string colour) =>
        Assert.Equal(colour, FunctionColor.Of(new StackTree().Root.Child(Function(name))));

    [Fact]
    public void WhatEndedTheSamplingIsEscaped()
    {
        var profile = new Profile(
            TimeSpan.FromMilliseconds(10), [], new SamplingCost(), new FormatException("<a> & \"b\"\u0001\ufffe\uffff\u2028\t"));
        using var writer = new StringWriter { NewLine = "\n" };
        profile.WriteFlameGraph(writer, "shop");
        Assert.EndsWith("; ended early by System.FormatException: <a> & \"b\"\ufffd\ufffd\ufffd\u2028\ufffd",
            Notes(writer.ToString()).ElementAt(1));
    }
}
