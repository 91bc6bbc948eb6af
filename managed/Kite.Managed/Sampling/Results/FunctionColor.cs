using System;

namespace Corvane.Sampling.Results;

// The colour of a box, by its name and its origin, so that a function has the same one in every picture. Functions of
// one type are alike; those of the platform keep in the background.
internal static class FunctionColor
{
    internal static string Of(StackNode node)
    {
        if (!node.IsFunction)
        {
            return node.Kind == NodeKind.All ? "#d5d9de" : node.Kind == NodeKind.Thread ? "#c3cad3" : "#f2c879";
        }
        var name = node.Name;
        var end = Math.Max(name.LastIndexOf('.'), 0);
        var type = Hash(name, name.Substring(0, end).TrimEnd('.').Length);
        var shade = Hash(name, name.Length) % 11;
        return node.Kind == NodeKind.Platform
            ? $"hsl({215 + type % 40},{26 + shade}%,{80 + shade / 2}%)"
            : $"hsl({130 + type % 70},{42 + shade}%,{62 + shade}%)";
    }

    // FNV-1a: string.GetHashCode differs from run to run.
    private static uint Hash(string text, int length)
    {
        var hash = 2166136261;
        for (var i = 0; i < length; i++)
        {
            hash = unchecked((hash ^ text[i]) * 16777619);
        }
        // Its low digits alone are too much alike.
        hash = unchecked((hash ^ (hash >> 16)) * 0x85EBCA6B);
        return hash ^ (hash >> 13);
    }
}
