// What work takes of the processors, whatever else the machine does.
using System;
using System.Runtime.InteropServices;
using Xunit;

namespace Kite.Managed.Tests;

internal static class ProcessorTime
{
    private const int OfThisThread = 3;

    internal static TimeSpan Of(Action work)
    {
        var before = Now();
        work();
        return Now() - before;
    }

    private static TimeSpan Now()
    {
        var time = new long[2];
        Assert.Equal(0, GetTime(OfThisThread, time));
        return TimeSpan.FromSeconds(time[0]) + TimeSpan.FromMicroseconds(time[1] / 1000);
    }

    // Into seconds and nanoseconds.
    [DllImport("libc", EntryPoint = "clock_gettime")]
    private static extern int GetTime(int clock, [Out] long[] time);
}
