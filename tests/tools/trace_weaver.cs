// Puts the trace attribute on every method of an assembly that has a body, so that all of a library that
// never heard of it is chosen. The attribute's class is added to the assembly itself, which keeps its name
// and its key; the signature is no longer valid, which .NET does not look at.
// Prints the number of marked methods.
// usage: dotnet run trace_weaver.cs -- INPUT OUTPUT
#:package Mono.Cecil@0.11.6
#:property PublishAot=false
#:property InvariantGlobalization=true

using Mono.Cecil;
using Mono.Cecil.Cil;

if (args is not [var input, var output])
{
    Console.Error.WriteLine("usage: trace_weaver INPUT OUTPUT");
    return 2;
}
// The libraries that it refers to lie where it will.
using var resolver = new DefaultAssemblyResolver();
resolver.AddSearchDirectory(Path.GetDirectoryName(Path.GetFullPath(output)));
using var assembly = AssemblyDefinition.ReadAssembly(input, new ReaderParameters { AssemblyResolver = resolver });
var module = assembly.MainModule;
var methods = module.GetTypes().SelectMany(type => type.Methods).Where(method => method.HasBody).ToList();
var constructor = AddAttribute(module);
foreach (var method in methods)
{
    method.CustomAttributes.Add(new CustomAttribute(constructor));
}
assembly.Write(output);
Console.WriteLine($"{Path.GetFileName(input)}: {methods.Count} methods marked");
return 0;

static MethodDefinition AddAttribute(ModuleDefinition module)
{
    // Of the same library that the assembly's own attributes come from.
    var scope = module.TypeSystem.CoreLibrary;
    var parent = new TypeReference("System", "Attribute", module, scope);
    var parentConstructor = new MethodReference(".ctor", module.TypeSystem.Void, parent) { HasThis = true };

    var type = new TypeDefinition("Corvane.Instrumentation", "TraceAttribute",
        TypeAttributes.Class | TypeAttributes.NotPublic | TypeAttributes.Sealed, parent);
    var constructor = new MethodDefinition(".ctor",
        MethodAttributes.Public | MethodAttributes.HideBySig | MethodAttributes.SpecialName |
        MethodAttributes.RTSpecialName, module.TypeSystem.Void);
    var il = constructor.Body.GetILProcessor();
    il.Emit(OpCodes.Ldarg_0);
    il.Emit(OpCodes.Call, parentConstructor);
    il.Emit(OpCodes.Ret);
    type.Methods.Add(constructor);
    module.Types.Add(type);
    return constructor;
}
