using System;
using System.Runtime.CompilerServices;
using System.Threading.Tasks;
using Corvane.Instrumentation.Privacy;
using Xunit;

namespace Kite.Managed.Tests.Privacy;

// Whoever fails with a message looks through the tasks of all.
[Collection(nameof(WholeProcess))]
public class SecretExceptionsTests
{
    [Fact]
    public void AnExceptionAndThoseInsideAndAroundItAreKnown()
    {
        var inner = new FormatException();
        var exception = new InvalidOperationException("", inner);
        var around = new AggregateException(new FormatException(), exception);
        Assert.False(SecretExceptions.Contain(around));
        SecretExceptions.Add(exception);
        SecretExceptions.Add(exception);
        Assert.True(SecretExceptions.Contain(exception));
        Assert.True(SecretExceptions.Contain(inner));
        Assert.True(SecretExceptions.Contain(around));
        Assert.True(SecretExceptions.Contain(new ArgumentException("", around)));
        Assert.False(SecretExceptions.Contain(around.InnerExceptions[0]));
    }

    // Who waits may go on before whoever continues the task does.
    [Fact]
    public void WhatATaskFailsWithIsKnownAtOnce()
    {
        var work = new TaskCompletionSource();
        var exception = new InvalidOperationException();
        SecretExceptions.Add(work.Task, _ => { });
        Assert.False(SecretExceptions.Contain(exception));
        work.SetException(exception);
        Assert.True(SecretExceptions.Contain(exception));
    }

    [Fact]
    public void ItIsKnownAfterItsTaskIsGone()
    {
        var exception = new InvalidOperationException();
        var task = FailedTask(exception);
        Collect(task);
        Assert.True(SecretExceptions.Contain(exception));
    }

    [Fact]
    public void NothingIsKeptAlive()
    {
        var (task, exception) = OpenTask();
        Collect(task);
        Collect(exception);
    }

    // Some methods return one task over and over.
    [Fact]
    public void ATaskIsContinuedOnce()
    {
        var work = new TaskCompletionSource();
        var continued = 0;
        for (var round = 0; round < 1_000; round++)
        {
            SecretExceptions.Add(work.Task, _ => continued++);
        }
        work.SetResult();
        Assert.Equal(1, continued);
    }

    [Fact]
    public void ManyInsideOneAnotherAreNotLookedAtToTheEnd()
    {
        var exception = new Exception();
        for (var depth = 0; depth < 10_000; depth++)
        {
            exception = new AggregateException(exception, exception);
        }
        Assert.True(SecretExceptions.Contain(exception));
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static WeakReference FailedTask(Exception exception)
    {
        var work = new TaskCompletionSource();
        SecretExceptions.Add(work.Task, run => run());
        work.SetException(exception);
        return new WeakReference(work.Task);
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static (WeakReference Task, WeakReference Exception) OpenTask()
    {
        var task = new TaskCompletionSource().Task;
        var exception = new InvalidOperationException();
        SecretExceptions.Add(task, run => run());
        SecretExceptions.Add(exception);
        return (new WeakReference(task), new WeakReference(exception));
    }

    private static void Collect(WeakReference reference)
    {
        for (var round = 0; round < 10 && reference.IsAlive; round++)
        {
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        Assert.False(reference.IsAlive);
    }
}
