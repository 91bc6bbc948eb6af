using System.IO;
using System.Linq;
using System.Text;
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
}
