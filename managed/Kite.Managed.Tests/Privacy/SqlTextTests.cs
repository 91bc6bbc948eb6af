using System;
using System.Linq;
using Corvane.Instrumentation.Privacy;
using Xunit;

namespace Kite.Managed.Tests.Privacy;

public class SqlTextTests
{
    [Theory]
    // Strings
    [InlineData("SELECT * FROM t WHERE a = 'hunter2' AND b = 'it''s hunter2'", "SELECT * FROM t WHERE a = ? AND b = ?")]
    [InlineData("SELECT N'hunter2', X'AB', b'01', ''", "SELECT ?, ?, ?, ?")]
    [InlineData("WHERE a LIKE'hunter2%'OR 1=1", "WHERE a LIKE?OR ?=?")]
    [InlineData("SELECT 'C:\\', name FROM t", "SELECT ?, name FROM t")]
    [InlineData("SELECT E'it\\'s hunter2', name", "SELECT ?, name")]
    [InlineData("SELECT $$it's hunter2$$, $tag$ $$ hunter2 $tag$, name", "SELECT ?, ?, name")]
    [InlineData("SELECT q'[it's hunter2]', nq'!it's hunter2!', name", "SELECT ?, ?, name")]
    // Numbers
    [InlineData("SELECT 1, -2.5, .5, 1e-5, 0xBADCAFE, 1_000, $12.50, t1.c2 FROM t1", "SELECT ?, -?, ?, ?, ?, ?, ?, t1.c2 FROM t1")]
    [InlineData("SELECT a-1, a--1\n, b", "SELECT a-?, a , b")]
    // Names and parameters
    [InlineData("SELECT \"first name\", \"a\"\"b\" FROM \"s\".\"t 2\"", "SELECT \"first name\", \"a\"\"b\" FROM \"s\".\"t 2\"")]
    [InlineData("WHERE a = @p1 AND b = :name AND c = ? AND d::text = e", "WHERE a = @p1 AND b = :name AND c = ? AND d::text = e")]
    [InlineData("SELECT ARRAY['hunter2', 5]", "SELECT ARRAY[?, ?]")]
    // Lists
    [InlineData("WHERE a IN ('hunter2', 'b',5) AND b IN(1,2) OR c in (@a, @b)", "WHERE a IN (?) AND b IN(?) OR c in (@a, @b)")]
    [InlineData("INSERT INTO t (a, b) VALUES ('hunter2', 5)", "INSERT INTO t (a, b) VALUES (?, ?)")]
    [InlineData("WHERE f(IN, 1, 2)", "WHERE f(IN, ?, ?)")]
    // Comments
    [InlineData("/* hunter2 */ SELECT a -- hunter2\r\n FROM/**/t --", "SELECT a FROM t")]
    [InlineData("SELECT '--', '/*' FROM t", "SELECT ?, ? FROM t")]
    // Blanks
    [InlineData("  SELECT\r\n\t a ", "SELECT a")]
    [InlineData("", "")]
    public void LiteralsAndCommentsGo(string text, string shown) => Assert.Equal(shown, SqlText.Of(text, SqlDialect.Standard).Text);

    [Theory]
    [InlineData("SELECT 'hunter2", "SELECT ?...")]
    [InlineData("SELECT $x$ hunter2", "SELECT ?...")]
    [InlineData("SELECT q'[hunter2", "SELECT ?...")]
    [InlineData("SELECT a \"hunter2", "SELECT a ...")]
    [InlineData("SELECT a /* hunter2", "SELECT a ...")]
    [InlineData("SELECT a /* b /* c */ hunter2 */", "SELECT a ...")]
    [InlineData("SELECT a -- b\rhunter2\n", "SELECT a ...")]
    [InlineData("ALTER USER scott IDENTIFIED BY hunter2", "ALTER USER scott IDENTIFIED...")]
    [InlineData("create user scott identified by \"hunter2\"", "create user scott identified...")]
    public void WhatIsNotClearEndsTheText(string text, string shown) => Assert.Equal(shown, SqlText.Of(text, SqlDialect.Standard).Text);

    [Theory]
    [InlineData("SELECT [first 2], [it's], [a]]b], #t1.c FROM [dbo].[t]", "SELECT [first 2], [it's], [a]]b], #t1.c FROM [dbo].[t]")]
    [InlineData("SELECT [it's] WHERE a = 'hunter2'", "SELECT [it's] WHERE a = ?")]
    [InlineData("SELECT [hunter2", "SELECT ...")]
    [InlineData("IF a LIKE N'a\\_b' ESCAPE N'\\' OR 1=1", "IF a LIKE ? ESCAPE ? OR ?=?")]
    public void BracketsHoldNamesOfSqlServer(string text, string shown) => Assert.Equal(shown, SqlText.Of(text, SqlDialect.SqlServer).Text);

    // Bare words and those in double quotes are strings there.
    [Theory]
    [InlineData("EXEC sp_addlogin joe, hunter2", "EXEC sp_addlogin ...")]
    [InlineData("EXECUTE @rc = [dbo].[p] @a, \"hunter2\"", "EXECUTE @rc = [dbo].[p] @a, ...")]
    [InlineData("SET NOCOUNT ON exec dbo..p 5, 'a', [hunter2]", "SET NOCOUNT ON exec dbo..p ?, ?, ...")]
    [InlineData("EXEC p @a = 5, @b OUTPUT; SELECT a FROM t", "EXEC p @a = ?, @b ...")]
    [InlineData("EXEC p @a = 5; SELECT a FROM t", "EXEC p @a = ?; SELECT a FROM t")]
    [InlineData("sp_addlogin joe, hunter2", "sp_addlogin ...")]
    [InlineData("[dbo].[p] hunter2", "[dbo].[p] ...")]
    [InlineData("IF EXISTS (SELECT a FROM t) UPDATE t SET a = 5", "IF EXISTS (SELECT a FROM t) UPDATE t SET a = ?")]
    public void WhatAProcedureGetsOfWordsEndsTheText(string text, string shown)
    {
        Assert.Equal(shown, SqlText.Of(text, SqlDialect.SqlServer).Text);
        Assert.DoesNotContain("hunter2", text.StartsWith("EXEC") ? SqlText.Of(text, SqlDialect.Unknown).Text : "");
    }

    [Theory]
    [InlineData("INSERT INTO t VALUES('hunter2')", "INSERT INTO t VALUES(?)")]
    [InlineData("  (select 'hunter2')", "(select ?)")]
    [InlineData("SELECT'hunter2'", "SELECT?")]
    [InlineData("-- a\nVALUES('hunter2')", "VALUES(?)")]
    [InlineData("/* a */ VALUES('hunter2')", "VALUES(?)")]
    [InlineData("set-1", null)]
    [InlineData("SELECT", null)]
    [InlineData("selected 'a'", null)]
    [InlineData("a SELECT 'b'", null)]
    [InlineData("", null)]
    public void AQueryIsKnownByItsBegin(string text, string? shown) => Assert.Equal(shown, SqlText.OfQuery(text));

    // To one database or another one the secret is a string or a comment, or what is around it is none.
    [Theory]
    [InlineData("WHERE a = \"hunter2\" AND b", "WHERE a = ? AND b")]
    [InlineData("WHERE a = \"hun\"\"ter2\" AND b", "WHERE a = ? AND b")]
    [InlineData("SELECT 'a\\\\', b", "SELECT ?, b")]
    [InlineData("SELECT 'a\\', 'hunter2'", "SELECT ?...")]
    [InlineData("SELECT 'a\\' hunter2', b", "SELECT ?...")]
    [InlineData("SELECT `a`, [b 2] FROM `s`.`t`", "SELECT `a`, [b 2] FROM `s`.`t`")]
    [InlineData("SELECT `it's` WHERE a = 'hunter2'", "SELECT ...")]
    [InlineData("SELECT [it's] WHERE a = 'hunter2'", "SELECT ...")]
    [InlineData("SELECT a # hunter2", "SELECT a ...")]
    [InlineData("SELECT a --hunter2", "SELECT a ...")]
    [InlineData("SELECT q'[it's hunter2]'", "SELECT ...")]
    [InlineData("SELECT E'it\\'s hunter2'", "SELECT ...")]
    [InlineData("PRAGMA key = hunter2", "PRAGMA...")]
    public void MoreGoesWhereTheDatabaseIsNotKnown(string text, string shown) => Assert.Equal(shown, SqlText.Of(text, SqlDialect.Unknown).Text);

    [Theory]
    [InlineData("SELECT a FROM dbo.Orders WHERE b", "SELECT", "dbo.Orders")]
    [InlineData("select (select 1 from x) from [dbo].[Order Lines] l", "SELECT", "dbo.Order Lines")]
    [InlineData("WITH c AS (SELECT a FROM x) SELECT b FROM c, d", "SELECT", "c")]
    [InlineData("SET NOCOUNT ON; INSERT INTO #t(a) VALUES (1)", "INSERT", "#t")]
    [InlineData("UPDATE t SET a = 1 FROM b", "UPDATE", "t")]
    [InlineData("DELETE FROM t", "DELETE", "t")]
    [InlineData("MERGE INTO t USING s", "MERGE", "t")]
    [InlineData("CREATE TABLE IF NOT EXISTS t (a int)", "CREATE", "t")]
    [InlineData("EXEC dbo.GetOrders @id = 5", "EXEC", "dbo.GetOrders")]
    [InlineData("-- a note\n SELECT 1", "SELECT", null)]
    [InlineData("SELECT a FROM 'hunter2'", "SELECT", null)]
    [InlineData("EXEC('hunter2')", "EXEC", null)]
    [InlineData("hunter2 SELECT a FROM t", null, null)]
    [InlineData("", null, null)]
    public void OperationAndTargetAreFound(string text, string? operation, string? target)
    {
        var sql = SqlText.Of(text, SqlDialect.SqlServer);
        Assert.Equal(operation, sql.Operation);
        Assert.Equal(target, sql.Target);
    }

    // Any two pieces may follow each other. The secret is never outside of a literal, as the dialect has it.
    [Theory]
    [InlineData(SqlDialect.Standard)]
    [InlineData(SqlDialect.SqlServer)]
    [InlineData(SqlDialect.Unknown)]
    internal void ASecretInALiteralIsNeverShown(SqlDialect dialect)
    {
        string[] pieces =
        [
            "'hunter2'", "N'hun''hunter2'", "'hunter2\"'", "'hunter2[`'", "'/* hunter2'", "'-- hunter2'", "'$$ hunter2'", "/* ' hunter2 */",
            "-- ' hunter2\n", "IN ('a', 'hunter2')", "'hunter2\\\\'", "SELECT a", "FROM t", "a1", ",", "(", ")", "5", "-", "1e", " ", "@p",
            .. dialect == SqlDialect.Standard ? new[] { "\"it's\"", "$$'hunter2$$", "$a$'$$hunter2$a$", "E'hunter2\\'hunter2'", "q'['hunter2]'", "'\\'" } : [],
            .. dialect == SqlDialect.SqlServer ? new[] { "\"it's\"", "[it's]", "'hunter2\\'", "[\"]", "#t" } : [],
            .. dialect == SqlDialect.Unknown ? new[] { "\"hunter2\"", "\"'hunter2\"", "'\"hunter2'", "`a`" } : [],
        ];
        var random = new Random(7);
        for (var round = 0; round < 20_000; round++)
        {
            // A blank keeps two strings from being one with a doubled quote.
            var text = string.Join(" ", Enumerable.Range(0, random.Next(1, 8)).Select(_ => pieces[random.Next(pieces.Length)]));
            var sql = SqlText.Of(text, dialect);
            Assert.False($"{sql.Text}{sql.Operation}{sql.Target}".Contains("hunter2"), $"{text} => {sql.Text}");
        }
    }

    [Fact]
    public void LengthIsBounded()
    {
        var sql = SqlText.Of("SELECT " + string.Concat(Enumerable.Repeat("column, ", 10_000)), SqlDialect.Standard);
        Assert.Equal(SqlText.MaxText + 3, sql.Text.Length);
        Assert.EndsWith("...", sql.Text);
        Assert.Equal(SqlText.MaxText + 3, SqlText.Of(new string('a', 5_000), SqlDialect.Standard).Text.Length);
        Assert.Equal("a IN (?...", SqlText.Of($"a IN ({string.Join(", ", Enumerable.Range(0, 100_000))})", SqlDialect.Standard).Text);
    }

    [Theory]
    [InlineData("'")]
    [InlineData("(")]
    [InlineData("[")]
    [InlineData("\"")]
    [InlineData("$a$ ")]
    [InlineData("$a")]
    [InlineData("--\n")]
    [InlineData("/**/")]
    [InlineData("'' ")]
    [InlineData("IN (1,")]
    [InlineData("FROM ")]
    public void TakesOnePass(string piece)
    {
        var text = string.Concat(Enumerable.Repeat(piece, SqlText.MaxRead / piece.Length));
        var took = ProcessorTime.Of(() =>
        {
            foreach (var dialect in new[] { SqlDialect.Standard, SqlDialect.SqlServer, SqlDialect.Unknown })
            {
                _ = SqlText.Of(text, dialect);
            }
        });
        Assert.InRange(took.TotalMilliseconds, 0, 500);
    }
}
