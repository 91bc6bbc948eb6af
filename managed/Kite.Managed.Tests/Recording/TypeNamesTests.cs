using System;
using System.Collections.Generic;
using System.Linq;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class TypeNamesTests
{
    private class Outer<T>
    {
        public class Plain;

        public class Inner<TFirst, TSecond>
        {
            public T? Value { get; set; }
        }
    }

    [Theory]
    [InlineData(typeof(int), "System.Int32")]
    [InlineData(typeof(int?), "System.Nullable<System.Int32>")]
    [InlineData(typeof(string[]), "System.String[]")]
    [InlineData(typeof(int[][,]), "System.Int32[][,]")]
    [InlineData(typeof(int[,,][]), "System.Int32[,,][]")]
    [InlineData(typeof(int*), "System.Int32*")]
    [InlineData(typeof(List<int[]>), "System.Collections.Generic.List<System.Int32[]>")]
    [InlineData(typeof(Dictionary<string, List<char>>),
        "System.Collections.Generic.Dictionary<System.String, System.Collections.Generic.List<System.Char>>")]
    [InlineData(typeof(Dictionary<,>), "System.Collections.Generic.Dictionary<TKey, TValue>")]
    [InlineData(typeof(List<int>.Enumerator), "System.Collections.Generic.List<System.Int32>.Enumerator")]
    [InlineData(typeof(Outer<int>.Plain), "Kite.Managed.Tests.Recording.TypeNamesTests.Outer<System.Int32>.Plain")]
    [InlineData(typeof(Outer<int>.Inner<char, bool[]>),
        "Kite.Managed.Tests.Recording.TypeNamesTests.Outer<System.Int32>.Inner<System.Char, System.Boolean[]>")]
    public void ATypeIsNamedAsInSource(Type type, string name) => Assert.Equal(name, TypeNames.Of(type));

    [Fact]
    public void AByReferenceTypeSaysSo() => Assert.Equal("ref System.Int32", TypeNames.Of(typeof(int).MakeByRefType()));

    [Fact]
    public void AGlobalTypeHasNoNamespace() => Assert.Equal("Program", TypeNames.Of(typeof(Program)));

    [Fact]
    public void NestingWithoutEndIsCutOff()
    {
        var type = Enumerable.Range(0, 100).Aggregate(typeof(int), (inner, _) => typeof(List<>).MakeGenericType(inner));
        Assert.Equal(
            string.Concat(Enumerable.Repeat("System.Collections.Generic.List<", 9)) + "..." + new string('>', 9),
            TypeNames.Of(type));
    }
}
