using System;
using System.Collections.Generic;
using Corvane.Sampling.Platform;

namespace Corvane.Sampling;

// The functions that snapshots showed, each asked for its name once. The sampler's thread only.
internal sealed class FunctionTable
{
    private readonly Dictionary<double, SampledFunction> byId = new Dictionary<double, SampledFunction>();
    private readonly List<SampledFunction> unresolved = new List<SampledFunction>();
    private readonly List<SampledFunction> resolved = new List<SampledFunction>();

    internal SampledFunction Get(double id)
    {
        if (!byId.TryGetValue(id, out var function))
        {
            function = new SampledFunction(id);
            byId.Add(id, function);
            unresolved.Add(function);
        }
        return function;
    }

    // Those that were asked for their names since the last time.
    internal SampledFunction[] TakeNew()
    {
        var functions = resolved.ToArray();
        resolved.Clear();
        return functions;
    }

    // Whether all could be asked for. To be called at once: the id of a method that is unloaded stands for nothing, which crashes the runtime,
    // or for another one.
    internal bool Resolve(IProfilerExports exports)
    {
        if (unresolved.Count == 0)
        {
            return true;
        }
        var functions = unresolved.ToArray();
        unresolved.Clear();
        var ids = new double[functions.Length];
        for (var i = 0; i < ids.Length; i++)
        {
            ids[i] = functions[i].Id;
        }
        try
        {
            var names = exports.GetFunctionNames(ids);
            for (var i = 0; i < names.Length; i++)
            {
                functions[i].Resolve(names[i].Type, names[i].Method);
            }
            resolved.AddRange(functions);
            return true;
        }
        catch (Exception)
        {
            // They have no names then. Asking again would be for ids that are older still.
            return false;
        }
    }
}
