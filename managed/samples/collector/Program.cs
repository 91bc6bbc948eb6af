// Takes the place of a collector where there is none: it prints a line for each span that it is sent, and keeps nothing.
//
//     collector.exe --urls http://localhost:4318
//
// It understands OTLP over HTTP in its binary form, which senders use unless told otherwise.
using System.Text;

var builder = WebApplication.CreateBuilder(args);
builder.Logging.ClearProviders();
var app = builder.Build();
app.MapPost("/v1/traces", async (HttpRequest request) =>
{
    using var body = new MemoryStream();
    await request.Body.CopyToAsync(body);
    Print(body.ToArray());
    return Results.Bytes([], "application/x-protobuf"); // all was taken
});
app.Run();

// A request has resources (field 1), each of which has scopes (2), each of which has spans (2).
static void Print(byte[] request)
{
    foreach (var resource in Fields(request, 1))
    {
        foreach (var span in Fields(resource, 2).SelectMany(scope => Fields(scope, 2)))
        {
            var trace = Convert.ToHexString(Fields(span, 1).First().Span).ToLowerInvariant();
            Console.WriteLine($"trace {trace}  {Encoding.UTF8.GetString(Fields(span, 5).First().Span)}");
        }
    }
}

// The texts, bytes and messages of a message that have this number.
static List<ReadOnlyMemory<byte>> Fields(ReadOnlyMemory<byte> message, int wanted)
{
    var found = new List<ReadOnlyMemory<byte>>();
    var position = 0;
    while (position < message.Length)
    {
        var tag = Number(message, ref position);
        switch (tag & 7)
        {
            case 0:
                Number(message, ref position);
                break;
            case 1:
                position += 8;
                break;
            case 2:
                var length = (int)Number(message, ref position);
                if (tag >> 3 == (ulong)wanted)
                {
                    found.Add(message.Slice(position, length));
                }
                position += length;
                break;
            default:
                position += 4;
                break;
        }
    }
    return found;
}

static ulong Number(ReadOnlyMemory<byte> message, ref int position)
{
    ulong number = 0;
    for (var shift = 0; ; shift += 7)
    {
        var part = message.Span[position++];
        number |= (ulong)(part & 0x7F) << shift;
        if (part < 0x80)
        {
            return number;
        }
    }
}
