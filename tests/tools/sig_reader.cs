// Prints every signature of every assembly in a folder as System.Reflection.Metadata reads it, for SigParser
// to be compared with. A line "assembly FILE" opens an assembly; under it stands one line per signature, the
// token and the signature's elements in the order of their bytes:
//   M:20 g:1 n:2 RETURN PARAM PARAM     method: first byte, generic parameters if any, parameters
//   F:06 TYPE   L:07 n:2 TYPE TYPE   P:28 n:0 TYPE     field, local variables, property
// A type is its element type followed by what belongs to it: 1D 08 is int32[], 15 12:0100000C n:1 0E a
// List<string>, 14 08 2;; an int32[,], 1F:01000010 10 08 a modified int32&, 1B M:00 n:0 01 a function pointer.
// usage: dotnet run sig_reader.cs -- FOLDER OUTPUT
#:property PublishAot=false
#:property InvariantGlobalization=true

using System.Collections.Immutable;
using System.Reflection.Metadata;
using System.Reflection.Metadata.Ecma335;
using System.Reflection.PortableExecutable;

using var output = new StreamWriter(args[1]) { NewLine = "\n" };
var types = new TypeText();
foreach (var file in Directory.GetFiles(args[0], "*.dll").Order(StringComparer.Ordinal))
{
    using var pe = new PEReader(File.OpenRead(file));
    if (!pe.HasMetadata)
        continue;
    var metadata = pe.GetMetadataReader();
    output.WriteLine($"assembly {Path.GetFileName(file)}");

    foreach (var handle in metadata.FieldDefinitions)
        Write(handle, Field(metadata.GetFieldDefinition(handle).DecodeSignature(types, null)));
    foreach (var handle in metadata.MethodDefinitions)
        Write(handle, types.Method("M", metadata.GetMethodDefinition(handle).DecodeSignature(types, null)));
    foreach (var handle in metadata.MemberReferences)
    {
        var member = metadata.GetMemberReference(handle);
        Write(handle, member.GetKind() == MemberReferenceKind.Field
            ? Field(member.DecodeFieldSignature(types, null))
            : types.Method("M", member.DecodeMethodSignature(types, null)));
    }
    for (var row = 1; row <= metadata.GetTableRowCount(TableIndex.StandAloneSig); row++)
    {
        var handle = MetadataTokens.StandaloneSignatureHandle(row);
        var signature = metadata.GetStandaloneSignature(handle);
        Write(handle, signature.GetKind() == StandaloneSignatureKind.Method
            ? types.Method("M", signature.DecodeMethodSignature(types, null))
            : Locals(signature.DecodeLocalSignature(types, null)));
    }
    foreach (var handle in metadata.PropertyDefinitions)
        Write(handle, types.Method("P", metadata.GetPropertyDefinition(handle).DecodeSignature(types, null)));

    void Write(EntityHandle handle, string text) => output.WriteLine($"{MetadataTokens.GetToken(handle):X8} {text}");
    string Field(string type) => $"F:06 {type}";
    string Locals(ImmutableArray<string> locals) => string.Join(' ', locals.Prepend($"L:07 n:{locals.Length}"));
}

class TypeText : ISignatureTypeProvider<string, object?>
{
    public string Method(string kind, MethodSignature<string> method)
    {
        var parameters = method.ParameterTypes.Select((type, i) =>
            i == method.RequiredParameterCount ? $"41 {type}" : type);
        var generic = method.Header.IsGeneric ? $" g:{method.GenericParameterCount}" : "";
        return string.Join(' ', parameters.Prepend(
            $"{kind}:{method.Header.RawValue:X2}{generic} n:{method.ParameterTypes.Length} {method.ReturnType}"));
    }

    public string GetPrimitiveType(PrimitiveTypeCode code) => $"{(int)code:X2}";
    public string GetSZArrayType(string element) => $"1D {element}";
    public string GetArrayType(string element, ArrayShape shape) =>
        $"14 {element} {shape.Rank};{string.Join(',', shape.Sizes)};{string.Join(',', shape.LowerBounds)}";
    public string GetByReferenceType(string element) => $"10 {element}";
    public string GetPointerType(string element) => $"0F {element}";
    public string GetPinnedType(string element) => $"45 {element}";
    public string GetFunctionPointerType(MethodSignature<string> method) => $"1B {Method("M", method)}";
    public string GetGenericTypeParameter(object? context, int index) => $"13:{index}";
    public string GetGenericMethodParameter(object? context, int index) => $"1E:{index}";
    public string GetGenericInstantiation(string type, ImmutableArray<string> arguments) =>
        string.Join(' ', arguments.Prepend($"15 {type} n:{arguments.Length}"));
    public string GetModifiedType(string modifier, string type, bool required) =>
        $"{(required ? "1F" : "20")}{modifier[2..]} {type}";

    public string GetTypeFromDefinition(MetadataReader reader, TypeDefinitionHandle handle, byte kind) =>
        Token(handle, kind);
    public string GetTypeFromReference(MetadataReader reader, TypeReferenceHandle handle, byte kind) =>
        Token(handle, kind);
    public string GetTypeFromSpecification(MetadataReader reader, object? context, TypeSpecificationHandle handle,
        byte kind) => Token(handle, kind);

    // A modifier's own type comes without a kind, as 00.
    static string Token(EntityHandle handle, byte kind) => $"{kind:X2}:{MetadataTokens.GetToken(handle):X8}";
}
