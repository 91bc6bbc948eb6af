using System.IO;
using System.Linq;
using System.Text;
using System.Text.Json;
using System.Xml.Linq;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class ProfileTests
{
    [Fact]
    public void ItIsSavedWhateverItsNamesHold()
    {
        using var folder = new TemporaryFolder();
        new Profiles().Thread(1, "half \uD83D", "A.\uDE00|B.\0").ToProfile().Save(folder["new/folder"], "name");
        var files = new DirectoryInfo(folder["new/folder"]).GetFiles().OrderBy(file => file.Name).ToArray();
        Assert.Equal(["name.folded", "name.pb.gz", "name.speedscope.json", "name.svg"], files.Select(file => file.Name));
        var strict = new UTF8Encoding(encoderShouldEmitUTF8Identifier: false, throwOnInvalidBytes: true);
        Assert.All(files.Where(file => file.Extension != ".gz"), file => Assert.Contains("half ", File.ReadAllText(file.FullName, strict)));
    }

    // Of whatever a program may call its functions and threads, each format makes what its readers take.
    [Theory]
    [InlineData("<script>alert(1)</script>")]
    [InlineData("a\"b'c\\d;e f\n\u0000]]>&amp;")]
    [InlineData("\u202eright to left\u202c\u2066")]
    [InlineData("\ud800 half \udfff")]
    [InlineData("ten thousand")]
    public void HostileNamesAreTextOnly(string name)
    {
        name = name == "ten thousand" ? new string('x', 10_000) : name;
        using var folder = new TemporaryFolder();
        var profile = new Profiles().Thread(1, name, name, "A|" + name.Replace('|', '!'), "~" + name).ToProfile();
        Assert.Empty(profile.TrySave(folder.FullName, "hostile", folder["hostile.folded"]));
        foreach (var drawing in new[] { "hostile.svg", "hostile.difference.svg" })
        {
            var root = XDocument.Parse(File.ReadAllText(folder[drawing])).Root!;
            Assert.Single(root.Descendants(root.Name.Namespace + "script"));
            Assert.DoesNotContain(root.Descendants(), element => element.Attributes().Any(attribute => attribute.Name.LocalName.StartsWith("on")));
        }
        using var json = JsonDocument.Parse(File.ReadAllText(folder["hostile.speedscope.json"]));
        var lines = File.ReadAllLines(folder["hostile.folded"]);
        Assert.Equal(3, lines.Length);
        Assert.All(lines, line => Assert.EndsWith(" 1", line));
        Assert.Equal(3, Assert.Single(Export.Spans.RunReader("pprof.js", folder["hostile.pb.gz"])).GetProperty("samples").GetArrayLength() + 1);
    }
}
