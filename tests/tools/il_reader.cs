// IL as others read it, for the opcode tables and the body reader to be compared with.
//   opcodes FILE            the runtime's own opcode list: number, name, size, operand size, flow, pushes
//   bodies FOLDER FILE      every method body of every assembly in a folder, as it stands in the file: records
//                           of name, token, size, bytes; integers are little-endian, 32 bits wide
//   cecil FOLDER FILE NAME  what Mono.Cecil decodes of the bodies of the assemblies with these names, see there
//   time FOLDER FILE        the time that Mono.Cecil needs to decode each body of every assembly
// usage: dotnet run il_reader.cs -- COMMAND ARGUMENTS
#:package Mono.Cecil@0.11.6
#:property PublishAot=false
#:property InvariantGlobalization=true

using System.Diagnostics;
using System.Globalization;
using System.Reflection;
using System.Reflection.Metadata;
using System.Reflection.Metadata.Ecma335;
using System.Reflection.PortableExecutable;
using System.Text;
using Mono.Cecil;
using Mono.Cecil.Cil;
using Emit = System.Reflection.Emit;
using MethodDefinition = Mono.Cecil.MethodDefinition;
using MethodImplAttributes = System.Reflection.MethodImplAttributes;
using ModuleDefinition = Mono.Cecil.ModuleDefinition;

switch (args)
{
    case ["opcodes", var output]:
        WriteOpcodes(output);
        return 0;
    case ["bodies", var folder, var output]:
        WriteBodies(folder, output);
        return 0;
    case ["cecil", var folder, var output, .. var names]:
        WriteCecil(folder, output, names);
        return 0;
    case ["time", var folder, var output]:
        TimeCecil(folder, output);
        return 0;
    default:
        Console.Error.WriteLine("usage: il_reader opcodes|bodies|cecil|time ARGUMENTS");
        return 2;
}

static void WriteOpcodes(string output)
{
    using var writer = new StreamWriter(output) { NewLine = "\n" };
    var opcodes = typeof(Emit.OpCodes).GetFields(BindingFlags.Public | BindingFlags.Static)
        .Select(field => (Emit.OpCode)field.GetValue(null)!)
        .OrderBy(opcode => (ushort)opcode.Value);
    foreach (var opcode in opcodes)
    {
        var operandSize = opcode.OperandType switch
        {
            Emit.OperandType.InlineNone => 0,
            Emit.OperandType.ShortInlineBrTarget or Emit.OperandType.ShortInlineI or Emit.OperandType.ShortInlineVar => 1,
            Emit.OperandType.InlineVar => 2,
            Emit.OperandType.InlineI8 or Emit.OperandType.InlineR => 8,
            _ => 4,
        };
        var pushes = opcode.StackBehaviourPush switch
        {
            Emit.StackBehaviour.Push0 => 0,
            Emit.StackBehaviour.Push1_push1 => 2,
            _ => 1,
        };
        writer.WriteLine(string.Create(CultureInfo.InvariantCulture,
            $"{(ushort)opcode.Value:x4} {opcode.Name} {opcode.Size} {operandSize} {opcode.OperandType} {opcode.FlowControl} {pushes}"));
    }
}

static IEnumerable<string> Assemblies(string folder) =>
    Directory.GetFiles(folder, "*.dll").Order(StringComparer.Ordinal);

static void WriteBodies(string folder, string output)
{
    using var writer = new BinaryWriter(File.Create(output));
    foreach (var file in Assemblies(folder))
    {
        using var pe = new PEReader(File.OpenRead(file));
        if (!pe.HasMetadata)
            continue;
        var metadata = pe.GetMetadataReader();
        var name = Encoding.UTF8.GetBytes(Path.GetFileNameWithoutExtension(file));
        foreach (var handle in metadata.MethodDefinitions)
        {
            var method = metadata.GetMethodDefinition(handle);
            var isIL = (method.ImplAttributes & MethodImplAttributes.CodeTypeMask) == MethodImplAttributes.IL;
            if (method.RelativeVirtualAddress == 0 || !isIL)
                continue;
            var size = pe.GetMethodBody(method.RelativeVirtualAddress).Size;
            writer.Write(name.Length);
            writer.Write(name);
            writer.Write(MetadataTokens.GetToken(handle));
            writer.Write(size);
            writer.Write(pe.GetSectionData(method.RelativeVirtualAddress).GetContent(0, size).AsSpan());
        }
    }
}

// A line "assembly NAME" opens an assembly. Cecil gives strings and generic parameters without a token: "content
// TOKEN HASH" says what stands under the tokens of such. "method TOKEN INSTRUCTIONS CLAUSES HASH" is a body; its
// hash is taken over the words below.
static void WriteCecil(string folder, string output, string[] names)
{
    using var writer = new StreamWriter(output) { NewLine = "\n" };
    foreach (var name in names)
    {
        var file = Path.Combine(folder, name + ".dll");
        writer.WriteLine($"assembly {name}");
        using (var pe = new PEReader(File.OpenRead(file)))
            WriteContents(pe.GetMetadataReader(), writer);
        using var module = ModuleDefinition.ReadModule(file);
        foreach (var method in module.GetTypes().SelectMany(type => type.Methods).Where(HasBody))
        {
            var body = method.Body;
            var hash = new WordHash();
            foreach (var instruction in body.Instructions)
            {
                hash.Add((uint)instruction.Offset);
                hash.Add((ushort)instruction.OpCode.Value);
                AddOperand(hash, instruction);
            }
            foreach (var handler in body.ExceptionHandlers)
            {
                hash.Add((uint)handler.HandlerType);
                hash.Add(Offset(handler.TryStart, body));
                hash.Add(Offset(handler.TryEnd, body));
                hash.Add(Offset(handler.HandlerStart, body));
                hash.Add(Offset(handler.HandlerEnd, body));
                if (handler.HandlerType == ExceptionHandlerType.Filter)
                    hash.Add(Offset(handler.FilterStart, body));
                else if (handler.HandlerType == ExceptionHandlerType.Catch)
                    AddToken(hash, handler.CatchType);
            }
            hash.Add((uint)body.LocalVarToken.ToInt32());
            hash.Add(body.InitLocals ? 1u : 0u);
            writer.WriteLine($"method {method.MetadataToken.ToInt32():x8} {body.Instructions.Count} {body.ExceptionHandlers.Count} {hash.Value:x16}");
        }
    }
}

static void WriteContents(MetadataReader metadata, TextWriter writer)
{
    for (var handle = metadata.GetNextHandle(default(UserStringHandle)); !handle.IsNil; handle = metadata.GetNextHandle(handle))
        WriteContent(MetadataTokens.GetToken(handle), WordHash.Of(metadata.GetUserString(handle)));
    for (var row = 1; row <= metadata.GetTableRowCount(TableIndex.TypeSpec); row++)
    {
        var handle = MetadataTokens.TypeSpecificationHandle(row);
        var blob = metadata.GetBlobReader(metadata.GetTypeSpecification(handle).Signature);
        var kind = blob.ReadSignatureTypeCode();
        if (kind is SignatureTypeCode.GenericTypeParameter or SignatureTypeCode.GenericMethodParameter)
            WriteContent(MetadataTokens.GetToken(handle), WordHash.OfParameter((byte)kind, blob.ReadCompressedInteger()));
    }

    void WriteContent(int token, ulong hash) => writer.WriteLine($"content {token:x8} {hash:x16}");
}

static bool HasBody(MethodDefinition method) => method.RVA != 0 && method.IsIL && method.HasBody;

static uint Offset(Instruction? instruction, Mono.Cecil.Cil.MethodBody body) =>
    (uint)(instruction?.Offset ?? body.CodeSize);

static void AddOperand(WordHash hash, Instruction instruction)
{
    switch (instruction.Operand)
    {
        case null:
            break;
        case Instruction target:
            hash.Add((uint)target.Offset);
            break;
        case Instruction[] targets:
            hash.Add((uint)targets.Length);
            foreach (var target in targets)
                hash.Add((uint)target.Offset);
            break;
        case sbyte value:
            hash.Add((byte)value);
            break;
        case byte value:
            hash.Add(value);
            break;
        case int value:
            hash.Add((uint)value);
            break;
        case long value:
            hash.Add((ulong)value);
            break;
        case float value:
            hash.Add(BitConverter.SingleToUInt32Bits(value));
            break;
        case double value:
            hash.Add(BitConverter.DoubleToUInt64Bits(value));
            break;
        case string value:
            hash.Add(WordHash.Of(value));
            break;
        case VariableDefinition variable:
            hash.Add((uint)variable.Index);
            break;
        case ParameterDefinition parameter:
            hash.Add((uint)parameter.Sequence);
            break;
        case IMetadataTokenProvider token:
            AddToken(hash, token);
            break;
        default:
            throw new InvalidOperationException(instruction.Operand.GetType().FullName);
    }
}

static void AddToken(WordHash hash, IMetadataTokenProvider provider)
{
    if (provider is Mono.Cecil.GenericParameter parameter)
        hash.Add(WordHash.OfParameter(parameter.Type == GenericParameterType.Type ? (byte)0x13 : (byte)0x1e, parameter.Position));
    else
        hash.Add((uint)provider.MetadataToken.ToInt32());
}

// The time of each body, to decode it and nothing else: the module's metadata is in memory by then.
static void TimeCecil(string folder, string output)
{
    var times = new List<double>();
    foreach (var file in Assemblies(folder))
    {
        ModuleDefinition module;
        try
        {
            module = ModuleDefinition.ReadModule(new MemoryStream(File.ReadAllBytes(file)));
        }
        catch (BadImageFormatException)
        {
            continue; // native code
        }
        using (module)
        {
            foreach (var method in module.GetTypes().SelectMany(type => type.Methods).Where(HasBody))
            {
                var start = Stopwatch.GetTimestamp();
                _ = method.Body;
                times.Add(Stopwatch.GetElapsedTime(start).TotalMicroseconds);
            }
        }
    }
    times.Sort();
    File.WriteAllText(output, string.Create(CultureInfo.InvariantCulture,
        $"bodies={times.Count} median_us={times[times.Count / 2]:f3} p99_us={times[times.Count * 99 / 100]:f3} total_ms={times.Sum() / 1000:f0}\n"));
}

// FNV-1a over bytes, a word's lowest byte first.
sealed class WordHash
{
    public ulong Value { get; private set; } = 0xcbf29ce484222325;

    public static ulong Of(string text)
    {
        var hash = new WordHash();
        foreach (var unit in text)
            hash.Add(unit);
        return hash.Value;
    }

    public static ulong OfParameter(byte kind, int position)
    {
        var hash = new WordHash();
        hash.Add(kind);
        hash.Add((uint)position);
        return hash.Value;
    }

    public void Add(uint word) => AddBytes(word, 4);

    public void Add(ulong word) => AddBytes(word, 8);

    private void AddBytes(ulong word, int count)
    {
        for (; count != 0; count--, word >>= 8)
            Value = (Value ^ (word & 0xff)) * 0x100000001b3;
    }
}
