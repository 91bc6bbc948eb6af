using System;
using System.Data;
using System.Data.SqlClient;
using System.Threading;
using Corvane.Instrumentation.Conventions;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Conventions;

// SqlCommand is the real one; commands of Oracle are stand-ins with the same names.
public class DatabaseConventionTests
{
    private const string Source = "Server=tcp:db.example.com\\shop,1433;Database=orders;User Id=sa;Password=hunter2";

    private static SqlCommand Command(string text, string source = Source) => new(text, new SqlConnection(source));

    [Fact]
    public void ACommandIsDescribedWithoutItsValues()
    {
        var span = KnownCall.Begin(Command("SELECT * FROM dbo.Orders WHERE Card = 'hunter2'"), "ExecuteReader");
        Assert.Equal(
            [
                "SELECT dbo.Orders (Client)",
                "db.system.name=microsoft.sql_server",
                "db.query.text=SELECT * FROM dbo.Orders WHERE Card = ?",
                "db.operation.name=SELECT",
                "db.query.summary=SELECT dbo.Orders",
                "db.namespace=shop|orders",
                "server.address=db.example.com",
                "server.port=1433",
            ],
            KnownCall.Lines(span));
        Assert.IsType<long>(span.Attributes[^1].Value);
    }

    [Fact]
    public void AProcedureIsNamed()
    {
        var command = Command("dbo.GetOrders", "Server=db");
        command.CommandType = CommandType.StoredProcedure;
        Assert.Equal(
            [
                "EXECUTE dbo.GetOrders (Client)",
                "db.system.name=microsoft.sql_server",
                "db.stored_procedure.name=dbo.GetOrders",
                "db.operation.name=EXECUTE",
                "db.query.summary=EXECUTE dbo.GetOrders",
                "server.address=db",
            ],
            KnownCall.Lines(KnownCall.Begin(command, "ExecuteNonQuery")));
    }

    [Fact]
    public void WhatEndsACommandIsAStepOfIt()
    {
        var span = KnownCall.Begin(Command("DELETE FROM t"), "EndExecuteNonQuery", [null]);
        Assert.Equal("as made (Internal)", KnownCall.Lines(span)[0]);
        Assert.Contains("db.query.text=DELETE FROM t", KnownCall.Lines(span));
    }

    [Fact]
    public void MethodsOfOneCommandThatCallEachOtherAreOneCall()
    {
        var command = Command("SELECT 1");
        var convention = KnownCall.Convention(typeof(SqlCommand), "ExecuteReader")!;
        var outer = KnownCall.NewSpan(1, 0);
        var inner = KnownCall.NewSpan(2, 1);
        var other = KnownCall.NewSpan(3, 2);
        convention.Begin(outer, command, []);
        convention.Begin(inner, command, []);
        convention.Begin(other, Command("SELECT 2"), []);
        Assert.Equal(["as made (Internal)"], KnownCall.Lines(inner));
        Assert.Equal("SELECT", outer.Name);
        Assert.Equal("SELECT", other.Name);
    }

    [Fact]
    public void WithoutTextOrConnectionTheSystemIsKnown()
    {
        Assert.Equal(
            ["microsoft.sql_server (Client)", "db.system.name=microsoft.sql_server"],
            KnownCall.Lines(KnownCall.Begin(new SqlCommand(), "ExecuteScalar")));
        Assert.Equal(
            ["microsoft.sql_server (Client)", "db.system.name=microsoft.sql_server"],
            KnownCall.Lines(KnownCall.BeginOf(typeof(SqlCommand), "ExecuteScalar", null)));
    }

    [Theory]
    [InlineData(typeof(Oracle.ManagedDataAccess.Client.OracleCommand))]
    [InlineData(typeof(Oracle.DataAccess.Client.OracleCommand))]
    [InlineData(typeof(System.Data.OracleClient.OracleCommand))]
    public void CommandsOfOracleAreKnown(Type type)
    {
        var command = (StandInCommand)Activator.CreateInstance(type)!;
        command.CommandText = "INSERT INTO \"Orders\" VALUES (q'[hunter2]')";
        Assert.Equal(
            [
                "INSERT Orders (Client)",
                "db.system.name=oracle.db",
                "db.query.text=INSERT INTO \"Orders\" VALUES (?)",
                "db.operation.name=INSERT",
                "db.query.summary=INSERT Orders",
                "server.address=db.example.com",
                "server.port=1521",
            ],
            KnownCall.Lines(KnownCall.Begin(command, "ExecuteNonQuery")));
    }

    [Fact]
    public void WhatFailsOrHangsIsLeftOut()
    {
        for (var time = 0; time < 5; time++)
        {
            var throwing = new Npgsql.ThrowingCommand();
            Assert.Equal(["postgresql (Client)", "db.system.name=postgresql"], KnownCall.Lines(KnownCall.Begin(throwing, "ExecuteReader")));
        }
        Assert.Equal(PropertyReader.MaxStrikes, Npgsql.ThrowingCommand.Reads);
        for (var time = 0; time < 5; time++)
        {
            KnownCall.Begin(new Npgsql.HangingCommand(), "ExecuteReader");
        }
        Assert.Equal(PropertyReader.MaxStrikes, Npgsql.HangingCommand.Reads);
    }

    [Fact]
    public void CommandsOfUnknownSystemsAreNotTouched()
    {
        Assert.Null(KnownCall.Convention(typeof(StandInCommand), nameof(StandInCommand.ExecuteReader)));
        Assert.Null(KnownCall.Convention(typeof(SqlCommand), "Prepare"));
        Assert.Null(KnownCall.Convention(typeof(SqlConnection), "Open"));
    }

    [Theory]
    [InlineData("db.example.com", "db.example.com", null, null)]
    [InlineData("tcp:db,1433", "db", 1433, null)]
    [InlineData(" db\\instance , 1433 ", null, null, null)]
    [InlineData("db\\instance,1433", "db", 1433, "instance")]
    [InlineData("(local)", "(local)", null, null)]
    [InlineData("(localdb)\\MSSQLLocalDB", "(localdb)", null, "MSSQLLocalDB")]
    [InlineData(".\\SQLEXPRESS", ".", null, "SQLEXPRESS")]
    [InlineData("tcp://db:5432", "db", 5432, null)]
    [InlineData("db:1521/orders", "db", 1521, null)]
    [InlineData("//db:1521/orders", "db", 1521, null)]
    [InlineData("np:\\\\db\\pipe\\sql\\query", null, null, null)]
    [InlineData("::1", "::1", null, null)]
    [InlineData("(DESCRIPTION=(ADDRESS=(PROTOCOL=TCP)(HOST=db)(PORT=1521))(SECURITY=(PASSWORD=hunter2)))", "db", 1521, null)]
    [InlineData("(DESCRIPTION=hunter2", null, null, null)]
    [InlineData("Server=db;Password=hunter2", null, null, null)]
    [InlineData("user:hunter2@db", null, null, null)]
    [InlineData("user/hunter2@db", null, null, null)]
    [InlineData("db,hunter2", null, null, null)]
    [InlineData("C:\\data\\hunter2.db", null, null, null)]
    [InlineData("", null, null, null)]
    internal void SourcesNameServers(string text, string? server, int? port, string? instance)
    {
        var source = DataSource.Of(text);
        Assert.Equal(server, source.Server);
        Assert.Equal(port, source.Port);
        Assert.Equal(instance, source.Instance);
    }
}
