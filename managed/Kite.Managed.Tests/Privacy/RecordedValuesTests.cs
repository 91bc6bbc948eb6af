// What of a call's values is in its line, by the mode of recording and by the names around them.
using System;
using System.Linq;
using System.Threading.Tasks;
using Corvane.Instrumentation.Privacy;
using Xunit;

namespace Kite.Managed.Tests.Privacy;

public class RecordedValuesTests
{
    private static string Line(RecordedValues values, Type type, string method, object?[] arguments, object? result, object?[]? atExit = null)
    {
        var recording = new RecordedCalls(values: values).With(0, method, type);
        recording.Enter(0, arguments);
        recording.LeaveWith(0, atExit ?? new object?[arguments.Length], result);
        return recording.Tree()[1].Trim().Replace($"{type.FullName!.Replace('+', '.')}.", "");
    }

    [Theory]
    [InlineData("None", "Serve(name, count, day, at, guest)")]
    [InlineData("Safe", "Serve(name: {7 characters}, count: 2, day: Friday, at: 1.00:00:00, guest: {System.Object}) = {1 character}")]
    [InlineData("All", "Serve(name: \"hunter2\", count: 2, day: Friday, at: 1.00:00:00, guest: {System.Object}) = 'x'")]
    public void ValuesAreShownAsTheModeSays(string mode, string line) =>
        Assert.Equal(
            line,
            Line(
                Enum.Parse<RecordedValues>(mode), typeof(Bar), "Serve",
                ["hunter2", 2, DayOfWeek.Friday, TimeSpan.FromDays(1), new object()], 'x'));

    [Theory]
    [InlineData("None", "Enter(user, password)")]
    [InlineData("Safe", "Enter(user: {1 character}, password: ***) = true")]
    [InlineData("All", "Enter(user: \"a\", password: ***) = true")]
    public void ASecretParameterIsNeverShown(string mode, string line) =>
        Assert.Equal(line, Line(Enum.Parse<RecordedValues>(mode), typeof(Bar), "Enter", ["a", "hunter2"], true));

    [Theory]
    [InlineData(typeof(Bar), "get_Secret", "get_Secret() = ***")]
    [InlineData(typeof(Bar), "set_Secret", "set_Secret(value: ***)")]
    [InlineData(typeof(PasswordHasher), "Hash", "Hash(text: ***) = ***")]
    [InlineData(typeof(PasswordHasher.Inner), "Run", "Run(text: ***) = ***")]
    public void NorIsAnyValueOfASecretMethodOrType(Type type, string method, string line) =>
        Assert.Equal(line, Line(RecordedValues.All, type, method, method == "get_Secret" ? [] : ["hunter2"], method == "set_Secret" ? null : "hunter2"));

    [Fact]
    public void AnUnknownMethodsValuesMayBeSecret()
    {
        var recording = new RecordedCalls();
        recording.Enter(7, "hunter2", 2);
        recording.Leave(7, "hunter2");
        Assert.Equal("method #7(arg0: ***, arg1: ***) = ***", recording.Tree()[1].Trim());
    }

    // Another argument may be the secret that a text names.
    [Fact]
    public void NoValueIsShownBesideTheNameOfASecret()
    {
        Assert.Equal(
            "Count(kind: ***, more: ***) = ***",
            Line(RecordedValues.Safe, typeof(Shop), "Count", ["Password", 1234], 1234, ["Password", 1234]));
    }

    [Fact]
    public void AMessageMayQuoteASecret()
    {
        var recording = new RecordedCalls().With(0, "Enter", typeof(Bar)).With(1, "Hash", typeof(PasswordHasher));
        recording.Enter(0, "a", "hunter2");
        recording.Throw(new InvalidOperationException("no login for hunter2"));
        recording.Enter(1, "hunter2");
        recording.Throw(new FormatException("hunter2 is too short"));
        Assert.EndsWith(" ! System.InvalidOperationException", recording.Tree()[1]);
        Assert.EndsWith(" ! System.FormatException", recording.Tree()[2]);
    }

    // The callers get the same exception, or one around it.
    [Fact]
    public void NorIsTheMessageShownOfACallerThatTheExceptionLeaves()
    {
        var recording = new RecordedCalls().With(0, "Open").With(1, "Enter", typeof(Bar));
        var secret = new InvalidOperationException("no login for hunter2", new FormatException("hunter2"));
        Exception[] leaving =
        [
            secret, new ArgumentException("hunter2", secret), new AggregateException("hunter2", new FormatException("plain"), secret),
            new AggregateException(new TypeInitializationException("Bar", new AggregateException(secret))), secret.InnerException!,
        ];
        foreach (var exception in leaving)
        {
            recording.Enter(0);
            recording.Enter(1, "a", "hunter2");
            recording.Throw(secret);
            recording.Throw(exception);
        }
        Assert.Equal(10, recording.Tree().Count(line => line.Contains(" ! ", StringComparison.Ordinal)));
        Assert.DoesNotContain("hunter2", string.Join("", recording.Tree()));
        recording.Enter(0);
        recording.Throw(new AggregateException("another one", new FormatException("plain")));
        Assert.EndsWith(" ! System.AggregateException: another one", recording.Tree()[^2]);
    }

    [Fact]
    public void NorIsItWhereATextThatTheCallGotNamesASecret()
    {
        var recording = new RecordedCalls().With(0, "Count");
        recording.Enter(0, "DB_PASSWORD", 5);
        recording.Throw(new InvalidOperationException("no hunter2"));
        Assert.EndsWith("Count(kind: ***, more: ***) ! System.InvalidOperationException", recording.Tree()[1]);
    }

    // The tree knows nothing of tasks, and still a caller that waits may get what one failed with.
    [Theory]
    [InlineData(true)]
    [InlineData(false)]
    public void NorIsThatOfATask(bool isOver)
    {
        var recording = new RecordedCalls().With(0, "Open").With(1, "EnterLater", typeof(Bar));
        var work = new TaskCompletionSource();
        var exception = new InvalidOperationException("no login for hunter2");
        recording.Enter(0);
        recording.Enter(1, "hunter2");
        if (isOver)
        {
            work.SetException(exception);
        }
        recording.Leave(1, work.Task);
        work.TrySetException(exception);
        recording.Throw(exception);
        Assert.EndsWith("Open() ! System.InvalidOperationException", recording.Tree()[1]);
    }

    [Theory]
    [InlineData("None", "System.InvalidOperationException")]
    [InlineData("Safe", "System.InvalidOperationException")]
    [InlineData("All", "System.InvalidOperationException: no login: Server=db;Password=***")]
    public void AMessageIsAText(string mode, string outcome)
    {
        var recording = new RecordedCalls(values: Enum.Parse<RecordedValues>(mode)).With(0, "Open");
        recording.Enter(0);
        recording.Throw(new InvalidOperationException("no login: Server=db;Password=hunter2"));
        Assert.EndsWith($"Open() ! {outcome}", recording.Tree()[1]);
    }

    [Theory]
    [InlineData("INSERT INTO Users(Name,Pass)VALUES('bob','hunter2'),('eve','x1')", "\"INSERT INTO Users(Name,Pass)VALUES(?,?),(?,?)\"")]
    [InlineData("INSERT INTO Users(Name,Password)VALUES('bob','hunter2'),('eve','x1')", "***")]
    public void AQueryIsShownWithoutItsLiterals(string query, string shown)
    {
        Assert.Equal(
            $"Count(kind: {shown}, more: {(shown == "***" ? "***" : "1")})",
            Line(RecordedValues.All, typeof(Shop), "Count", [query, 1], null).Split(" = ")[0]);
        var recording = new RecordedCalls().With(0, "Open");
        recording.Enter(0);
        recording.Throw(new InvalidOperationException(query));
        Assert.DoesNotContain("hunter2", recording.Tree()[1]);
        Assert.Contains(": INSERT INTO Users(Name,Pass", recording.Tree()[1]);
    }

    [Theory]
    [InlineData(1_000, "***")]
    [InlineData(1_100, "1")]
    public void AnyTextThatIsSearchedMayNameASecret(int before, string more) =>
        Assert.EndsWith(
            $", more: {more}) = {more}", Line(RecordedValues.All, typeof(Shop), "Count", [new string('x', before) + " password", 1], 1));

    [Fact]
    public void ASecretIsHiddenBeforeItsTextIsCut()
    {
        var line = Line(
            RecordedValues.All, typeof(Shop), "Count", [new string('x', 40) + " https://user:" + new string('h', 60) + "@host", 1], 1);
        Assert.Equal($"Count(kind: \"{new string('x', 40)} https://***@host\", more: 1) = 1", line);
    }

    public class Bar
    {
        public string? Secret { get; set; }

        public static char Serve(string name, int count, DayOfWeek day, TimeSpan at, object guest) => 'x';

        public static bool Enter(string user, string password) => true;

        public static Task EnterLater(string password) => Task.CompletedTask;
    }

    public static class PasswordHasher
    {
        public static string Hash(string text) => text;

        public static class Inner
        {
            public static string Run(string text) => text;
        }
    }
}
