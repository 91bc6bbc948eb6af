using System.Diagnostics;
using System.Runtime.CompilerServices;

/// <summary>Three functions that are busy for known shares of the time.</summary>
internal static class Shares
{
    private const MethodImplOptions AsWritten = MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization;

    /// <summary>The shares in percent; a cycle takes ten times as many milliseconds.</summary>
    public const int Half = 50;

    /// <inheritdoc cref="Half"/>
    public const int Third = 30;

    /// <inheritdoc cref="Half"/>
    public const int Fifth = 20;

    private static int s_sum;

    /// <summary>Runs the functions in turn.</summary>
    /// <param name="cycles">How often; each takes a second.</param>
    [MethodImpl(AsWritten)]
    public static void Run(int cycles)
    {
        long half = 0;
        long third = 0;
        long fifth = 0;
        for (int cycle = 1; cycle <= cycles; cycle++)
        {
            InHalf(ref half, cycle * Ticks(Half));
            InThird(ref third, cycle * Ticks(Third));
            InFifth(ref fifth, cycle * Ticks(Fifth));
        }
    }

    /// <summary>Runs the functions for a second, and for more until the thread has had a processor for most of one:
    /// where others are busy, too, there are samples.</summary>
    public static void RunForASecond()
    {
        double before = ProcessorTime.OfThread();
        do
        {
            Run(cycles: 1);
        }
        while (ProcessorTime.OfThread() - before < 900);
    }

    private static long Ticks(int share) => share * Stopwatch.Frequency / 100;

    [MethodImpl(AsWritten)]
    private static void InHalf(ref long spent, long until) => Spin(ref spent, until);

    [MethodImpl(AsWritten)]
    private static void InThird(ref long spent, long until) => Spin(ref spent, until);

    [MethodImpl(AsWritten)]
    private static void InFifth(ref long spent, long until) => Spin(ref spent, until);

    // Until its caller has spent so much in all: what one cycle takes too long, as for another program, the
    // next ones make up for. The clock is asked rarely, for a thread cannot be walked while it is asked.
    [MethodImpl(AsWritten)]
    private static void Spin(ref long spent, long until)
    {
        long start = Stopwatch.GetTimestamp();
        long before = spent;
        while (spent < until)
        {
            for (int i = 0; i < 20_000; i++)
            {
                s_sum += i;
            }
            spent = before + Stopwatch.GetTimestamp() - start;
        }
    }
}
