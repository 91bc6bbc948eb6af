using System;
using System.Diagnostics;
using System.Globalization;
using System.IO;
using System.Text;

namespace Corvane.Instrumentation.Recording;

// Where a variable says that text goes: "stderr", "stdout", or a file, whose path is understood from the
// folder that is current when the library is first used, and in which {pid} stands for the number of the
// process. Text is UTF-8. The console is written to past the program's own writers, which may be its own code.
internal sealed class OutputTarget
{
    private const int BufferSize = 4096;

    private readonly string name;

    private OutputTarget(string name) => this.name = name;

    internal static OutputTarget? FromVariable(string variable) =>
        Environment.GetEnvironmentVariable(variable) switch
        {
            null or "" => null,
            "stderr" => new OutputTarget("stderr"),
            "stdout" => new OutputTarget("stdout"),
            var path => ForFile(path),
        };

    internal string Name => name;

    internal bool IsFile => name is not ("stderr" or "stdout");

    internal StreamWriter Open(FileMode mode) => new StreamWriter(Open(mode, FileShare.ReadWrite, BufferSize));

    // For bytes that are written as they come, by this process alone.
    internal Stream OpenStream() => Open(FileMode.Create, FileShare.Read, 1);

    // Writes a whole text. That it cannot be written is said, and is no reason to fail.
    internal bool Write(Action<TextWriter> write)
    {
        try
        {
            using var writer = Open(FileMode.Create);
            write(writer);
            return true;
        }
        catch (Exception exception)
        {
            Complaint.Write($"nothing was written to {name}", exception);
            return false;
        }
    }

    // Puts a whole text in the place of what the file holds, by one write: whoever looks, or finds it after the process was
    // killed, has one to read. That it cannot be written is said at the end.
    internal void Renew(string text)
    {
        try
        {
            var bytes = Encoding.UTF8.GetBytes(text);
            using var stream = Open(FileMode.OpenOrCreate, FileShare.ReadWrite, 1);
            stream.Write(bytes, 0, bytes.Length);
            stream.SetLength(bytes.Length);
        }
        catch (Exception)
        {
        }
    }

    internal static string ProcessId()
    {
        using var process = Process.GetCurrentProcess();
        return process.Id.ToString(CultureInfo.InvariantCulture);
    }

    private Stream Open(FileMode mode, FileShare others, int buffer) => name switch
    {
        "stderr" => Console.OpenStandardError(),
        "stdout" => Console.OpenStandardOutput(),
        _ => new FileStream(name, mode, FileAccess.Write, others, buffer),
    };

    private static OutputTarget? ForFile(string path)
    {
        try
        {
            return new OutputTarget(OfThisDomain(Path.GetFullPath(path.Replace("{pid}", ProcessId()))));
        }
        catch (Exception exception)
        {
            // The current folder may be gone.
            Complaint.Write($"nothing will be written to {path}", exception);
            return null;
        }
    }

    // Of a domain that the program has made: calls.txt is calls-domain2.txt there, or the domains would overwrite each
    // other. Mono gives the number of a domain that is gone to another one, whose file gets a number more.
    private static string OfThisDomain(string path)
    {
        var domain = AppDomain.CurrentDomain;
        if (domain.IsDefaultAppDomain())
        {
            return path;
        }
        using var process = Process.GetCurrentProcess();
        var begin = process.StartTime.ToUniversalTime();
        var extension = Path.GetExtension(path);
        var name = FormattableString.Invariant($"{path.Substring(0, path.Length - extension.Length)}-domain{domain.Id}");
        var own = name + extension;
        for (var number = 2; File.Exists(own) && File.GetLastWriteTimeUtc(own) >= begin; number++)
        {
            own = FormattableString.Invariant($"{name}-{number}{extension}");
        }
        return own;
    }
}
