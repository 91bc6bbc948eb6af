using System;
using System.Collections.Generic;
using System.Linq;

namespace Corvane.Sampling.Results;

// The samples of a profile, added up by stack: equal names in equal places are one node. Stacks may be deep,
// so that nothing here recurses.
internal sealed class StackTree
{
    internal StackNode Root { get; } = new StackNode("all", null, NodeKind.All);

    internal static StackTree Of(Profile profile, bool byThread)
    {
        var tree = new StackTree();
        foreach (var (thread, sums) in profile.Sums)
        {
            foreach (var (operation, ofOperation) in sums.ByOperation)
            {
                var start = operation != null ? tree.StartOf(operation)
                    : byThread ? tree.Root.Child(thread.Thread.ToString(), NodeKind.Thread)
                    : tree.Root;
                tree.Add(start, ofOperation);
            }
        }
        tree.AddUp();
        return tree;
    }

    // Callers before what they call; those of one caller by name.
    internal IEnumerable<StackNode> InOrder()
    {
        var waiting = new Stack<StackNode>();
        waiting.Push(Root);
        while (waiting.Count > 0)
        {
            var node = waiting.Pop();
            yield return node;
            var children = node.SortedChildren();
            for (var i = children.Count - 1; i >= 0; i--)
            {
                waiting.Push(children[i]);
            }
        }
    }

    // An operation may go on on several threads: it stands in place of them.
    private StackNode StartOf(SampledOperation operation) =>
        operation.Path.Aggregate(Root, (node, name) => node.Child(name, NodeKind.Operation));

    private void Add(StackNode start, Dictionary<SampledStack, StackSum> sums)
    {
        var known = new Dictionary<SampledStack, StackNode>();
        var missing = new Stack<SampledStack>();
        foreach (var sum in sums)
        {
            var stack = sum.Key;
            StackNode? node;
            while (!known.TryGetValue(stack, out node) && stack.Caller != null)
            {
                missing.Push(stack);
                stack = stack.Caller;
            }
            node ??= start;
            while (missing.Count > 0)
            {
                stack = missing.Pop();
                node = node.Child(stack.Function!);
                known.Add(stack, node);
            }
            node.Self += sum.Value.Samples;
        }
    }

    internal void AddUp()
    {
        var nodes = new List<StackNode>(InOrder());
        for (var i = nodes.Count - 1; i >= 0; i--)
        {
            nodes[i].Total += nodes[i].Self;
            if (nodes[i].Parent is { } parent)
            {
                parent.Total += nodes[i].Total;
            }
        }
    }
}

// Samples in which a thread ran and in which it waited.
internal readonly struct SampleCount
{
    internal SampleCount(long running, long waiting)
    {
        Running = running;
        Waiting = waiting;
    }

    internal long Running { get; }

    internal long Waiting { get; }

    internal long All => Running + Waiting;

    public static SampleCount operator +(SampleCount one, SampleCount other) =>
        new SampleCount(one.Running + other.Running, one.Waiting + other.Waiting);
}

// What a box stands for; the last two are functions, by where their code comes from.
internal enum NodeKind
{
    All,
    Thread,
    Operation,
    Program,
    Platform,
}

// A function, or whatever else stands in a stack, with all that it was seen to call.
internal sealed class StackNode
{
    private static readonly string[] platform = { "System.", "Microsoft.", "Internal.", "Interop" };

    private readonly Dictionary<(string Name, NodeKind Kind), StackNode> children = new Dictionary<(string, NodeKind), StackNode>();

    internal StackNode(string name, StackNode? parent, NodeKind kind)
    {
        Name = name;
        Parent = parent;
        Kind = kind;
        Depth = parent == null ? 0 : parent.Depth + 1;
    }

    internal string Name { get; }

    internal StackNode? Parent { get; }

    internal int Depth { get; }

    internal NodeKind Kind { get; }

    internal bool IsFunction => Kind is NodeKind.Program or NodeKind.Platform;

    // Samples that ended here, and those together with all that were further in.
    internal SampleCount Self { get; set; }

    internal SampleCount Total { get; set; }

    internal StackNode Child(SampledFunction function) => Child(function.Name, KindOf(function));

    internal StackNode Child(string name, NodeKind kind)
    {
        // A function is one, whatever is known of its origin.
        var key = (name, kind == NodeKind.Platform ? NodeKind.Program : kind);
        if (!children.TryGetValue(key, out var child))
        {
            child = new StackNode(name, this, kind);
            children.Add(key, child);
        }
        return child;
    }

    // Without knowledge of its assembly a function is judged by its name.
    private static NodeKind KindOf(SampledFunction function) =>
        function.IsPlatform ?? Array.Exists(platform, start => function.Name.StartsWith(start, StringComparison.Ordinal))
            ? NodeKind.Platform
            : NodeKind.Program;

    internal List<StackNode> SortedChildren()
    {
        var sorted = new List<StackNode>(children.Values);
        sorted.Sort((one, other) => string.CompareOrdinal(one.Name, other.Name) is var order and not 0 ? order : one.Kind.CompareTo(other.Kind));
        return sorted;
    }
}
