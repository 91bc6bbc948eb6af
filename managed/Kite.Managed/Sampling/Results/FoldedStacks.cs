using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Text;

namespace Corvane.Sampling.Results;

// A line for each stack: its names from the outermost on, with semicolons between, a blank and its samples.
internal static class FoldedStacks
{
    internal static void Write(TextWriter writer, StackTree tree)
    {
        foreach (var node in tree.InOrder())
        {
            if (node.Self > 0)
            {
                writer.Write(Names(node));
                writer.Write(' ');
                writer.WriteLine(node.Self.ToString(CultureInfo.InvariantCulture));
            }
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
            AppendName(text.Append(text.Length == 0 ? "" : ";"), outer.Name);
        }
        return text.ToString();
    }

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
