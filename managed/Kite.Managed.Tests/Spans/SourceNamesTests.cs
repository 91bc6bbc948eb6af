using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Spans;

public class SourceNamesTests
{
    [Theory]
    [InlineData(null, "Microsoft.AspNetCore", true)]
    [InlineData(null, "System.Net.Http", true)]
    [InlineData(null, "Npgsql", true)]
    [InlineData(null, "MySqlConnector", true)]
    [InlineData(null, "Microsoft.Data.SqlClient", true)]
    [InlineData(null, "System.Net.Http.Other", false)]
    [InlineData(null, "Shop", false)]
    [InlineData(null, "", false)]
    [InlineData(" Shop ;Bank,, Post.*", "Shop", true)]
    [InlineData(" Shop ;Bank,, Post.*", "Bank", true)]
    [InlineData(" Shop ;Bank,, Post.*", "Post.Office", true)]
    [InlineData(" Shop ;Bank,, Post.*", "Post", false)]
    [InlineData(" Shop ;Bank,, Post.*", "shop", false)]
    [InlineData(" Shop ;Bank,, Post.*", "System.Net.Http", true)]
    [InlineData("*", "Anything", true)]
    [InlineData("*", "Corvane.Instrumentation", false)]
    [InlineData("Corvane.Instrumentation", "Corvane.Instrumentation", false)]
    public void AreTheUsualOnesAndThoseThatAreAdded(string? added, string source, bool isContained) =>
        Assert.Equal(isContained, new SourceNames(added).Contain(source));
}
