using System;
using System.Diagnostics;
using System.Linq;
using System.Net;
using System.Threading;
using Corvane.Instrumentation.Conventions;
using Xunit;

namespace Kite.Managed.Tests.Conventions;

public class PropertyReaderTests
{
    private static object? Read(object? from, string name) => new PropertyReader(name).Read(from);

    [Fact]
    public void PropertiesOfAnyTypeAreRead()
    {
        Assert.Equal("text", Read(new Plain(), "Text"));
        Assert.Equal(5, Read(new Plain(), "Number"));
        Assert.Null(Read(new Plain(), "Nothing"));
        Assert.Equal("own", Read(new Plain(), "Own"));
        Assert.Equal("overridden", Read(new Derived(), "Virtual"));
        Assert.Equal("hidden by this", Read(new Derived(), "Hidden"));
        Assert.Equal("text", Read(new Derived(), "Text"));
        Assert.Equal(404, new PropertyReader("Code").ReadNumber(new Plain()));
        Assert.Equal(5, new PropertyReader("Number").ReadNumber(new Plain()));
        Assert.Equal("text", new PropertyReader("Text").ReadText(new Derived()));
    }

    [Fact]
    public void WhatCannotBeReadIsNull()
    {
        Assert.Null(Read(null, "Text"));
        Assert.Null(Read(new Plain(), "Missing"));
        Assert.Null(Read(new Plain(), "Item"));
        Assert.Null(Read(new Plain(), "WriteOnly"));
        Assert.Null(Read(new Plain(), "ByReference"));
        Assert.Null(Read(5, "Text"));
        Assert.Null(Read(new DateTime(2026, 1, 1), "Year"));
        Assert.Null(new PropertyReader("Text").ReadNumber(new Plain()));
        Assert.Null(new PropertyReader("Number").ReadText(new Plain()));
    }

    [Fact]
    public void OneThatThrowsThreeTimesIsNotReadAnyMoreForItsType()
    {
        var reader = new PropertyReader("Value");
        var throwing = new Throwing();
        for (var time = 0; time < 10; time++)
        {
            Assert.Null(reader.Read(throwing));
        }
        Assert.Equal(PropertyReader.MaxStrikes, throwing.Reads);
        Assert.Equal("other", reader.Read(new Other()));
    }

    [Fact]
    public void OneThatHangsThreeTimesIsNotReadAnyMore()
    {
        var reader = new PropertyReader("Value");
        var hanging = new Hanging();
        for (var time = 0; time < 10; time++)
        {
            Assert.Equal(time < PropertyReader.MaxStrikes ? "late" : null, reader.Read(hanging));
        }
        Assert.Equal(PropertyReader.MaxStrikes, hanging.Reads);
    }

    // As a thread does that the system stops in the midst of a read, now and then.
    [Theory]
    [InlineData(PropertyReader.QuickReads, true)]
    [InlineData(PropertyReader.QuickReads - 1, false)]
    public void ASlowReadIsForgivenAfterManyQuickOnes(int quick, bool isForgiven)
    {
        var now = 0L;
        var reads = 0;
        var reader = new PropertyReader("Value", () => now);
        var seldom = new SeldomHanging(() => now += ++reads % (quick + 1) == 0 ? Stopwatch.Frequency / 500 : 0);
        var values = Enumerable.Range(0, 10 * (quick + 1)).Select(_ => reader.Read(seldom)).ToList();
        Assert.Equal(isForgiven ? values.Count : PropertyReader.MaxStrikes * (quick + 1), values.Count(value => value != null));
    }

    [Fact]
    public void AnInterruptIsTheProgramsOwn()
    {
        var reader = new PropertyReader("Value");
        Assert.Throws<ThreadInterruptedException>(() => reader.Read(new Interrupted()));
    }

    private class Plain
    {
        public string Text => "text";

        public int Number => 5;

        public object? Nothing => null;

        public HttpStatusCode Code => HttpStatusCode.NotFound;

        public virtual string Virtual => "base";

        public object Hidden => "hidden";

        public string WriteOnly
        {
            set => _ = value;
        }

        public ref int ByReference => ref field[0];

        private readonly int[] field = [1];

        private string Own => "own";

        public string this[int index] => "item";
    }

    private sealed class Derived : Plain
    {
        public override string Virtual => "overridden";

        public new string Hidden => "hidden by this";
    }

    private sealed class Throwing
    {
        public int Reads { get; private set; }

        public string Value
        {
            get
            {
                Reads++;
                throw new InvalidOperationException();
            }
        }
    }

    private sealed class Other
    {
        public string Value => "other";
    }

    private sealed class Hanging
    {
        public int Reads { get; private set; }

        public string Value
        {
            get
            {
                Reads++;
                Thread.Sleep(50);
                return "late";
            }
        }
    }

    private sealed class SeldomHanging(Action hang)
    {
        public string Value
        {
            get
            {
                hang();
                return "value";
            }
        }
    }

    private sealed class Interrupted
    {
        public string Value => throw new ThreadInterruptedException();
    }
}
