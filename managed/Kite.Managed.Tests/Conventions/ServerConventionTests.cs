using System.Collections.Generic;
using System.ServiceModel.Channels;
using System.ServiceModel.Dispatcher;
using System.Web.Mvc;
using Xunit;

namespace Kite.Managed.Tests.Conventions;

// The types are stand-ins with the names of the frameworks' own.
public class ServerConventionTests
{
    private static RequestContext Context(string method = "GET", string? route = "{controller}/{action}/{id}") =>
        new(method, new RouteData(route == null ? null : new Route(route)));

    [Fact]
    public void ARequestIsNamedByItsRoute()
    {
        Assert.Equal(
            ["GET {controller}/{action}/{id} (Server)", "http.route={controller}/{action}/{id}", "http.request.method=GET"],
            KnownCall.Lines(KnownCall.Begin(new MvcHandler(Context()), "BeginProcessRequest", null, null, null)));
        Assert.Equal(
            ["HTTP (Server)", "http.request.method=_OTHER"],
            KnownCall.Lines(KnownCall.Begin(new MvcHandler(Context("HUNTER2", null)), "BeginProcessRequest", null, null, null)));
    }

    [Fact]
    public void AnActionIsNamedByItsController()
    {
        var parameters = new Dictionary<string, object> { ["id"] = "hunter2" };
        Assert.Equal(
            ["Orders.Get (Internal)", "http.route={controller}/{action}/{id}"],
            KnownCall.Lines(KnownCall.Begin(new ReflectedActionDescriptor(), "Execute", Context(), parameters)));
    }

    [Fact]
    public void ACallOfAServiceNamesServiceAndMethod() =>
        Assert.Equal(
            [
                "IOrders/Get (Client)",
                "rpc.system=dotnet_wcf",
                "rpc.method=Get",
                "rpc.service=IOrders",
                "server.address=services.example.com",
                "server.port=808",
            ],
            KnownCall.Lines(KnownCall.Begin(
                new ServiceChannel(), "Call", "http://tempuri.org/IOrders/Get", false, null, new object[] { "hunter2" }, null)));

    [Theory]
    [InlineData("Get", "Get (Internal)", "rpc.method=Get")]
    [InlineData("/Get", "Get (Internal)", "rpc.method=Get")]
    [InlineData("urn:hunter2?x", "as made (Internal)")]
    [InlineData("a b/Get", "Get (Internal)", "rpc.method=Get")]
    [InlineData("", "as made (Internal)")]
    public void AnActionMayBeAnyText(string action, string name, params string[] method) =>
        Assert.Equal(
            [name, "rpc.system=dotnet_wcf", .. method, "server.address=services.example.com", "server.port=808"],
            KnownCall.Lines(KnownCall.Begin(new ServiceChannel(), "EndCall", action, null, null)));

    [Fact]
    public void WhatServesARequestIsTheServer()
    {
        Assert.Equal(
            ["as made (Server)", "rpc.system=dotnet_wcf"],
            KnownCall.Lines(KnownCall.Begin(new ChannelHandler(), "HandleRequest", new object(), null)));
        Assert.Equal(
            [
                "Kite.Managed.Tests.Conventions.ServerConventionTests/Get (Internal)",
                "rpc.system=dotnet_wcf",
                "rpc.method=Get",
                "rpc.service=Kite.Managed.Tests.Conventions.ServerConventionTests",
            ],
            KnownCall.Lines(KnownCall.Begin(new SyncMethodInvoker(), "Invoke", new ServerConventionTests(), new object[] { "hunter2" }, null)));
    }
}
