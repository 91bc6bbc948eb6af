using System;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

internal static class Server
{
    internal static void Describe(Span span, Uri uri)
    {
        if (!uri.IsAbsoluteUri || uri.Host.Length == 0)
        {
            return;
        }
        span.SetAttribute(AttributeNames.ServerAddress, uri.Host);
        if (uri.Port >= 0)
        {
            span.SetAttribute(AttributeNames.ServerPort, (long)uri.Port);
        }
    }
}
