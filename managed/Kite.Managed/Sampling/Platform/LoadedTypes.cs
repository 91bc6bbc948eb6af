#if NET
using System;
using System.Collections.Generic;
using System.Linq;
using System.Reflection;
using System.Reflection.Metadata;
using System.Runtime.CompilerServices;

namespace Corvane.Sampling.Platform;

// Where functions come from: the metadata of the process's assemblies are read, which loads no type. A name that several
// types have says only what they have in common. Any thread.
internal static class LoadedTypes
{
    // The keys that the platform's assemblies are signed with.
    private static readonly HashSet<string> platformKeys = new HashSet<string>
    {
        "7CEC85D7BEA7798E", "B03F5F7F11D50A3A", "B77A5C561934E089", "CC7B13FFCD2DDD51", "ADB9793829DDAE60", "31BF3856AD364E35",
    };

    internal static void Place(IReadOnlyCollection<SampledFunction> functions)
    {
        try
        {
            PlaceAll(functions);
        }
        catch (Exception)
        {
            // A trimmed program may lack what this needs: the names stay as they are.
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void PlaceAll(IReadOnlyCollection<SampledFunction> functions)
    {
        var wanted = functions.Where(function => function.TypeName != null).ToLookup(function => function.TypeName!);
        if (wanted.Count == 0)
        {
            return; // so it is at most renewals
        }
        var found = new Dictionary<SampledFunction, Origin>();
        foreach (var assembly in AppDomain.CurrentDomain.GetAssemblies())
        {
            try
            {
                Search(assembly, wanted, found);
            }
            catch (BadImageFormatException)
            {
                // What a tool has made of it keeps no other assembly from being read.
            }
        }
        foreach (var function in found)
        {
            function.Key.Place(function.Value.Type, function.Value.IsPlatform);
        }
    }

    private static unsafe void Search(
        Assembly assembly, ILookup<string, SampledFunction> wanted, Dictionary<SampledFunction, Origin> found)
    {
        if (!assembly.TryGetRawMetadata(out var metadata, out var length))
        {
            return; // made at run time
        }
        var reader = new MetadataReader(metadata, length);
        var isPlatform = IsPlatform(assembly);
        foreach (var handle in reader.TypeDefinitions)
        {
            var type = reader.GetTypeDefinition(handle);
            foreach (var function in wanted[OwnName(reader, type)])
            {
                if (HasMethod(reader, type, function.MethodName!))
                {
                    var origin = new Origin(FullName(reader, type), isPlatform);
                    found[function] = found.TryGetValue(function, out var other) ? origin.And(other) : origin;
                }
            }
        }
        GC.KeepAlive(assembly);
    }

    private static bool IsPlatform(Assembly assembly) =>
        assembly == typeof(LoadedTypes).Assembly ||
        platformKeys.Contains(Convert.ToHexString(assembly.GetName().GetPublicKeyToken() ?? []));

    private static bool HasMethod(MetadataReader reader, TypeDefinition type, string name)
    {
        foreach (var method in type.GetMethods())
        {
            if (reader.StringComparer.Equals(reader.GetMethodDefinition(method).Name, name))
            {
                return true;
            }
        }
        return false;
    }

    // As the profiler reports it.
    private static string OwnName(MetadataReader reader, TypeDefinition type)
    {
        var name = reader.GetString(type.Name);
        return type.Namespace.IsNil ? name : reader.GetString(type.Namespace) + "." + name;
    }

    private static string FullName(MetadataReader reader, TypeDefinition type)
    {
        var name = OwnName(reader, type);
        for (var outer = type.GetDeclaringType(); !outer.IsNil; outer = type.GetDeclaringType())
        {
            type = reader.GetTypeDefinition(outer);
            name = OwnName(reader, type) + "." + name;
        }
        return name;
    }

    // Null where that is not known.
    private readonly struct Origin
    {
        internal Origin(string? type, bool? isPlatform)
        {
            Type = type;
            IsPlatform = isPlatform;
        }

        internal string? Type { get; }

        internal bool? IsPlatform { get; }

        internal Origin And(Origin other) => new Origin(
            Type == other.Type ? Type : null, IsPlatform == other.IsPlatform ? IsPlatform : null);
    }
}
#endif
