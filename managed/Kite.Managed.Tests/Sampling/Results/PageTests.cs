// The page of a flame graph in a browser: what it shows, and what it makes of keys and the mouse.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text.Json;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Results;

public sealed class PageTests : IDisposable
{
    private const string Tools = """
        const report = [];
        window.addEventListener("error", (error) => report.push(["error", error.message]));
        const key = (key) => window.dispatchEvent(new KeyboardEvent("keydown", { key }));
        const boxes = () => [...document.querySelectorAll("#boxes > svg")];
        const named = (name) => boxes().find((box) => box.querySelector("title").textContent.startsWith(name + "\n"));
        const click = (element) => element.dispatchEvent(new MouseEvent("click", { bubbles: true }));
        const note = (what) => report.push([what, ...boxes().filter((box) => box.getAttribute("display") !== "none")
            .map((box) => `${box.querySelector("title").textContent.split("\n")[0]} ${Math.round(parseFloat(box.getAttribute("x")))}+${Math.round(parseFloat(box.getAttribute("width")))}`)]);
        const text = (id) => document.getElementById(id).textContent;
        const isShown = (id) => document.getElementById(id).getAttribute("display") !== "none";
        """;

    private readonly TemporaryFolder folder = new();

    public void Dispose() => folder.Dispose();

    private static Profiles Shop() => new Profiles().Thread(7, "main",
        "Shop.Main|Shop.Pay", "Shop.Main|Shop.Pay", "Shop.Main|Shop.Pay|System.Math.Sqrt", "Shop.Main|Shop.Add",
        "~Shop.Main|Shop.Wait", "~Shop.Main|Shop.Wait", "~Shop.Main|Shop.Wait", "~Shop.Main|Shop.Wait");

    // What the steps report, in a page that is so wide. No process of the browser has more than so much of the processor.
    private List<string[]> Open(Profiles profiles, string steps, int width = 1200, int seconds = 60) =>
        Open(writer => profiles.ToProfile().WriteFlameGraph(writer, "shop"), steps, width, seconds);

    private List<string[]> Open(Action<TextWriter> write, string steps, int width = 1200, int seconds = 60)
    {
        using (var writer = new StreamWriter(folder["page.svg"]) { NewLine = "\n" })
        {
            write(writer);
        }
        var page = File.ReadAllText(folder["page.svg"]);
        var end = page.LastIndexOf("</svg>", StringComparison.Ordinal);
        File.WriteAllText(folder["page.svg"],
            $"{page[..end]}<script><![CDATA[{Tools}{steps}\nconst result = document.createElementNS(\"http://www.w3.org/2000/svg\", \"desc\");" +
            "result.textContent = `REPORT${btoa(unescape(encodeURIComponent(JSON.stringify(report))))}|`; document.documentElement.append(result);]]></script></svg>");
        using var browser = Process.Start(new ProcessStartInfo("bash",
            [
                "-c", "ulimit -t $0 && exec chromium-headless-shell \"$@\"", $"{seconds}",
                "--no-sandbox", "--disable-gpu", $"--window-size={width},800", "--dump-dom", "file://" + folder["page.svg"],
            ])
        {
            RedirectStandardOutput = true,
            RedirectStandardError = true,
        })!;
        var errors = browser.StandardError.ReadToEndAsync();
        var output = browser.StandardOutput.ReadToEnd();
        browser.WaitForExit();
        var parts = output[Math.Max(0, output.LastIndexOf("<desc", StringComparison.Ordinal))..].Split(["REPORT", "|"], StringSplitOptions.None);
        Assert.True(parts.Length > 2, errors.Result);
        var report = parts[1];
        return JsonSerializer.Deserialize<List<string[]>>(Convert.FromBase64String(report))!;
    }

    [Fact]
    public void WaitingIsHiddenUntilItIsAskedFor()
    {
        string[] running = ["all 0+100", "main 0+100", "Shop.Main 0+100", "Shop.Add 0+25", "Shop.Pay 25+75", "System.Math.Sqrt 25+25"];
        string[] all = ["all 0+100", "main 0+100", "Shop.Main 0+100", "Shop.Add 0+13", "Shop.Pay 13+38", "System.Math.Sqrt 13+13", "Shop.Wait 50+50"];
        var report = Open(Shop(), """
            note("first"); report.push(["button", text("waiting")]);
            key("w"); note("w"); report.push(["button", text("waiting")]);
            click(document.getElementById("waiting")); note("button");
            """);
        Assert.Equal(
            [
                ["first", .. running], ["button", "show waiting (50.0 % of all samples)"],
                ["w", .. all], ["button", "hide waiting (50.0 % of all samples)"], ["button", .. running],
            ],
            report);
    }

    [Fact]
    public void ABoxGetsTheWholeWidth()
    {
        string[] zoomed = ["all 0+100", "main 0+100", "Shop.Main 0+100", "Shop.Pay 0+100", "System.Math.Sqrt 0+33"];
        Assert.Equal(
            [
                ["mouse", .. zoomed], ["back", "6"], ["keys", .. zoomed],
                ["details", "Shop.Pay: 3 samples running, 75.0 %, 100.0 % of what is shown"],
            ],
            Open(Shop(), """
                click(named("Shop.Pay").querySelector("rect")); note("mouse");
                key("Escape"); report.push(["back", String(boxes().filter((box) => box.getAttribute("display") !== "none").length)]);
                for (const one of ["ArrowDown", "ArrowDown", "ArrowDown", "ArrowDown", "ArrowLeft", "ArrowRight", "Enter"]) { key(one); }
                note("keys"); report.push(["details", text("details")]);
                """));
    }

    [Fact]
    public void ASearchCountsWhatIsShown() => Assert.Equal(
        [["matched", "75.0 % matched"], ["matched", "37.5 % matched"], ["matched", ""]],
        Open(Shop(), """
            const search = document.getElementById("search");
            key("/"); search.value = "pay"; search.dispatchEvent(new Event("input")); report.push(["matched", text("matched")]);
            search.blur(); key("w"); report.push(["matched", text("matched")]);
            key("Escape"); report.push(["matched", text("matched")]);
            """));

    [Fact]
    public void ThePicturesTakeTurns() => Assert.Equal(
        [["first", "true,false"], ["t", "false,true"], ["button", "true,false"]],
        Open(Shop(), """
            const shown = (what) => report.push([what, `${isShown("boxes")},${isShown("timeline")}`]);
            shown("first"); key("t"); shown("t"); click(document.getElementById("time")); shown("button");
            """));

    [Fact]
    public void ThreadsHaveFiguresByKeys() => Assert.Equal(
        [
            ["hint", "Point at a thread for its figures. Keys: arrows, T or Esc for the flame graph."],
            ["first", "main: ran 0.04 s, waited 0.03 s"], ["next", "worker: ran 0.01 s, waited 0.00 s"],
            ["last", "worker: ran 0.01 s, waited 0.00 s"], ["back", "main: ran 0.04 s, waited 0.03 s"],
            ["others", "hide waiting (44.4 % of all samples)"], ["current", "1"], ["graph", "true"],
        ],
        Open(Shop().Thread(8, "worker", "A", ""), """
            const say = (what) => report.push([what, text("details")]);
            key("w"); key("t"); say("hint");
            key("ArrowDown"); say("first"); key("ArrowDown"); say("next"); key("ArrowDown"); say("last"); key("ArrowUp"); say("back");
            key("w"); report.push(["others", text("waiting")]); report.push(["current", String(document.querySelectorAll(".current").length)]);
            key("Escape"); report.push(["graph", String(isShown("boxes"))]);
            """));

    // Only of keys that do something.
    [Fact]
    public void TheHintIsTrueOfThePage()
    {
        const string Report = """report.push(["hint", text("details")]);""";
        const string Begin = "Point at a box for its figures, click it to zoom in. Keys: arrows and Enter, / to search, ";
        Assert.Equal([["hint", Begin + "W for waiting, T for threads over time, Esc to go back."]], Open(Shop(), Report));
        Assert.Equal(
            [["hint", Begin + "Esc to go back."]],
            Open(writer => Shop().ToProfile().WriteDifference(writer, "shop", new StringReader("main;A 1\n")), Report));
    }

    // Whatever the direction of a name is, what is said of it stands behind it.
    [Theory]
    [InlineData("\u05e9\u05dc\u05d5\u05dd")]
    [InlineData("A\u202etfel ot thgir\u2066")]
    public void ANameReordersNothing(string name) => Assert.Equal(
        [["in order", "true"], ["title", "true"]],
        Open(new Profiles().Thread(1, "main", name), """
            key("ArrowDown"); key("ArrowDown"); key("ArrowDown");
            const range = document.createRange();
            const place = (start, end) => (range.setStart(...start), range.setEnd(...end), range.getBoundingClientRect());
            const [first, figures] = document.getElementById("details").childNodes;
            report.push(["in order", String(place([first, 0], [first, 1]).right <= place([figures, 0], [figures, 3]).left + 1
                && place([figures, 0], [figures, 3]).right <= place([figures, 4], [figures, 9]).left + 1)]);
            report.push(["title", String(![...document.documentElement.outerHTML].some((one) => one >= "\u202a" && one <= "\u202e"))]);
            """));

    // Nothing lies over the boxes, and all of the text is within the page.
    [Theory]
    [InlineData(320)]
    [InlineData(1920)]
    public void ThePageFitsItsWidth(int width) => Assert.Equal(
        [["fits", "true", "true"]],
        Open(Shop(), """
            const header = document.getElementById("header").getBoundingClientRect();
            const first = document.getElementById("boxes").getBoundingClientRect();
            report.push(["fits", String(header.bottom <= first.top), String(header.right <= innerWidth && document.getElementById("header").scrollWidth <= header.width + 1)]);
            """, width));

    [Fact]
    public void NamesAreNoScripts() => Assert.Equal(
        [["ran", "undefined"]],
        Open(new Profiles().Thread(1, "</title><script>window.ran = 1</script>", "<img src=x onerror='window.ran = 1'>|]]><script>window.ran = 1</script>"),
            "report.push([\"ran\", String(window.ran)]);"));

    // A hundred thousand samples in many stacks of many threads.
    [Fact]
    public void ALargeProfileOpensSoon()
    {
        var random = new Random(3);
        var profiles = new Profiles();
        for (var id = 1U; id <= 20; id++)
        {
            profiles.Thread(id, $"worker {id}", [.. Enumerable.Range(0, 5000).Select(_ =>
                (random.Next(3) == 0 ? "~" : "") + string.Join('|', Enumerable.Range(0, random.Next(5, 40)).Select(depth => $"Shop.Type{depth}.Method{random.Next(1 + depth % 3)}")))]);
        }
        var report = Open(profiles, """report.push(["loaded", String(boxes().length)]);""", seconds: 2);
        Assert.True(int.Parse(report[0][1]) > 1000, report[0][1]);
    }
}
