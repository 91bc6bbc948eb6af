#if NET
using System;
using System.IO;
using System.Threading;

namespace Corvane.Instrumentation.Control;

// A connection whose other end must not keep us waiting for longer than so much at a time.
internal sealed class PatientStream : Stream
{
    private readonly Stream stream;
    private readonly TimeSpan patience;

    internal PatientStream(Stream stream, TimeSpan patience)
    {
        this.stream = stream;
        this.patience = patience;
    }

    public override bool CanRead => true;

    public override bool CanSeek => false;

    public override bool CanWrite => true;

    public override long Length => throw new NotSupportedException();

    public override long Position
    {
        get => throw new NotSupportedException();
        set => throw new NotSupportedException();
    }

    public override int Read(byte[] buffer, int offset, int count)
    {
        using var end = new CancellationTokenSource(patience);
        return stream.ReadAsync(buffer.AsMemory(offset, count), end.Token).AsTask().GetAwaiter().GetResult();
    }

    public override void Write(byte[] buffer, int offset, int count)
    {
        using var end = new CancellationTokenSource(patience);
        stream.WriteAsync(buffer.AsMemory(offset, count), end.Token).AsTask().GetAwaiter().GetResult();
    }

    public override void Flush()
    {
    }

    public override long Seek(long offset, SeekOrigin origin) => throw new NotSupportedException();

    public override void SetLength(long value) => throw new NotSupportedException();
}
#endif
