using System;
using System.IO;
using System.Text;

namespace Corvane.Sampling.Results;

// The forms of a profile that files have: a name by which one asks for it, how its files end, and how it is written.
internal sealed class ProfileFormat
{
    internal static readonly ProfileFormat[] All =
    [
        OfText("folded", ".folded", (profile, _, writer) => profile.WriteFolded(writer)),
        OfText("speedscope", ".speedscope.json", (profile, title, writer) =>
            profile.WriteSpeedscope(writer, profile.WhyEmpty is { } why ? $"{title}: {why}" : title)),
        OfText("svg", ".svg", (profile, title, writer) => profile.WriteFlameGraph(writer, title)),
        new("pprof", ".pb.gz", (profile, _, stream) => profile.WritePprof(stream)),
    ];

    private ProfileFormat(string name, string extension, Action<Profile, string, Stream> write)
    {
        Name = name;
        Extension = extension;
        Write = write;
    }

    internal string Name { get; }

    internal string Extension { get; }

    // The stream stays open.
    internal Action<Profile, string, Stream> Write { get; }

    private static ProfileFormat OfText(string name, string extension, Action<Profile, string, TextWriter> write) =>
        new(name, extension, (profile, title, stream) =>
        {
            using var writer = new StreamWriter(stream, new UTF8Encoding(false), 4096, leaveOpen: true) { NewLine = "\n" };
            write(profile, title, writer);
        });
}
