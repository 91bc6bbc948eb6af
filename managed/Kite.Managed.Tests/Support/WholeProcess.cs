using Xunit;

namespace Kite.Managed.Tests;

// Tests of what is the whole process's, such as listeners and samplers. They run one by one, and beside no other.
[CollectionDefinition(nameof(WholeProcess), DisableParallelization = true)]
public class WholeProcess
{
}
