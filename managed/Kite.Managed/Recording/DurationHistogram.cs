using System;

namespace Corvane.Instrumentation.Recording;

// How often which durations came up: eight buckets for each power of two, so that what is read from it is at most
// a sixteenth off. Bounded: no more than Octaves times eight counters, of which only the used octaves exist. Not
// thread-safe.
internal sealed class DurationHistogram
{
    internal const int Octaves = 64;

    private const int BucketsInOctave = 8;

    private readonly long[]?[] octaves = new long[]?[Octaves];

    internal long Count { get; private set; }

    // A negative duration, of a clock that was set back, counts as none.
    internal void Add(long duration)
    {
        var bucket = BucketOf(Math.Max(0, duration));
        (octaves[bucket / BucketsInOctave] ??= new long[BucketsInOctave])[bucket % BucketsInOctave]++;
        Count++;
    }

    internal void Add(DurationHistogram other)
    {
        for (var octave = 0; octave < Octaves; octave++)
        {
            if (other.octaves[octave] is not { } counts)
            {
                continue;
            }
            var own = octaves[octave] ??= new long[BucketsInOctave];
            for (var bucket = 0; bucket < BucketsInOctave; bucket++)
            {
                own[bucket] += counts[bucket];
            }
        }
        Count += other.Count;
    }

    // The duration that this share of all is not longer than: the middle of its bucket; 0 if there is none.
    internal double Quantile(double share)
    {
        var rank = Math.Max(1, (long)Math.Ceiling(share * Count));
        long seen = 0;
        for (var bucket = 0; bucket < Octaves * BucketsInOctave; bucket++)
        {
            seen += octaves[bucket / BucketsInOctave]?[bucket % BucketsInOctave] ?? 0;
            if (seen >= rank)
            {
                return MiddleOf(bucket);
            }
        }
        return 0;
    }

    // Durations below 8 have a bucket each. Above, the three bits behind the highest one choose it.
    private static int BucketOf(long duration)
    {
        if (duration < BucketsInOctave)
        {
            return (int)duration;
        }
        var shift = 0;
        while (duration >> shift >= 2 * BucketsInOctave)
        {
            shift++;
        }
        return ((shift + 1) * BucketsInOctave) + (int)((duration >> shift) - BucketsInOctave);
    }

    private static double MiddleOf(int bucket)
    {
        if (bucket < BucketsInOctave)
        {
            return bucket;
        }
        var width = Math.Pow(2, (bucket / BucketsInOctave) - 1);
        return ((BucketsInOctave + (bucket % BucketsInOctave)) * width) + ((width - 1) / 2);
    }
}
