using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;

namespace Corvane.Sampling.Results;

// How a box is filled, and what is said of it besides its name.
internal sealed class BoxLook
{
    internal BoxLook(Func<StackNode, string> color, Func<StackNode, string> figures)
    {
        Color = color;
        Figures = figures;
    }

    internal Func<StackNode, string> Color { get; }

    internal Func<StackNode, string> Figures { get; }
}

// An SVG picture of a tree of stacks: a box for each function, as wide as its samples, below it boxes for what
// it called, so that the outermost callers are the base, at the top. Positions are parts of the whole width,
// which is the window's. A box is a viewport, which cuts off the name that does not fit. There are two drawings of the
// boxes: with the samples in which threads ran, which is shown first, and with those in which they waited as well.
// FlameGraph.js, inside the file, does the rest: details, search, zoom, the change from one drawing to the other.
internal sealed class FlameGraph
{
    private const int RowHeight = 19;
    private const int BoxHeight = 18;
    private const int HeaderHeight = 78;
    private const int FooterHeight = 30;

    // What is narrower than this part of the whole, or deeper, is left out: there are no windows to look at it.
    private const double MinWidth = 0.0005;
    private const int MaxDepth = 500;

    // A narrower box shows no name, for there would be nothing to read.
    private const double MinNamedWidth = 0.012;

    private readonly TextWriter writer;
    private readonly BoxLook look;
    private readonly List<Box> boxes = new List<Box>();
    private readonly SampleCount total;
    private readonly bool showsWaiting;
    private int depth;
    private long narrow;
    private long deep;

    private FlameGraph(TextWriter writer, StackTree tree, BoxLook? look)
    {
        this.writer = writer;
        this.look = look ?? new BoxLook(FunctionColor.Of, node => Figures(node.Total));
        total = tree.Root.Total;
        showsWaiting = total.Running == 0;
        PlaceBoxes(tree);
    }

    internal static void Write(
        TextWriter writer, StackTree tree, string title, string summary, ThreadTimeline? timeline, BoxLook? look = null) =>
        new FlameGraph(writer, tree, look).Write(title, summary, timeline);

    private void PlaceBoxes(StackTree tree)
    {
        // Where the next child of a node begins.
        var next = new Dictionary<StackNode, SampleCount>();
        foreach (var node in tree.InOrder())
        {
            SampleCount start = default;
            if (node.Parent != null)
            {
                start = next[node.Parent];
                next[node.Parent] = start + node.Total;
            }
            next.Add(node, start);
            if (node.Depth > MaxDepth)
            {
                deep++;
            }
            else if (!IsWide(node.Total.Running, total.Running) && !IsWide(node.Total.All, total.All))
            {
                narrow++;
            }
            else if (total.All > 0)
            {
                boxes.Add(new Box(node, start));
                depth = Math.Max(depth, node.Depth);
            }
        }
    }

    private static bool IsWide(long count, long all) => count > 0 && count >= MinWidth * all;

    private void Write(string title, string summary, ThreadTimeline? timeline)
    {
        var boxesHeight = (depth + 1) * RowHeight;
        var footer = HeaderHeight + boxesHeight;
        var height = footer + FooterHeight + (timeline?.Height ?? 0);
        writer.WriteLine("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
        writer.WriteLine($"<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"100%\" height=\"{height}\">");
        writer.WriteLine($"<title>{XmlText.Escape(title)}</title>");
        writer.WriteLine($"<style>\n{Resource("FlameGraph.css")}</style>");
        writer.WriteLine("<rect id=\"paper\" width=\"100%\" height=\"100%\"/>");
        writer.WriteLine($"<text id=\"heading\" x=\"1%\" y=\"26\">{XmlText.Escape(title)}</text>");
        writer.WriteLine($"<text id=\"summary\" class=\"note\" x=\"1%\" y=\"45\">{XmlText.Escape(summary)}</text>");
        writer.WriteLine($"<svg id=\"boxes\" x=\"1%\" y=\"{HeaderHeight}\" width=\"98%\" height=\"{boxesHeight}\">");
        foreach (var box in boxes)
        {
            WriteBox(box);
        }
        writer.WriteLine("</svg>");
        writer.WriteLine($"<text id=\"footer\" class=\"note\" x=\"1%\" y=\"{footer + FooterHeight - 11}\">{LeftOut()}</text>");
        timeline?.Write(writer, footer + FooterHeight);
        writer.WriteLine($"<script><![CDATA[\n{Resource("FlameGraph.js")}]]></script>");
        writer.WriteLine("</svg>");
    }

    private void WriteBox(Box box)
    {
        var node = box.Node;
        var all = (double)Shown(total);
        var width = Shown(node.Total) / all;
        writer.Write($"<svg x=\"{Percent(Shown(box.Start) / all)}\" y=\"{node.Depth * RowHeight}\"");
        writer.Write($" width=\"{Percent(width)}\" height=\"{BoxHeight}\"{(width > 0 ? "" : " display=\"none\"")}");
        writer.Write($" data-running=\"{box.Start.Running} {node.Total.Running}\" data-all=\"{box.Start.All} {node.Total.All}\">");
        writer.Write($"<title>{XmlText.Escape(node.Name)}\n{look.Figures(node)}</title>");
        writer.Write($"<rect width=\"100%\" height=\"100%\" fill=\"{look.Color(node)}\"/>");
        writer.Write($"<text x=\"4\" y=\"13\"{(width < MinNamedWidth ? " display=\"none\"" : "")}>");
        writer.WriteLine($"{XmlText.Escape(Label(node))}</text></svg>");
    }

    private long Shown(SampleCount count) => showsWaiting ? count.All : count.Running;

    private string Figures(SampleCount count)
    {
        var figures = new List<string>();
        if (count.Running > 0)
        {
            figures.Add($"{Samples(count.Running)} running, {Part(count.Running, total.Running)}");
        }
        if (count.Waiting > 0)
        {
            figures.Add($"{Samples(count.Waiting)} waiting, {Part(count.Waiting, total.Waiting)}");
        }
        return string.Join("; ", figures);
    }

    private static string Samples(long count) => Invariant($"{count:N0} {(count == 1 ? "sample" : "samples")}");

    private static string Part(long count, long all) => Invariant($"{100 * (count / (double)all):N1} %");

    // The type's own name and the method's: a namespace would be all that there is room for.
    private static string Label(StackNode node)
    {
        var name = node.Name;
        var method = node.IsFunction ? name.LastIndexOf('.') : 0;
        while (method > 0 && name[method - 1] == '.')
        {
            method--; // that of a constructor begins with one
        }
        return method <= 0 ? name : name.Substring(name.LastIndexOf('.', method - 1) + 1);
    }

    private string LeftOut()
    {
        if (total.All == 0)
        {
            return "There are no samples of managed code.";
        }
        var notes = new List<string>();
        if (narrow > 0)
        {
            notes.Add(Invariant($"{narrow:N0} boxes with less than {100 * MinWidth} % of the samples"));
        }
        if (deep > 0)
        {
            notes.Add(Invariant($"{deep:N0} boxes deeper than {MaxDepth}"));
        }
        return notes.Count == 0 ? "" : "Left out: " + string.Join(", ", notes) + ".";
    }

    private static string Percent(double part) => Invariant($"{100 * part:0.####}%");

    private static string Invariant(FormattableString text) => text.ToString(CultureInfo.InvariantCulture);

    private static string Resource(string name)
    {
        using var stream = typeof(FlameGraph).Assembly.GetManifestResourceStream(name)!;
        using var reader = new StreamReader(stream);
        return reader.ReadToEnd();
    }

    private readonly struct Box
    {
        internal Box(StackNode node, SampleCount start)
        {
            Node = node;
            Start = start;
        }

        internal StackNode Node { get; }

        // How many samples stand to its left.
        internal SampleCount Start { get; }
    }
}
