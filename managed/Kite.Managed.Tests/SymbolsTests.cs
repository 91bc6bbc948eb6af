// That the library's symbols are there, and that neither they nor the library say where it was built.
using System;
using System.IO;
using System.Linq;
using System.Reflection.Metadata;
using System.Reflection.PortableExecutable;
using System.Text;
using kite.managed;
using Xunit;

namespace Kite.Managed.Tests;

public class SymbolsTests
{
    private static readonly string library = typeof(span).Assembly.Location;

    [Fact]
    public void NameSourcesWithoutAPathOfTheMachine()
    {
        using var file = File.OpenRead(Path.ChangeExtension(library, ".pdb"));
        using var symbols = MetadataReaderProvider.FromPortablePdbStream(file);
        var reader = symbols.GetMetadataReader();
        var documents = reader.Documents.Select(handle => reader.GetString(reader.GetDocument(handle).Name)).ToList();
        Assert.Contains("/_/Contract/span.cs", documents);
        Assert.All(documents, document => Assert.StartsWith("/_/", document));
    }

    [Fact]
    public void BelongToTheLibrary()
    {
        using var symbols = File.OpenRead(Path.ChangeExtension(library, ".pdb"));
        using var provider = MetadataReaderProvider.FromPortablePdbStream(symbols);
        using var image = new PEReader(File.OpenRead(library));
        var entry = image.ReadDebugDirectory().Single(one => one.Type == DebugDirectoryEntryType.CodeView);
        var named = image.ReadCodeViewDebugDirectoryData(entry);
        Assert.Equal("/_/obj/kite.managed.pdb", named.Path);
        var id = new BlobContentId(provider.GetMetadataReader().DebugMetadataHeader!.Id);
        Assert.Equal((named.Guid, entry.Stamp), (id.Guid, id.Stamp));
    }

    [Theory]
    [InlineData(".dll")]
    [InlineData(".pdb")]
    public void HoldNoFolderOfTheMachine(string extension)
    {
        var bytes = File.ReadAllBytes(Path.ChangeExtension(library, extension));
        var folder = Path.GetDirectoryName(Path.GetDirectoryName(ThisFile()))!;
        Assert.Equal(-1, bytes.AsSpan().IndexOf(Encoding.UTF8.GetBytes(folder)));
        Assert.Equal(-1, bytes.AsSpan().IndexOf(Encoding.Unicode.GetBytes(folder)));
    }

    private static string ThisFile([System.Runtime.CompilerServices.CallerFilePath] string path = "") => path;
}
