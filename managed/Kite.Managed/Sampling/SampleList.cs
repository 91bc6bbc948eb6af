using System;
using System.Collections;
using System.Collections.Generic;

namespace Corvane.Sampling;

// Samples in pieces that do not move when more come. A copy shares the pieces that do not change any more, so that
// it costs the same however many samples there are.
internal sealed class SampleList : IReadOnlyList<Sample>
{
    private const int Bits = 11;
    private const int PieceLength = 1 << Bits; // of less than the runtime takes for a large object
    private const int FirstLength = 4;

    private readonly List<Sample[]> pieces = new List<Sample[]>();

    public int Count { get; private set; }

    public Sample this[int index]
    {
        get => PieceOf(index)[index & (PieceLength - 1)];
        internal set => PieceOf(index)[index & (PieceLength - 1)] = value;
    }

    public IEnumerator<Sample> GetEnumerator()
    {
        for (var index = 0; index < Count; index++)
        {
            yield return this[index];
        }
    }

    IEnumerator IEnumerable.GetEnumerator() => GetEnumerator();

    internal void Add(Sample sample)
    {
        var place = Count & (PieceLength - 1);
        if (place == 0)
        {
            pieces.Add(new Sample[Count == 0 ? FirstLength : PieceLength]); // most threads have few
        }
        var last = pieces[pieces.Count - 1];
        if (place == last.Length)
        {
            Array.Resize(ref last, 2 * place);
            pieces[pieces.Count - 1] = last;
        }
        last[place] = sample;
        Count++;
    }

    // Those before `settled` are not set any more.
    internal SampleList Copy(int settled)
    {
        var copy = new SampleList { Count = Count };
        copy.pieces.AddRange(pieces);
        for (var piece = settled >> Bits; piece < pieces.Count; piece++)
        {
            copy.pieces[piece] = (Sample[])pieces[piece].Clone();
        }
        return copy;
    }

    private Sample[] PieceOf(int index) =>
        index >= 0 && index < Count ? pieces[index >> Bits] : throw new ArgumentOutOfRangeException(nameof(index));
}
