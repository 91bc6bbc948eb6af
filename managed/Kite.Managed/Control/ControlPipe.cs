#if NET
using System;
using System.IO;
using System.IO.Pipes;
using System.Runtime.CompilerServices;
using System.Runtime.Versioning;
using System.Security.AccessControl;
using System.Security.Principal;
using System.Text;
using System.Threading;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Recording;
using Corvane.Sampling;

namespace Corvane.Instrumentation.Control;

// Where tools ask this process: a named pipe for its own user and administrators, if CORVANE_CONTROL asks for it. One
// client is served at a time; who says nothing, or does not take the answer, is let go. All waiting is done by threads of
// the library: a program may keep those of the pool busy.
internal sealed class ControlPipe
{
    private const string Variable = "CORVANE_CONTROL";
    private const int LongestRequest = 256;

    private static readonly TimeSpan pause = TimeSpan.FromMilliseconds(20);
    private static readonly TimeSpan longestPause = TimeSpan.FromSeconds(2);

    private readonly ControlCommands commands;
    private readonly TimeSpan patience;

    internal ControlPipe(ControlCommands commands, TimeSpan patience)
    {
        this.commands = commands;
        this.patience = patience;
    }

    // Of a process with this number.
    internal static string Name(string process) => "corvane-" + process;

    // A process that the profiler does not serve has only inherited the variable.
    internal static void Begin()
    {
        if (Environment.GetEnvironmentVariable(Variable) != "1" || !NothingRecorded.IsProfilerHere())
        {
            return;
        }
        try
        {
            Start();
        }
        catch (Exception exception)
        {
            Complain(exception);
        }
    }

    // A pipe for each client: one that a client has left at the wrong moment is of no use any more. The first one has to
    // be there, or another process has the name. Returns when it is to make no more.
    internal void Serve(Func<NamedPipeServerStream?> make)
    {
        var pipe = make();
        // One for all clients: a thread for each would leave handles behind until memory is collected.
        using var wait = OperatingSystem.IsWindows() ? new LimitedWait() : new LimitedWait(() => pipe?.Dispose());
        for (; pipe != null; pipe = MakeAgain(make))
        {
            try
            {
                pipe.WaitForConnection();
                AnswerOne(pipe, wait);
            }
            catch (Exception)
            {
                // The client went, or took too long.
                Thread.Sleep(pause);
            }
            Close(pipe);
        }
    }

    // Without the first a client that keeps its end open keeps the pipe from being made again.
    private static void Close(NamedPipeServerStream pipe)
    {
        try
        {
            pipe.Disconnect();
        }
        catch (Exception)
        {
            // It is not connected.
        }
        pipe.Dispose();
    }

    private static NamedPipeServerStream? MakeAgain(Func<NamedPipeServerStream?> make)
    {
        for (var wait = pause; ; wait = wait < longestPause ? wait + wait : longestPause)
        {
            try
            {
                return make();
            }
            catch (Exception exception) when (exception is IOException or UnauthorizedAccessException)
            {
                Thread.Sleep(wait); // another process has the name
            }
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Start()
    {
        var name = Name(OutputTarget.ProcessId());
        var control = new ControlPipe(new ControlCommands(Recorder.Current, options => new Sampler(options), SamplingAtStart.Flush), TimeSpan.FromSeconds(5));
        OwnThread.Start("control", () => control.Serve(() => Make(name)), Complain);
    }

    private static void Complain(Exception exception) => Complaint.Write("the process cannot be controlled from outside", exception);

    // The only one of its name: it fails if another process was first.
    private static NamedPipeServerStream Make(string name) =>
        OperatingSystem.IsWindows()
            ? NamedPipeServerStreamAcl.Create(
                name, PipeDirection.InOut, 1, PipeTransmissionMode.Byte, PipeOptions.None, 0, 0, Rights())
            : new NamedPipeServerStream(
                name, PipeDirection.InOut, 1, PipeTransmissionMode.Byte, PipeOptions.CurrentUserOnly);

    [SupportedOSPlatform("windows")]
    private static PipeSecurity Rights()
    {
        var security = new PipeSecurity();
        using var user = WindowsIdentity.GetCurrent();
        foreach (var who in new[] { user.User!, new SecurityIdentifier(WellKnownSidType.BuiltinAdministratorsSid, null) })
        {
            security.AddAccessRule(new PipeAccessRule(who, PipeAccessRights.FullControl, AccessControlType.Allow));
        }
        // Not over the network, whoever it is.
        security.AddAccessRule(new PipeAccessRule(
            new SecurityIdentifier(WellKnownSidType.NetworkSid, null), PipeAccessRights.FullControl, AccessControlType.Deny));
        return security;
    }

    private void AnswerOne(NamedPipeServerStream pipe, LimitedWait wait)
    {
        var request = "";
        wait.For(patience, () => request = ReadRequest(pipe));
        commands.Answer(request, new PatientStream(pipe, wait, patience));
        if (OperatingSystem.IsWindows())
        {
            // Else what the client has not read yet is lost with the connection. It closes when it has all.
            wait.For(patience, () => pipe.ReadByte());
        }
    }

    private static string ReadRequest(Stream stream)
    {
        var bytes = new byte[LongestRequest];
        for (var length = 0; length < bytes.Length; length++)
        {
            if (stream.Read(bytes, length, 1) == 0)
            {
                break;
            }
            if (bytes[length] == '\n')
            {
                return Encoding.UTF8.GetString(bytes, 0, length).TrimEnd('\r');
            }
        }
        throw new InvalidDataException();
    }
}
#endif
