using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Text;

namespace Corvane.Sampling.Results;

// The second picture of a flame graph's file: a lane for each thread, from left to right over time. What it ran is as high as
// its part of that moment; a low line is waiting; nothing is a thread that was not there, or was missed. Lines across all
// lanes are garbage collections.
internal sealed class ThreadTimeline
{
    private const int LaneHeight = 22;
    private const int AxisHeight = 22;
    private const int MostLanes = 60;
    private const int Moments = 480;
    private const int Levels = 20;
    private const string Lanes = "x=\"16%\" width=\"84%\"";
    private const string Scaled = "viewBox=\"0 0 480 1\" preserveAspectRatio=\"none\"";

    private readonly Profile profile;
    private readonly List<Lane> lanes;
    private readonly int leftOut;
    private readonly long begin;
    private readonly long duration;

    internal ThreadTimeline(Profile profile)
    {
        this.profile = profile;
        begin = profile.Begin;
        var end = begin;
        foreach (var (thread, _) in profile.Sums)
        {
            end = Math.Max(end, thread.Timed(profile.LastMicroseconds).Max(one => one.Sample.Microseconds + one.Microseconds));
        }
        duration = Math.Max(1, end - begin);
        lanes = profile.Sums.OrderByDescending(one => one.Sums.Total.Microseconds.Running).Take(MostLanes).Select(one => NewLane(one.Thread)).ToList();
        leftOut = profile.Sums.Count - lanes.Count;
    }

    internal int Height => lanes.Count == 0 ? 0 : AxisHeight + lanes.Count * LaneHeight + AxisHeight;

    internal void Write(TextWriter writer, int y)
    {
        if (lanes.Count == 0)
        {
            return;
        }
        writer.WriteLine($"<svg id=\"timeline\" x=\"1%\" y=\"{y}\" width=\"98%\" height=\"{Height}\">");
        for (var quarter = 0; quarter <= 4; quarter++)
        {
            var anchor = quarter == 0 ? "start" : quarter == 4 ? "end" : "middle";
            writer.WriteLine(Invariant(
                $"<text class=\"note\" x=\"{16 + 21 * quarter}%\" y=\"14\" text-anchor=\"{anchor}\">{duration * quarter / 4e6:0.##} s</text>"));
        }
        for (var i = 0; i < lanes.Count; i++)
        {
            WriteLane(writer, lanes[i], AxisHeight + i * LaneHeight);
        }
        WriteCollections(writer);
        writer.WriteLine($"<text class=\"note\" x=\"0\" y=\"{Height - 6}\">{Note()}</text>");
        writer.WriteLine("</svg>");
    }

    private void WriteLane(TextWriter writer, Lane lane, int y)
    {
        var name = XmlText.Escape(lane.Name);
        writer.WriteLine($"<svg x=\"0\" y=\"{y}\" width=\"15.5%\" height=\"{LaneHeight}\"><text x=\"0\" y=\"15\">{name}</text></svg>");
        writer.Write($"<svg class=\"lane\" {Lanes} y=\"{y}\" height=\"{LaneHeight - 3}\" {Scaled}>");
        writer.Write($"<title>{name}\n{Invariant($"ran {lane.Running.Sum() / 1e6:N2} s, waited {lane.Waiting.Sum() / 1e6:N2} s")}</title>");
        writer.Write($"<rect width=\"{Moments}\" height=\"1\"/>");
        writer.Write($"<path class=\"waited\" d=\"{Shape(lane.Waiting, time => time > 0 ? 3 : 0)}\"/>");
        writer.WriteLine($"<path class=\"ran\" d=\"{Shape(lane.Running, Level)}\"/></svg>");
    }

    private void WriteCollections(TextWriter writer)
    {
        var marks = new StringBuilder();
        foreach (var collection in profile.Collections)
        {
            marks.Append(Invariant($"M{Moments * (collection.Microseconds - begin) / (double)duration:0.#} 0V1"));
        }
        if (marks.Length > 0)
        {
            writer.WriteLine(
                $"<svg {Lanes} y=\"{AxisHeight}\" height=\"{lanes.Count * LaneHeight}\" {Scaled}><path class=\"collected\" d=\"{marks}\"/></svg>");
        }
    }

    private string Note()
    {
        var all = profile.Collections.Sum(collections => collections.All);
        var full = profile.Collections.Sum(collections => collections.Full);
        return Invariant($"Garbage collections: {all:N0}, of them {full:N0} of everything.") +
            (leftOut > 0 ? Invariant($" Threads that are left out: {leftOut:N0}, those that ran least.") : "");
    }

    private Lane NewLane(ThreadProfile thread)
    {
        var lane = new Lane(thread.Thread.ToString());
        foreach (var (sample, microseconds) in thread.Timed(profile.LastMicroseconds))
        {
            if (sample.Stack is { Depth: > 0 })
            {
                Spread(sample.IsWaiting ? lane.Waiting : lane.Running, sample.Microseconds - begin, microseconds);
            }
        }
        return lane;
    }

    // Over the moments that it touches. A clock that went back may have put it before all others.
    private void Spread(long[] moments, long from, long length)
    {
        var end = Math.Min(from + length, duration);
        for (from = Math.Max(0, from); from < end;)
        {
            var moment = (int)Math.Min(Moments - 1, from * Moments / duration);
            var next = Math.Max(from + 1, Math.Min(end, (duration * (moment + 1) + Moments - 1) / Moments));
            moments[moment] += next - from;
            from = next;
        }
    }

    private int Level(long time) => time == 0 ? 0 : (int)Math.Max(1, Math.Min(Levels, Math.Round(Levels * time * Moments / (double)duration)));

    // Equal levels beside each other are one block.
    private static string Shape(long[] moments, Func<long, int> level)
    {
        var shape = new StringBuilder();
        for (var i = 0; i < Moments;)
        {
            var height = level(moments[i]);
            var next = i + 1;
            while (next < Moments && level(moments[next]) == height)
            {
                next++;
            }
            if (height > 0)
            {
                shape.Append(Invariant($"M{i} 1V{1 - height / (double)Levels:0.##}H{next}V1z"));
            }
            i = next;
        }
        return shape.ToString();
    }

    private static string Invariant(FormattableString text) => text.ToString(CultureInfo.InvariantCulture);

    // Microseconds by moment.
    private sealed class Lane
    {
        internal Lane(string name) => Name = name;

        internal string Name { get; }

        internal long[] Running { get; } = new long[Moments];

        internal long[] Waiting { get; } = new long[Moments];
    }
}
