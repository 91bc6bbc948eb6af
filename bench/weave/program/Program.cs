// Compiles the C# sources below a folder, with a compiler that is marked throughout with the trace attribute.
// Writes into a file what came of it, the same in every run, and on a second line the seconds in which the runtime
// compiled methods, on whichever thread, and how many.
using System.Runtime;
using System.Security.Cryptography;
using Microsoft.CodeAnalysis;
using Microsoft.CodeAnalysis.CSharp;

var framework = Path.GetDirectoryName(typeof(object).Assembly.Location)!;
var references = ((string)AppContext.GetData("TRUSTED_PLATFORM_ASSEMBLIES")!).Split(Path.PathSeparator)
    .Where(file => Path.GetDirectoryName(file) == framework).Select(file => MetadataReference.CreateFromFile(file));
var options = new CSharpParseOptions(LanguageVersion.CSharp12);
var sources = Directory.GetFiles(args[0], "*.cs", SearchOption.AllDirectories)
    .Where(file => !file.Contains(@"\obj\", StringComparison.Ordinal)).Order(StringComparer.Ordinal)
    .Select(file => CSharpSyntaxTree.ParseText(File.ReadAllText(file), options));
var compilation = CSharpCompilation.Create("compiled", sources, references, new CSharpCompilationOptions(
    OutputKind.DynamicallyLinkedLibrary, optimizationLevel: OptimizationLevel.Release, allowUnsafe: true,
    deterministic: true, nullableContextOptions: NullableContextOptions.Enable));
using var image = new MemoryStream();
var result = compilation.Emit(image);
foreach (var diagnostic in result.Diagnostics.Where(diagnostic => diagnostic.Severity == DiagnosticSeverity.Error))
{
    Console.WriteLine(diagnostic);
}
File.WriteAllLines(args[1],
[
    $"{image.Length} {Convert.ToHexString(SHA256.HashData(image.ToArray()))}",
    FormattableString.Invariant($"{JitInfo.GetCompilationTime().TotalSeconds:F3} {JitInfo.GetCompiledMethodCount()}"),
]);
return result.Success ? 42 : 1;
