using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Text.RegularExpressions;

namespace Corvane.Sampling.Results;

// A flame graph of two profiles, each given as folded stacks. A stack is as wide as in the one that has more of it, in parts
// of all that ran, so that what is gone is still there. Red has more now, blue had more before.
internal sealed class Difference
{
    private const double Whole = 1_000_000;

    // A smaller change is chance.
    private const double Least = 0.005;

    // A thread without a name has another one in each run.
    private static readonly Regex number = new Regex("^thread [0-9]+", RegexOptions.CultureInvariant);

    private readonly StackTree both = new StackTree();
    private readonly Dictionary<StackNode, (double Before, double Now)> parts = new Dictionary<StackNode, (double, double)>();

    internal static void Write(TextWriter writer, string title, string summary, TextReader before, TextReader now)
    {
        var difference = new Difference();
        difference.Add(FoldedStacks.Read(before), isNow: false);
        difference.Add(FoldedStacks.Read(now), isNow: true);
        difference.AddUp();
        FlameGraph.Write(
            writer, difference.both, title, "Red runs more than before, blue less. Now: " + summary, null,
            new BoxLook(difference.Color, difference.Figures));
    }

    private void Add(StackTree tree, bool isNow)
    {
        var all = Math.Max(1, tree.Root.Total.Running);
        var same = new Dictionary<StackNode, StackNode>();
        foreach (var node in tree.InOrder())
        {
            var place = node.Parent == null ? both.Root : same[node.Parent].Child(Name(node), node.Kind);
            same.Add(node, place);
            parts.TryGetValue(place, out var part);
            var self = node.Self.Running / (double)all;
            parts[place] = isNow ? (part.Before, part.Now + self) : (part.Before + self, part.Now);
        }
    }

    private static string Name(StackNode node) => node.Kind == NodeKind.Thread ? number.Replace(node.Name, "thread") : node.Name;

    // Up to here each node has its own parts only.
    private void AddUp()
    {
        var nodes = new List<StackNode>(both.InOrder());
        foreach (var node in nodes)
        {
            var (before, now) = parts[node];
            node.Self = new SampleCount((long)Math.Round(Whole * Math.Max(before, now)), 0);
        }
        both.AddUp();
        for (var i = nodes.Count - 1; i > 0; i--)
        {
            var (before, now) = parts[nodes[i]];
            var outer = parts[nodes[i].Parent!];
            parts[nodes[i].Parent!] = (outer.Before + before, outer.Now + now);
        }
    }

    private string Figures(StackNode node)
    {
        var (before, now) = parts[node];
        return string.Format(
            CultureInfo.InvariantCulture, "now {0:N1} % of what runs, before {1:N1} %", 100 * now, 100 * before);
    }

    // The stronger the more it is of itself; what hardly differs is grey.
    private string Color(StackNode node)
    {
        var (before, now) = parts[node];
        var change = now - before;
        if (Math.Abs(change) < Least)
        {
            return "#dfe3e8";
        }
        var strength = Math.Abs(change) / Math.Max(before, now);
        return string.Format(CultureInfo.InvariantCulture, "hsl({0},75%,{1:0}%)", change > 0 ? 6 : 212, 88 - 28 * strength);
    }
}
