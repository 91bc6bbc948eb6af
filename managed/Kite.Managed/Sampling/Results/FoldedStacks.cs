using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Text;

namespace Corvane.Sampling.Results;

// A line for each stack: its names from the outermost on, with semicolons between, a blank and its samples. Those in
// which the thread waited are a line of their own, as if its function had called one of this name. Operations have brackets.
internal static class FoldedStacks
{
    internal const string Waiting = "(waiting)";

    internal static void Write(TextWriter writer, StackTree tree)
    {
        foreach (var node in tree.InOrder())
        {
            if (node.Self.All > 0)
            {
                var names = Names(node);
                WriteLine(writer, names, node.Self.Running);
                WriteLine(writer, names + ";" + Waiting, node.Self.Waiting);
            }
        }
    }

    // What was written before, as a tree again: with the names as the format has them, and without what waited.
    internal static StackTree Read(TextReader reader)
    {
        var tree = new StackTree();
        while (reader.ReadLine() is { } line)
        {
            var end = line.LastIndexOf(' ');
            if (end <= 0 || !long.TryParse(line.Substring(end + 1), NumberStyles.None, CultureInfo.InvariantCulture, out var samples))
            {
                throw new InvalidDataException($"\"{line.Substring(0, Math.Min(line.Length, 60))}\" is no folded stack.");
            }
            var node = tree.Root;
            foreach (var name in line.Substring(0, end).Split(';'))
            {
                var isOperation = !node.IsFunction && node.Kind != NodeKind.Thread && name.Length > 1 && name[0] == '[' && name[name.Length - 1] == ']';
                node = isOperation
                    ? node.Child(name.Substring(1, name.Length - 2), NodeKind.Operation)
                    : node.Child(name, node.Parent == null ? NodeKind.Thread : NodeKind.Program);
            }
            if (!line.EndsWith($";{Waiting}{line.Substring(end)}", StringComparison.Ordinal))
            {
                node.Self += new SampleCount(samples, 0);
            }
        }
        tree.AddUp();
        return tree;
    }

    internal static string Operation(string name) => $"[{name}]";

    private static void WriteLine(TextWriter writer, string names, long samples)
    {
        if (samples > 0)
        {
            writer.WriteLine(names + " " + samples.ToString(CultureInfo.InvariantCulture));
        }
    }

    private static string Names(StackNode node)
    {
        var nodes = new Stack<StackNode>();
        for (var outer = node; outer.Parent != null; outer = outer.Parent)
        {
            nodes.Push(outer);
        }
        var text = new StringBuilder();
        foreach (var outer in nodes)
        {
            AppendName(text.Append(text.Length == 0 ? "" : ";"), Name(outer));
        }
        return text.ToString();
    }

    // No thread is to look like an operation.
    private static string Name(StackNode node) =>
        node.Kind == NodeKind.Operation ? Operation(node.Name)
        : node.Kind == NodeKind.Thread && node.Name[0] == '[' ? "(" + node.Name.Substring(1)
        : node.Name;

    // The format knows no escapes.
    private static void AppendName(StringBuilder text, string name)
    {
        for (var i = 0; i < name.Length; i++)
        {
            text.Append(
                name[i] == ';' ? ':' : char.IsControl(name[i]) ? ' ' : Surrogates.IsLone(name, i) ? '\uFFFD' : name[i]);
        }
    }
}
