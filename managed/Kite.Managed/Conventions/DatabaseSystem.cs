using System;
using System.Collections.Generic;
using Corvane.Instrumentation.Privacy;

namespace Corvane.Instrumentation.Conventions;

// What a command's type says of its database. The names are those of the semantic conventions.
internal sealed class DatabaseSystem
{
    private static readonly DatabaseSystem[] all =
    [
        new("System.Data.SqlClient.", "microsoft.sql_server", SqlDialect.SqlServer),
        new("Microsoft.Data.SqlClient.", "microsoft.sql_server", SqlDialect.SqlServer),
        new("Oracle.DataAccess.", "oracle.db", SqlDialect.Standard),
        new("Oracle.ManagedDataAccess.", "oracle.db", SqlDialect.Standard),
        new("System.Data.OracleClient.", "oracle.db", SqlDialect.Standard),
        new("Npgsql.", "postgresql", SqlDialect.Standard),
        new("MySql.Data.", "mysql", SqlDialect.Unknown),
        new("MySqlConnector.", "mysql", SqlDialect.Unknown),
        new("Microsoft.Data.Sqlite.", "sqlite", SqlDialect.Unknown, isServer: false),
        new("System.Data.SQLite.", "sqlite", SqlDialect.Unknown, isServer: false),
    ];

    // By the names that activities give, of these conventions or of older ones. What speaks no SQL is not among them.
    private static readonly Dictionary<string, SqlDialect> dialects = new Dictionary<string, SqlDialect>(StringComparer.OrdinalIgnoreCase)
    {
        ["microsoft.sql_server"] = SqlDialect.SqlServer,
        ["mssql"] = SqlDialect.SqlServer,
        ["oracle"] = SqlDialect.Standard,
        ["oracle.db"] = SqlDialect.Standard,
        ["postgresql"] = SqlDialect.Standard,
        ["mysql"] = SqlDialect.Unknown,
        ["mariadb"] = SqlDialect.Unknown,
        ["sqlite"] = SqlDialect.Unknown,
        ["db2"] = SqlDialect.Unknown,
        ["ibm.db2"] = SqlDialect.Unknown,
        ["firebird"] = SqlDialect.Unknown,
        ["firebirdsql"] = SqlDialect.Unknown,
        ["cockroachdb"] = SqlDialect.Unknown,
        ["clickhouse"] = SqlDialect.Unknown,
        ["sap.hana"] = SqlDialect.Unknown,
        ["hanadb"] = SqlDialect.Unknown,
        ["other_sql"] = SqlDialect.Unknown,
    };

    private DatabaseSystem(string prefix, string name, SqlDialect dialect, bool isServer = true)
    {
        Prefix = prefix;
        Name = name;
        Dialect = dialect;
        IsServer = isServer;
    }

    internal string Name { get; }

    internal SqlDialect Dialect { get; }

    // Otherwise the source of a connection is a file.
    internal bool IsServer { get; }

    private string Prefix { get; }

    // Null for a type of no system that is known: what its properties do is not known either.
    internal static DatabaseSystem? Of(string type) =>
        Array.Find(all, system => type.StartsWith(system.Prefix, StringComparison.Ordinal));

    // Of the queries of an activity; null if they are not known to be SQL.
    internal static SqlDialect? DialectOf(string source, string? system) =>
        Of(source + ".")?.Dialect ?? (system != null && dialects.TryGetValue(system, out var dialect) ? dialect : null);
}
