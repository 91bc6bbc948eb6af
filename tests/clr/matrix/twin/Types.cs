// A type that another module has too, where it is of another kind.
using System;

namespace Elsewhere;

public ref struct Size
{
    public Span<int> Content;
}
