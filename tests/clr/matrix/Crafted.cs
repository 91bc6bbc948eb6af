// Calls what crafted.il holds.
using System;
using Crafted;
using static Matrix.Output;

namespace Matrix;

internal static class CraftedCode
{
    public static void Run()
    {
        foreach (bool throws in new[] { false, true })
        {
            Catch(() => Show(Crafted.Blocks.Fault(throws)));
            Catch(() => Show(Crafted.Blocks.FaultAtTheEnd(throws)));
            Catch(() => Show(Crafted.Blocks.CatchAtTheEnd(throws)));
            Catch(() => Show(Crafted.Blocks.Nested(throws)));
        }
        Catch(() => Show(Crafted.Blocks.Filter("wanted")));
        Catch(() => Show(Crafted.Blocks.Filter("not wanted")));

        Show(Flow.ValueOnTheStack(0));
        Show(Flow.ValueOnTheStack(1));
        Show(Flow.ValueOnTheStack(2));
        Show(Flow.BackToTheFirst(0));
        Show(Flow.DeadCode());
        Flow.OnlyRet();
        Catch(() => Flow.NothingButThrow());
        Catch(() => Flow.Endless(false));
        Show(Flow.Tail(2));
        Show(Flow.TailVirtual(5));
        Flow.TailVoid("tail");
        Show(Flow.TailIndirect(1));
        Show(Flow.Jump(0));
        Show(Flow.Jump(1));
        Show(Flow.Indirect(1));

        Show(Crafted.Memory.Localloc(64));
        Show(Crafted.Memory.Prefixes(new[] { 5 }));
        Show(Crafted.Memory.Constrained(6));
        Show(Crafted.Memory.Pinned(new[] { 7 }));
        Show(Crafted.Memory.Wide());
        Show(Crafted.Memory.TypeToken());
        Show(Crafted.Memory.Typed());

        Show(Signatures.CallModified(2));
        Show(Signatures.CallModifiedBehindReference(3));
        Show(Signatures.ModifiedStruct(Guid.Empty));
        Show(Signatures.NotNamed(3));
        Show(typeof(Signatures).GetMethod("per%scent \"quoted\"")!.Invoke(null, new object[] { 4 }), "quoted");
        Show(Globals.CallGlobal(5));

        // Injected code catches exceptions. What is none goes past it, and the call is never seen to end.
        Catch(() => Crafted.Blocks.ThrowText(false));
        Catch(() => Crafted.Blocks.ThrowText(true));
    }

    public static void RunRepeated()
    {
        Show(Locals.Result245(1));
        Show(Locals.Result246(2));
        Show(Locals.Result249(3));
        Show(Locals.Result255(4));
        Show(Locals.Result300(5));
        Locals.Void246(6);
        Locals.Void247(7);
        Show(Large.ManyCalls(0));
        Show(Large.ManyCalls(1));
        Show(Large.ManyPushes(2));
        Show(Large.TooManyPushes(3));
        Show(Large.PushesBeyond16Bits(4));
        Show(Large.ShortBranchOver126(0));
        Show(Large.ShortBranchOver126(4));
        Show(Large.ShortBranchOver127(0));
        Show(Large.ShortBranchOver127(5));
        Show(Large.ManyReturns(0));
        Show(Large.ManyReturns(6));
    }
}
