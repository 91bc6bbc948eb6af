// The names and signatures that injected code refers to, as the metadata of the built assembly has them.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Reflection.Metadata;
using System.Reflection.Metadata.Ecma335;
using System.Reflection.PortableExecutable;
using Corvane.Instrumentation;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests;

public class ContractTests
{
    private static readonly Assembly library = typeof(span).Assembly;

    [Fact]
    public void TheAssemblyHasTheNameThatReferencesGive() =>
        Assert.Equal("kite.managed, Version=3.9.0.0, Culture=neutral, PublicKeyToken=c9ca73587797b108", library.FullName);

    [Fact]
    public void TheAssemblyNeedsNothingButThePlatform()
    {
        var platform = Path.GetDirectoryName(typeof(object).Assembly.Location)!;
        var needed = library.GetReferencedAssemblies();
        Assert.NotEmpty(needed);
        Assert.All(needed, assembly => Assert.True(File.Exists(Path.Combine(platform, assembly.Name + ".dll")), assembly.FullName));
    }

    // The bytes of ECMA-335 II.23.2.1; a type's name stands for its token.
    [Theory]
    [InlineData("kite.managed.span", "Log", true, "00 02 01 08 0E")]
    [InlineData("kite.managed.span", "Error", true, "00 02 02 0E 12 System.Exception")]
    [InlineData("kite.managed.span", "GenericPrologue", true,
        "00 04 01 09 1C 1D 1C 12 Corvane.Instrumentation.InstrumentationDirectives")]
    [InlineData("kite.managed.span", "GenericEpilogue", true,
        "00 05 01 09 1C 1D 1C 1C 12 Corvane.Instrumentation.InstrumentationDirectives")]
    [InlineData("Corvane.Instrumentation.Invokers", "HasListeners", true, "00 00 02")]
    [InlineData("Corvane.Instrumentation.Invokers", "ContainsKey", true, "00 01 02 09")]
    [InlineData("Corvane.Instrumentation.Invokers", "RegisterMethod", true,
        "00 03 01 09 12 System.Reflection.MethodBase 02")]
    [InlineData("Corvane.Instrumentation.InstrumentationDirectives", ".ctor", false, "20 00 01")]
    [InlineData("Corvane.Instrumentation.InstrumentationDirectives", "GetIndexes", false, "20 00 1D 08")]
    public void AMethodThatInjectedCodeCallsHasItsSignature(string type, string name, bool isStatic, string signature)
    {
        var method = Assert.Single(
            library.GetType(type, throwOnError: true)!.GetMember(name, BindingFlags.DeclaredOnly | BindingFlags.Public |
                                                                      BindingFlags.Static | BindingFlags.Instance));
        Assert.True(method.DeclaringType!.IsPublic);
        Assert.Equal(isStatic, ((MethodBase)method).IsStatic);
        Assert.Equal(signature, Signature(method.MetadataToken));
    }

    [Fact]
    public void TheTypesThatAreOnlyReferredToAreThere()
    {
        Assert.True(typeof(Delegate).IsAssignableFrom(
            library.GetType("Corvane.Instrumentation.MethodArgumentCallback", throwOnError: true)));
        Assert.True(library.GetType("Corvane.Instrumentation.MethodData", throwOnError: true)!.IsPublic);
    }

    [Fact]
    public void TheTraceAttributeGoesOnMethodsAndConstructorsAndNeedsNoArguments()
    {
        var attribute = library.GetType("Corvane.Instrumentation.TraceAttribute", throwOnError: true)!;
        Assert.Equal(
            AttributeTargets.Method | AttributeTargets.Constructor,
            attribute.GetCustomAttribute<AttributeUsageAttribute>()!.ValidOn);
        Assert.Empty(Assert.Single(attribute.GetConstructors()).GetParameters());
    }

    [Fact]
    public void TheStartupHookHasTheNameAndFormThatTheRuntimeLooksFor()
    {
        var hook = library.GetType("StartupHook", throwOnError: true)!;
        var initialize = hook.GetMethod("Initialize", BindingFlags.Static | BindingFlags.Public, Type.EmptyTypes);
        Assert.Equal(typeof(void), initialize!.ReturnType);
    }

    private static string Signature(int token)
    {
        using var file = new PEReader(File.OpenRead(library.Location));
        var metadata = file.GetMetadataReader();
        var method = metadata.GetMethodDefinition((MethodDefinitionHandle)MetadataTokens.EntityHandle(token));
        var blob = metadata.GetBlobReader(method.Signature);
        var parts = new List<string>();
        while (blob.RemainingBytes > 0)
        {
            var element = blob.ReadByte();
            parts.Add(element.ToString("X2"));
            if (element == (byte)SignatureTypeKind.Class)
            {
                parts.Add(NameOf(metadata, blob.ReadTypeHandle()));
            }
        }
        return string.Join(' ', parts);
    }

    private static string NameOf(MetadataReader metadata, EntityHandle type)
    {
        var (space, name) = type.Kind == HandleKind.TypeReference
            ? (metadata.GetTypeReference((TypeReferenceHandle)type).Namespace,
               metadata.GetTypeReference((TypeReferenceHandle)type).Name)
            : (metadata.GetTypeDefinition((TypeDefinitionHandle)type).Namespace,
               metadata.GetTypeDefinition((TypeDefinitionHandle)type).Name);
        return $"{metadata.GetString(space)}.{metadata.GetString(name)}";
    }
}
