// A whole run of a compiler: all C# sources below a folder become one library, which nobody keeps.
using Microsoft.CodeAnalysis;
using Microsoft.CodeAnalysis.CSharp;

static class Program
{
    static int Main(string[] arguments)
    {
        string runtime = Path.GetDirectoryName(typeof(object).Assembly.Location)!;
        var references = Directory.GetFiles(runtime, "System.*.dll")
            .Where(file => !file.EndsWith(".Native.dll", StringComparison.Ordinal))
            .Append(Path.Combine(runtime, "netstandard.dll"))
            .Select(file => MetadataReference.CreateFromFile(file));
        var options = new CSharpParseOptions(LanguageVersion.Latest);
        var sources = Directory.GetFiles(arguments[0], "*.cs", SearchOption.AllDirectories)
            .Order(StringComparer.Ordinal)
            .Select(file => CSharpSyntaxTree.ParseText(File.ReadAllText(file), options, file));
        var compilation = CSharpCompilation.Create("compiled", sources, references,
            new CSharpCompilationOptions(OutputKind.DynamicallyLinkedLibrary, nullableContextOptions: NullableContextOptions.Enable));
        var result = compilation.Emit(Stream.Null);
        foreach (var diagnostic in result.Diagnostics.Where(one => one.Severity == DiagnosticSeverity.Error).Take(10))
        {
            Console.Error.WriteLine(diagnostic);
        }
        return result.Success ? 0 : 1;
    }
}
