using Corvane.Instrumentation.Privacy;
using Xunit;

namespace Kite.Managed.Tests.Privacy;

public class SecretNamesTests
{
    [Theory]
    [InlineData("password")]
    [InlineData("Password")]
    [InlineData("user_password_hash")]
    [InlineData("PASSWD")]
    [InlineData("pwd")]
    [InlineData("passPhrase")]
    [InlineData("clientSecret")]
    [InlineData("cancellationToken")]
    [InlineData("x-api-key")]
    [InlineData("API KEY")]
    [InlineData("apikey")]
    [InlineData("NetworkCredential")]
    [InlineData("authorization")]
    [InlineData("set_Cookie")]
    [InlineData("connectionString")]
    [InlineData("connection_string")]
    [InlineData("ConnStr")]
    [InlineData("PaSsWoRd")]
    public void ANameThatSaysSoIsSecret(string name) => Assert.True(SecretNames.IsSecret(name));

    [Theory]
    [InlineData("")]
    [InlineData("name")]
    [InlineData("count")]
    [InlineData("pass")]
    [InlineData("secre")]
    [InlineData("author")]
    [InlineData("connection")]
    public void AnotherNameIsNot(string name) => Assert.False(SecretNames.IsSecret(name));
}
