// A stand-in for a method of the target table, in an assembly that is security-transparent as a whole.
using System.Runtime.CompilerServices;
using System.Security;

[assembly: SecurityTransparent]

namespace Corvane.BVT
{
    public static class Activator
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static string Activate() => "activated";
    }
}
