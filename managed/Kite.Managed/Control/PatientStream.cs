#if NET
using System;
using System.IO;

namespace Corvane.Instrumentation.Control;

// An answer whose reader must not keep us waiting for longer than so much at a time.
internal sealed class PatientStream : Stream
{
    private const int Part = 65_536;

    private readonly Stream stream;
    private readonly LimitedWait wait;
    private readonly TimeSpan patience;

    internal PatientStream(Stream stream, LimitedWait wait, TimeSpan patience)
    {
        this.stream = stream;
        this.wait = wait;
        this.patience = patience;
    }

    public override bool CanRead => false;

    public override bool CanSeek => false;

    public override bool CanWrite => true;

    public override long Length => throw new NotSupportedException();

    public override long Position
    {
        get => throw new NotSupportedException();
        set => throw new NotSupportedException();
    }

    public override int Read(byte[] buffer, int offset, int count) => throw new NotSupportedException();

    public override void Write(byte[] buffer, int offset, int count)
    {
        for (var end = offset + count; offset < end;)
        {
            var part = Math.Min(end - offset, Part);
            wait.For(patience, () => stream.Write(buffer, offset, part));
            offset += part;
        }
    }

    public override void Flush()
    {
    }

    public override long Seek(long offset, SeekOrigin origin) => throw new NotSupportedException();

    public override void SetLength(long value) => throw new NotSupportedException();
}
#endif
