using System;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// A command of ADO.NET: what it does, without the values in it, and where. The receiver is the command.
internal sealed class DatabaseConvention : ISpanConvention
{
    private const int StoredProcedure = 4; // of System.Data.CommandType

    // Longer ones are made anew each time, as a rule, and would stay in memory.
    private const int MostKept = 4096;

    private static readonly PropertyReader commandText = new PropertyReader("CommandText");
    private static readonly PropertyReader commandType = new PropertyReader("CommandType");
    private static readonly PropertyReader connection = new PropertyReader("Connection");
    private static readonly PropertyReader database = new PropertyReader("Database");
    private static readonly PropertyReader dataSource = new PropertyReader("DataSource");

    // The last one that began on this thread, and which command it was of. Neither is kept alive.
    [ThreadStatic]
    private static ulong lastSpan;

    [ThreadStatic]
    private static int lastCommand;

    private readonly DatabaseSystem system;

    // What was read last, by the texts' identities: most programs have theirs as constants.
    private readonly ReadText?[] known = new ReadText?[64];

    internal DatabaseConvention(DatabaseSystem system, SpanKind kind)
    {
        this.system = system;
        Kind = kind;
    }

    public SpanKind Kind { get; }

    public void Begin(Span span, object? receiver, object?[] arguments)
    {
        if (!span.IsRecorded)
        {
            return;
        }
        var command = RuntimeHelpers.GetHashCode(receiver);
        if (lastSpan != 0 && lastSpan == span.ParentId && lastCommand == command)
        {
            // Its methods call each other: the outermost one says it all.
            span.Kind = SpanKind.Internal;
            return;
        }
        lastSpan = span.Id;
        lastCommand = command;
        span.SetAttribute(AttributeNames.DatabaseSystem, system.Name);
        var name = DescribeCommand(span, receiver);
        var server = DescribeConnection(span, connection.Read(receiver));
        if (Kind == SpanKind.Client)
        {
            span.Name = name ?? server ?? system.Name;
        }
    }

    public void End(Span span, object? receiver, object?[] arguments, object? result)
    {
    }

    public void Fail(Span span, Exception exception)
    {
    }

    // Returns the operation and what it works on.
    private string? DescribeCommand(Span span, object? command)
    {
        if (commandText.ReadText(command) is not { Length: > 0 } text)
        {
            return null;
        }
        var isProcedure = commandType.ReadNumber(command) == StoredProcedure;
        var sql = Read(text, isProcedure);
        if (isProcedure && sql.Target != null)
        {
            span.SetAttribute(AttributeNames.DatabaseProcedure, sql.Target);
        }
        else
        {
            span.SetAttribute(AttributeNames.DatabaseQuery, sql.Text);
        }
        if (sql.Operation == null)
        {
            return null;
        }
        span.SetAttribute(AttributeNames.DatabaseOperation, sql.Operation);
        var summary = sql.Target == null ? sql.Operation : sql.Operation + " " + sql.Target;
        span.SetAttribute(AttributeNames.DatabaseSummary, summary);
        return summary;
    }

    private SqlText Read(string text, bool isProcedure)
    {
        ref var place = ref known[RuntimeHelpers.GetHashCode(text) % known.Length];
        var read = place;
        if (read == null || (object)read.Text != text || read.IsProcedure != isProcedure)
        {
            read = new ReadText(text, isProcedure, SqlText.Of(isProcedure ? "EXECUTE " + text : text, system.Dialect));
            if (text.Length <= MostKept)
            {
                place = read;
            }
        }
        return read.Sql;
    }

    private string? DescribeConnection(Span span, object? from)
    {
        var name = database.ReadText(from);
        var source = system.IsServer && dataSource.ReadText(from) is { } text ? DataSource.Of(text) : default;
        name = source.Instance == null ? name : string.IsNullOrEmpty(name) ? source.Instance : source.Instance + "|" + name;
        if (!string.IsNullOrEmpty(name))
        {
            span.SetAttribute(AttributeNames.DatabaseNamespace, name!);
        }
        if (source.Server != null)
        {
            span.SetAttribute(AttributeNames.ServerAddress, source.Server);
        }
        if (source.Port != null)
        {
            span.SetAttribute(AttributeNames.ServerPort, (long)source.Port);
        }
        return source.Server;
    }

    private sealed class ReadText
    {
        internal ReadText(string text, bool isProcedure, SqlText sql)
        {
            Text = text;
            IsProcedure = isProcedure;
            Sql = sql;
        }

        internal string Text { get; }

        internal bool IsProcedure { get; }

        internal SqlText Sql { get; }
    }
}
