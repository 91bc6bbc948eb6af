using System;
using System.IO;
using System.Text;
using Corvane.Instrumentation.Export;
using Xunit;

namespace Kite.Managed.Tests.Export;

public sealed class BlockFileTests
{
    private static ByteText Block(string text) => new ByteText().Utf8(text);

    [Fact]
    public void WhatDoesNotFitOnTheDiskIsCutOffAndTheNextIsTriedAgain()
    {
        var disk = new FullDisk { Free = 10 };
        var file = new BlockFile(() => disk, "x");
        Assert.True(file.Write(Block("123456\n"), 1));
        Assert.False(file.Write(Block("abcdef\n"), 2));
        Assert.Equal("123456\n", disk.Text);
        Assert.Equal(2, file.Losses.Spans);
        Assert.Null(file.Losses.AtEnd());
        disk.Free = 100;
        Assert.True(file.Write(Block("next\n"), 1));
        Assert.Equal("123456\nnext\n", disk.Text);
        disk.Free = 0;
        Assert.False(file.Write(Block("more\n"), 3));
        Assert.Equal("5 not written to x (no space)", file.Losses.AtEnd());
    }

    [Fact]
    public void ADeviceThatIsAlwaysFullLosesAll()
    {
        var target = new FileStream("/dev/full", FileMode.Create, FileAccess.Write, FileShare.Read, 1);
        var file = new BlockFile(() => target, "/dev/full");
        Assert.False(file.Write(Block("123456\n"), 1));
        Assert.False(file.Write(Block("123456\n"), 2));
        Assert.True(file.IsEmpty);
        Assert.Equal(3, file.Losses.Spans);
        Assert.StartsWith("3 not written to /dev/full (", file.Losses.AtEnd());
    }

    [Fact]
    public void AFileThatCannotBeOpenedIsTriedAgain()
    {
        var tries = 0;
        var memory = new MemoryStream();
        var file = new BlockFile(() => ++tries < 3 ? throw new UnauthorizedAccessException("read-only") : memory, "x");
        Assert.False(file.Write(Block("1"), 1));
        Assert.False(file.Write(Block("2"), 1));
        Assert.True(file.Write(Block("3"), 1));
        Assert.True(file.Write(Block("4"), 1));
        Assert.Equal("34", Encoding.UTF8.GetString(memory.ToArray()));
        Assert.Equal(2, file.Losses.Spans);
        Assert.Equal("2 not written to x (read-only)", file.Losses.AtEnd());
        Assert.Equal(3, tries);
    }

    // Writes what fits and fails then.
    private sealed class FullDisk : Stream
    {
        private readonly MemoryStream content = new();

        internal long Free { get; set; }

        internal string Text => Encoding.UTF8.GetString(content.ToArray());

        public override bool CanRead => false;

        public override bool CanSeek => true;

        public override bool CanWrite => true;

        public override long Length => content.Length;

        public override long Position { get => content.Position; set => content.Position = value; }

        public override void Write(byte[] buffer, int offset, int count)
        {
            var fits = (int)Math.Min(count, Free);
            content.Write(buffer, offset, fits);
            Free -= fits;
            if (fits < count)
            {
                throw new IOException("no space");
            }
        }

        public override void SetLength(long value) => content.SetLength(value);

        public override void Flush()
        {
        }

        public override int Read(byte[] buffer, int offset, int count) => throw new NotSupportedException();

        public override long Seek(long offset, SeekOrigin origin) => throw new NotSupportedException();
    }
}
