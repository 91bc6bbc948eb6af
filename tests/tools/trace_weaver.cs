// Puts the trace attribute on every method of an assembly that has a body, so that all of a library that
// never heard of it is chosen. The attribute's class is added to the assembly itself, which keeps its name
// and its key; the signature is no longer valid, which .NET does not look at.
// Prints the number of marked methods.
// With "counted", each marked method whose signature is not generic counts its own calls in Woven.Calls, a class
// that is added too: Counts has the numbers, Names a line for each, as the managed library writes names.
// usage: dotnet run trace_weaver.cs -- INPUT OUTPUT [counted]
#:package Mono.Cecil@0.11.6
#:property PublishAot=false
#:property InvariantGlobalization=true

using Mono.Cecil;
using Mono.Cecil.Cil;

if (args is not [var input, var output, .. [] or ["counted"]])
{
    Console.Error.WriteLine("usage: trace_weaver INPUT OUTPUT [counted]");
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
if (args.Length > 2)
{
    AddCounters(module, methods.Where(method => !IsGeneric(method)).ToList());
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

// As the profiler takes them for generic: by the last type of a parameter, and the first of a result.
static bool IsGeneric(MethodDefinition method) =>
    method.HasGenericParameters || method.ReturnType.IsGenericParameter ||
    method.Parameters.Any(parameter => EndsInTypeParameter(parameter.ParameterType));

static bool EndsInTypeParameter(TypeReference type) => type switch
{
    GenericParameter => true,
    GenericInstanceType instance => EndsInTypeParameter(instance.GenericArguments[^1]),
    TypeSpecification other => EndsInTypeParameter(other.ElementType),
    _ => type.MetadataType == MetadataType.TypedByReference,
};

static void AddCounters(ModuleDefinition module, List<MethodDefinition> methods)
{
    var number = module.TypeSystem.Int32;
    var type = new TypeDefinition("Woven", "Calls",
        TypeAttributes.Class | TypeAttributes.Public | TypeAttributes.Sealed | TypeAttributes.Abstract |
        TypeAttributes.BeforeFieldInit, module.TypeSystem.Object);
    var counts = new FieldDefinition("Counts", FieldAttributes.Public | FieldAttributes.Static, new ArrayType(number));
    var names = new FieldDefinition("Names", FieldAttributes.Public | FieldAttributes.Static, module.TypeSystem.String);
    var initializer = new MethodDefinition(".cctor",
        MethodAttributes.Private | MethodAttributes.Static | MethodAttributes.SpecialName |
        MethodAttributes.RTSpecialName | MethodAttributes.HideBySig, module.TypeSystem.Void);
    var il = initializer.Body.GetILProcessor();
    il.Emit(OpCodes.Ldc_I4, methods.Count);
    il.Emit(OpCodes.Newarr, number);
    il.Emit(OpCodes.Stsfld, counts);
    il.Emit(OpCodes.Ldstr, string.Join('\n', methods.Select(method => $"{NameOf(method.DeclaringType)}.{method.Name}")));
    il.Emit(OpCodes.Stsfld, names);
    il.Emit(OpCodes.Ret);
    type.Fields.Add(counts);
    type.Fields.Add(names);
    type.Methods.Add(initializer);
    module.Types.Add(type);

    for (var index = 0; index < methods.Count; index++)
    {
        il = methods[index].Body.GetILProcessor();
        var first = methods[index].Body.Instructions[0];
        foreach (var instruction in new[]
                 {
                     il.Create(OpCodes.Ldsfld, counts), il.Create(OpCodes.Ldc_I4, index), il.Create(OpCodes.Ldelema, number),
                     il.Create(OpCodes.Dup), il.Create(OpCodes.Ldind_I4), il.Create(OpCodes.Ldc_I4_1),
                     il.Create(OpCodes.Add), il.Create(OpCodes.Stind_I4),
                 })
        {
            il.InsertBefore(first, instruction);
        }
    }
}

// A nested type has the type parameters of the types around it in front of its own.
static string NameOf(TypeDefinition type)
{
    var own = type.GenericParameters.Skip(type.DeclaringType?.GenericParameters.Count ?? 0).Select(parameter => parameter.Name);
    var around = type.DeclaringType != null ? NameOf(type.DeclaringType) : type.Namespace;
    return (around == "" ? "" : around + ".") + type.Name.Split('`')[0] + (own.Any() ? $"<{string.Join(", ", own)}>" : "");
}
