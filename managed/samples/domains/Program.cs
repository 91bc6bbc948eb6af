// Recycles application domains, as a web server does with its sites: the next one begins while the one before still
// works. It makes its calls as injected code does. Usage: domains.exe DOMAINS CALLS
using System;
using System.Globalization;
using System.Threading;
using Corvane.Instrumentation;
using kite.managed;

internal static class Program
{
    private static int Main(string[] arguments)
    {
        var domains = int.Parse(arguments[0], CultureInfo.InvariantCulture);
        var calls = int.Parse(arguments[1], CultureInfo.InvariantCulture);
        Site? before = null;
        for (var number = 0; number < domains; number++)
        {
            var site = new Site("site", calls);
            before?.Unload();
            before = site;
        }
        before?.Unload();
        new Worker().Work(calls);
        return 0;
    }

    private sealed class Site
    {
        private readonly AppDomain domain;
        private readonly Thread thread;

        internal Site(string name, int calls)
        {
            domain = AppDomain.CreateDomain(name);
            var worker = (Worker)domain.CreateInstanceAndUnwrap(typeof(Worker).Assembly.FullName, typeof(Worker).FullName);
            worker.Linger();
            thread = new Thread(() => worker.Work(calls));
            thread.Start();
        }

        internal void Unload()
        {
            thread.Join();
            AppDomain.Unload(domain);
        }
    }
}

public sealed class Worker : MarshalByRefObject
{
    public void Work(int calls)
    {
        for (var call = 0; call < calls; call++)
        {
            Call(0, nameof(Serve), call);
        }
    }

    // A thread that is still in a call when the domain goes.
    public void Linger()
    {
        var begun = new ManualResetEvent(false);
        new Thread(() => Call(1, nameof(Wait), 0, () =>
        {
            begun.Set();
            Thread.Sleep(Timeout.Infinite);
        })) { IsBackground = true }.Start();
        begun.WaitOne();
    }

    public static int Serve(int call) => call;

    public static int Wait(int call) => call;

    private static void Call(uint index, string method, int argument, Action? body = null)
    {
        if (!Invokers.ContainsKey(index))
        {
            Invokers.RegisterMethod(index, typeof(Worker).GetMethod(method), false);
        }
        object[] values = { argument };
        span.GenericPrologue(index, null, values, new InstrumentationDirectives());
        try
        {
            body?.Invoke();
        }
        finally
        {
            span.Log(4, "[Finally]");
        }
        span.GenericEpilogue(index, null, values, argument, new InstrumentationDirectives());
    }
}
