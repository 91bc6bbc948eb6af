using System;
using System.IO;

namespace Corvane.Instrumentation.Export;

// A file that grows by blocks, each of which gets there whole or not at all. It is made with the first one. What
// cannot be written is lost, and the next block is tried again.
internal sealed class BlockFile
{
    private readonly Func<Stream> open;
    private Stream? stream;

    internal BlockFile(Func<Stream> open, string name)
    {
        this.open = open;
        Losses = new Losses($"not written to {name}");
    }

    internal Losses Losses { get; }

    internal bool IsEmpty { get; private set; } = true;

    // Makes the file, with a block that has no spans. Throws if it cannot.
    internal void Begin(ByteText block)
    {
        stream ??= open();
        Append(block);
    }

    // Whether it is in the file, as good as the system has it.
    internal bool Write(ByteText block, int spans)
    {
        var before = 0L;
        try
        {
            stream ??= open();
            before = stream.CanSeek ? stream.Position : 0;
            Append(block);
            return true;
        }
        catch (Exception exception)
        {
            if (spans > 0)
            {
                Losses.Add(spans, exception);
            }
            CutTo(before);
            return false;
        }
    }

    private void Append(ByteText block)
    {
        block.WriteTo(stream!);
        stream!.Flush();
        IsEmpty = false;
    }

    // A block that was begun would be in the way of the next one.
    private void CutTo(long length)
    {
        try
        {
            if (stream is { CanSeek: true })
            {
                stream.SetLength(length);
                stream.Position = length;
            }
        }
        catch (Exception)
        {
            // It is no file, or there is no way back.
        }
    }
}
