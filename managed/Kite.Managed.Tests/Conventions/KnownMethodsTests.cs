using System;
using System.Linq;
using System.Reflection;
using Corvane.Instrumentation.Conventions;
using Xunit;

namespace Kite.Managed.Tests.Conventions;

public class KnownMethodsTests
{
    [Fact]
    public void MostMethodsAreNotKnown()
    {
        Assert.Null(KnownMethods.Find(null));
        Assert.Null(KnownMethods.Find(typeof(string).GetMethod(nameof(string.Clone))));
        Assert.Null(KnownMethods.Find(new FakeMethod(() => [])));
        Assert.Null(KnownMethods.Find(typeof(KnownMethodsTests).GetMethod(nameof(MostMethodsAreNotKnown))));
        Assert.DoesNotContain(typeof(object).Assembly.GetTypes().SelectMany(type => type.GetMethods((BindingFlags)62)), method => KnownMethods.Find(method) != null);
    }

    [Fact]
    public void AMethodHasOneConvention()
    {
        var method = typeof(System.Data.SqlClient.SqlCommand).GetMethod("ExecuteScalar", Type.EmptyTypes);
        Assert.NotNull(KnownMethods.Find(method));
        Assert.NotSame(KnownMethods.Find(method), KnownMethods.Find(typeof(System.Net.HttpWebRequest).GetMethod("GetResponse")));
    }
}
