using System;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Text.RegularExpressions;
using Corvane.Instrumentation.Conventions;
using Xunit;

namespace Kite.Managed.Tests.Conventions;

public partial class KnownMethodsTests
{
    // Of the rest there is nothing to tell but the name.
    private static readonly string[] plain =
    [
        "System.Web.Mvc.ViewResultBase.ExecuteResult",
        "System.Web.Mvc.MvcHandler.EndProcessRequest",
        "System.ServiceModel.ServiceHostBase.InitializeRuntime",
        "System.ServiceModel.Dispatcher.ImmutableClientRuntime.BeforeSendRequest",
        "System.ServiceModel.Dispatcher.ImmutableDispatchRuntime.PrepareAndAddressReply",
        "System.ServiceModel.Dispatcher.ImmutableClientRuntime.AfterReceiveReply",
        "System.ServiceModel.Channels.HttpRequestContext.PrepareReply",
        "System.ServiceModel.Channels.ServiceChannel.SendAsyncResult.CallComplete",
        "System.ServiceModel.Channels.ServiceChannel.HandleReply",
        "System.ServiceModel.Dispatcher.ImmutableDispatchRuntime.PrepareReply",
        "Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod",
        "Corvane.Instrumentation.MultipleExitPoints.SomeVoidMethod",
        "Corvane.Instrumentation.MethodArguments.InstrumentedMethod",
        "Corvane.BVT.Activator.Activate",
        "System.Web.ThreadContext.AssociateWithCurrentThread",
        "System.Web.ThreadContext.DisassociateFromCurrentThread",
        "Corvane.Instrumentation.Internals.TraceBase.LoadHandler",
        "System.ServiceProcess.ServiceBase.ServiceMainCallback",
    ];

    [Fact]
    public void EveryMethodOfTheProfilersTableIsKnownOrPlain()
    {
        using var source = new StreamReader(typeof(KnownMethodsTests).Assembly.GetManifestResourceStream("target_methods.cpp")!);
        var rows = Row().Matches(source.ReadToEnd()).Select(row => (Type: row.Groups[1].Value, Method: row.Groups[2].Value)).ToArray();
        Assert.Equal(67, rows.Length);
        Assert.Equal(plain, rows.Where(row => KnownMethods.Find(row.Type, row.Method) == null).Select(row => $"{row.Type}.{row.Method}"));
    }

    [Fact]
    public void MostMethodsAreNotKnown()
    {
        Assert.Null(KnownMethods.Find(null));
        Assert.Null(KnownMethods.Find(new FakeMethod(() => [])));
        Assert.DoesNotContain(typeof(object).Assembly.GetTypes().SelectMany(type => type.GetMethods((BindingFlags)62)), method => KnownMethods.Find(method) != null);
    }

    [GeneratedRegex("""\{\{L"([\w.]+?)\.(\.?\w+)",""")]
    private static partial Regex Row();
}
