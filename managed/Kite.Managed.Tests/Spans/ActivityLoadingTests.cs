// When the platform's activities are loaded.
using Xunit;

namespace Kite.Managed.Tests.Spans;

public class ActivityLoadingTests
{
    // What only few programs need would be half of the start of a small one.
    [Fact]
    public void ActivitiesAreLoadedByTheProgramAlone()
    {
        using var program = new HookedProgram();
        // A method that is optimised at once loads what it may call.
        var run = ChildProgram.Run(
            program.Path, ["listen later"], ("DOTNET_STARTUP_HOOKS", program.Library), ("DOTNET_TieredCompilation", "1"));
        Assert.Equal(["out", "False", "Program.Name", "Program.Add"], run.Output);
        Assert.Equal(3, run.ExitCode);
    }
}
