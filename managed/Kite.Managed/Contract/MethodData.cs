using System;
using System.Collections.Concurrent;
using System.Diagnostics.CodeAnalysis;
using System.Reflection;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Observing;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation;

/// <summary>What is known of an instrumented method. It does not keep the method's assembly loaded.</summary>
public sealed class MethodData
{
    // A type or module lives as long as its assembly; what only describes one of their methods would be
    // collected before.
    private static readonly ConditionalWeakTable<object, ConcurrentQueue<MethodBase>> kept =
        new ConditionalWeakTable<object, ConcurrentQueue<MethodBase>>();

    private readonly WeakReference<MethodBase>? method;
    private MethodSignature? signature;
    private volatile ObserversOfMethod? observers;
    private ISpanConvention? convention;
    private volatile bool isConventionKnown;

    internal MethodData(uint index, MethodBase? method, bool traced)
    {
        Index = index;
        Traced = traced;
        if (method != null)
        {
            this.method = new WeakReference<MethodBase>(method);
            kept.GetOrCreateValue((object?)method.DeclaringType ?? method.Module).Enqueue(method);
        }
    }

    /// <summary>The number under which the method is registered.</summary>
    public uint Index { get; }

    /// <summary>The method, for a generic one its definition; null once its assembly is unloaded.</summary>
    public MethodBase? Method => method != null && method.TryGetTarget(out var target) ? target : null;

    /// <summary>Whether it was chosen for its trace attribute, not for its name.</summary>
    public bool Traced { get; }

    /// <summary>Namespace, type and name, with dots between them.</summary>
    public string Name => Signature.Name;

    // Made when it is first asked for: of most methods nobody ever does, and it takes longer than all the rest. Who
    // wants it after the method's assembly is gone has to ask before.
    internal MethodSignature Signature => signature ??= MethodSignature.Of(Index, Method);

    // Null until a call of it could be seen.
    internal ObserversOfMethod? Observers
    {
        get => observers;
        set => observers = value;
    }

    // Looked up once.
    internal ISpanConvention? Convention(Func<MethodBase, ISpanConvention?> find)
    {
        if (!isConventionKnown)
        {
            var definition = Method;
            convention = definition == null ? null : find(definition);
            isConventionKnown = true;
        }
        return convention;
    }

    [UnconditionalSuppressMessage("Trimming", "IL2026", Justification = "The method runs: its token is that of the module as it is.")]
    private static MethodBase DefinitionOf(MethodBase method) => method.Module.ResolveMethod(method.MetadataToken)!;

    // Follows what the injected code writes back; a value that it could not cast would end its prologue.
    internal bool CanReplace(int index, object value)
    {
        var definition = Method;
        if (definition == null)
        {
            return false;
        }
        if (definition.IsGenericMethod || definition.DeclaringType is { IsGenericType: true })
        {
            // What counts is the type that the signature names, not the one that takes its place here.
            definition = DefinitionOf(definition);
        }
        var parameters = definition.GetParameters();
        if (index >= parameters.Length)
        {
            return false;
        }
        var type = parameters[index].ParameterType;
        if (type.IsValueType)
        {
            return type.IsPrimitive && type == value.GetType();
        }
        return type != typeof(string) && !type.HasElementType && !type.IsGenericType && !type.IsGenericParameter &&
               type.IsInstanceOfType(value);
    }
}
