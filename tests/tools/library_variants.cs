// Makes files that have the managed library's name and are not it, or not whole: each in a folder that says
// what is wrong with it. A member that is to be missing gets another name.
// usage: dotnet run library_variants.cs -- kite.managed.dll OUTPUT
#:package Mono.Cecil@0.11.6
#:property PublishAot=false
#:property InvariantGlobalization=true

using Mono.Cecil;

if (args is not [var input, var output])
{
    Console.Error.WriteLine("usage: library_variants INPUT OUTPUT");
    return 2;
}

Write("other-name", assembly => assembly.Name.Name = "kite.other");
Write("older", assembly => assembly.Name.Version = new Version(3, 8, 9, 9));
Write("later", assembly => assembly.Name.Version = new Version(4, 0, 0, 0));
Write("unsigned", assembly =>
{
    assembly.Name.PublicKey = [];
    assembly.MainModule.Attributes &= ~ModuleAttributes.StrongNameSigned;
});
Write("other-key", assembly => assembly.Name.PublicKey = [.. assembly.Name.PublicKey[..^1], 0x2A]);
Rename("no-directives", "Corvane.Instrumentation.InstrumentationDirectives");
Rename("no-span", "kite.managed.span");
Rename("no-invokers", "Corvane.Instrumentation.Invokers");
Rename("no-constructor", "Corvane.Instrumentation.InstrumentationDirectives", ".ctor");
Rename("no-get-indexes", "Corvane.Instrumentation.InstrumentationDirectives", "GetIndexes");
Rename("no-log", "kite.managed.span", "Log");
Rename("no-error", "kite.managed.span", "Error");
Rename("no-prologue", "kite.managed.span", "GenericPrologue");
Rename("no-epilogue", "kite.managed.span", "GenericEpilogue");
Rename("no-contains-key", "Corvane.Instrumentation.Invokers", "ContainsKey");
Rename("no-has-listeners", "Corvane.Instrumentation.Invokers", "HasListeners");
Rename("no-register-method", "Corvane.Instrumentation.Invokers", "RegisterMethod");
Write("other-signature", assembly =>
    Method(assembly, "kite.managed.span", "Log").Parameters.RemoveAt(1));
return 0;

static MethodDefinition Method(AssemblyDefinition assembly, string type, string name) =>
    assembly.MainModule.GetType(type).Methods.Single(method => method.Name == name);

void Rename(string folder, string type, string? member = null) => Write(folder, assembly =>
{
    if (member is null)
    {
        assembly.MainModule.GetType(type).Name += "_";
        return;
    }
    var method = Method(assembly, type, member);
    method.IsRuntimeSpecialName = method.IsSpecialName = false;
    method.Name = "other";
});

void Write(string folder, Action<AssemblyDefinition> change)
{
    using var assembly = AssemblyDefinition.ReadAssembly(input);
    change(assembly);
    Directory.CreateDirectory(Path.Combine(output, folder));
    assembly.Write(Path.Combine(output, folder, "kite.managed.dll"));
}
