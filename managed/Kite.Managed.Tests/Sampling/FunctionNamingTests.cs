using Corvane.Sampling;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class FunctionNamingTests
{
    [Theory]
    [InlineData("Shop.Cart", "Add", "Shop.Cart.Add")]
    [InlineData("Shop.Cart", ".ctor", "Shop.Cart..ctor")]
    [InlineData("", "Main", "Main")]
    [InlineData(null, "Main", "Main")]
    [InlineData("System.Collections.Generic.List`1", "Add", "System.Collections.Generic.List`1.Add")]
    // async methods and iterators
    [InlineData("Shop.<PriceAsync>d__2", "MoveNext", "Shop.PriceAsync")]
    [InlineData("Shop.<PriceAsync>d__2`1", "MoveNext", "Shop.PriceAsync")]
    [InlineData("<PriceAsync>d__2", "MoveNext", "PriceAsync")]
    [InlineData("Shop.<PriceAsync>d__2", "SetStateMachine", "Shop.<PriceAsync>d__2.SetStateMachine")]
    [InlineData("Program.<<Main>$>d__0", "MoveNext", "Program.Main")]
    // lambdas
    [InlineData("Shop.<>c", "<PriceAsync>b__2_0", "Shop.PriceAsync (lambda)")]
    [InlineData("Shop.<>c__DisplayClass2_0", "<PriceAsync>b__1", "Shop.PriceAsync (lambda)")]
    [InlineData("Shop", "<PriceAsync>b__1", "Shop.PriceAsync (lambda)")]
    [InlineData("<>c", "<.ctor>b__1", ".ctor (lambda)")]
    [InlineData("Program.<>c.<<<Main>$>b__0_1>d", "MoveNext", "Program.Main (lambda)")]
    [InlineData("Shop.<>c__DisplayClass0_0.<<Run>b__0>d", "MoveNext", "Shop.Run (lambda)")]
    // local functions
    [InlineData("Shop", "<Main>g__Add|0_0", "Shop.Main (Add)")]
    [InlineData("Shop.<<Main>g__Add|0_0>d", "MoveNext", "Shop.Main (Add)")]
    [InlineData("Program", "<<Main>$>g__Add|0_0", "Program.Main (Add)")]
    // an implementation of an interface
    [InlineData("Shop", "A.IPrices<B.C>.Get", "Shop.A.IPrices<B.C>.Get")]
    [InlineData("Shop.<A.IPrices<B.C>.Get>d__3", "MoveNext", "Shop.A.IPrices<B.C>.Get")]
    // what is none of these stays
    [InlineData("<", "MoveNext", "<.MoveNext")]
    [InlineData("<>", "<>", "<>.<>")]
    [InlineData("<>d", "MoveNext", "<>d.MoveNext")]
    [InlineData("", "<a", "<a")]
    [InlineData("", "<a>x", "<a>x")]
    [InlineData("", "<a>g__", "<a>g__")]
    [InlineData("Program", "<Main>", "Program.Main")]
    [InlineData("<Module>", "<a", "<Module>.<a")]
    [InlineData(">>.<<", "MoveNext", ">>.<<.MoveNext")]
    public void ANameIsTheAuthors(string? type, string method, string name) => Assert.Equal(name, FunctionNaming.Name(type, method));
}
