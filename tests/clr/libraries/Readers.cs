// Readers and writers by hand, synchronous and asynchronous.
using System.Globalization;
using Newtonsoft.Json;
using Newtonsoft.Json.Linq;

internal static class Readers
{
    private const string Text =
        "{ 'a' : [ 1, -2.5e3, 0x1F, 0777, 'te\\u0041xt', true, null, undefined, NaN, -Infinity ], // end\n" +
        " \"b\": new Thing(1, 'x'), c: /* in */ '2020-02-03T04:05:06Z', d:'/Date(1000)/' }";

    public static IEnumerable<string> Run()
    {
        yield return ReadAll(new JsonTextReader(new StringReader(Text)));
        yield return ReadAll(new JsonTextReader(new StringReader(Text.Replace("NaN, -Infinity", "1.50")))
        {
            DateParseHandling = DateParseHandling.DateTimeOffset,
            FloatParseHandling = FloatParseHandling.Decimal,
            Culture = CultureInfo.InvariantCulture,
        });
        yield return Wait(ReadAllAsync(new JsonTextReader(new StringReader(Text)) { ArrayPool = new Pool() }));
        yield return Typed();
        yield return Wait(TypedAsync());
        yield return Write();
        yield return Wait(WriteAsync());
        yield return Several();
        yield return Wait(JToken.LoadAsync(new JsonTextReader(new StringReader(Text)))).ToString(Formatting.None);
        yield return Program.Failure(() => new JsonTextWriter(new StringWriter()).WriteEndArray());
        yield return Program.Failure(() => new JsonTextWriter(new StringWriter()).WriteValue(new object()));
        yield return Program.Failure(() => Wait(JToken.LoadAsync(new JsonTextReader(new StringReader("{'a':")))));
    }

    private static T Wait<T>(Task<T> task) => task.GetAwaiter().GetResult();

    private static string ReadAll(JsonTextReader reader)
    {
        var parts = new List<string>();
        while (reader.Read())
        {
            var value = Convert.ToString(reader.Value, CultureInfo.InvariantCulture);
            parts.Add($"{reader.TokenType}:{value}:{reader.ValueType?.Name}:{reader.Depth}:{reader.Path}:{reader.LineNumber}");
        }
        return string.Join(" ", parts);
    }

    private static async Task<string> ReadAllAsync(JsonTextReader reader)
    {
        var parts = new List<string>();
        while (await reader.ReadAsync().ConfigureAwait(false))
        {
            parts.Add(FormattableString.Invariant($"{reader.TokenType}:{reader.Value}"));
        }
        return string.Join(" ", parts);
    }

    private static string Typed()
    {
        var reader = new JsonTextReader(new StringReader("[1,'2',3.5,'AQI=','true',1577836800000,'2020-01-01',null]"));
        reader.Read();
        return Program.Line(
            reader.ReadAsInt32(), reader.ReadAsInt32(), reader.ReadAsDecimal(), reader.ReadAsBytes()?.Length,
            reader.ReadAsBoolean(), reader.ReadAsDouble(), $"{reader.ReadAsDateTime():O}", reader.ReadAsString());
    }

    private static async Task<string> TypedAsync()
    {
        var reader = new JsonTextReader(
            new StringReader("[1,'2',3.5,'AQI=','true',1577836800000,'2020-01-01T00:00:00Z',null]"));
        await reader.ReadAsync();
        return Program.Line(
            await reader.ReadAsInt32Async(), await reader.ReadAsDecimalAsync(), await reader.ReadAsDoubleAsync(),
            (await reader.ReadAsBytesAsync())?.Length, await reader.ReadAsBooleanAsync(), await reader.ReadAsDoubleAsync(),
            $"{await reader.ReadAsDateTimeOffsetAsync():O}", await reader.ReadAsStringAsync());
    }

    private static string Write()
    {
        var text = new StringWriter();
        using (var writer = new JsonTextWriter(text))
        {
            writer.Formatting = Formatting.Indented;
            writer.Indentation = 1;
            writer.IndentChar = '-';
            writer.QuoteChar = '\'';
            writer.QuoteName = false;
            writer.ArrayPool = new Pool();
            writer.WriteStartObject();
            writer.WritePropertyName("it's");
            writer.WriteStartArray();
            WriteValues(writer);
            writer.WriteComment("done");
            writer.WriteEndArray();
            writer.WritePropertyName("raw");
            writer.WriteRawValue("{}");
            writer.WritePropertyName("new");
            writer.WriteStartConstructor("T");
            writer.WriteEndConstructor();
            writer.WritePropertyName("copied");
            writer.WriteToken(new JsonTextReader(new StringReader("['text',{'a':null}]")));
        }
        return text.ToString().ReplaceLineEndings("|");
    }

    private static void WriteValues(JsonTextWriter writer)
    {
        writer.WriteValue((sbyte)-1);
        writer.WriteValue((byte)1);
        writer.WriteValue((short)-2);
        writer.WriteValue((ushort)2);
        writer.WriteValue(-3);
        writer.WriteValue(3u);
        writer.WriteValue(-4L);
        writer.WriteValue(4ul);
        writer.WriteValue(1.5f);
        writer.WriteValue(2.5);
        writer.WriteValue(3.5m);
        writer.WriteValue('c');
        writer.WriteValue(true);
        writer.WriteValue((string?)null);
        writer.WriteValue((int?)5);
        writer.WriteValue((double?)null);
        writer.WriteValue((decimal?)6m);
        writer.WriteValue((DateTime?)DateTime.UnixEpoch);
        writer.WriteValue(DateTimeOffset.UnixEpoch);
        writer.WriteValue((Guid?)Guid.Empty);
        writer.WriteValue(TimeSpan.FromTicks(1));
        writer.WriteValue(new Uri("http://x/"));
        writer.WriteValue(new byte[] { 9, 8, 7, 6, 5 });
        writer.WriteValue((object)7);
        writer.WriteNull();
        writer.WriteUndefined();
    }

    private static async Task<string> WriteAsync()
    {
        var text = new StringWriter();
        using (var writer = new JsonTextWriter(text) { Formatting = Formatting.Indented })
        {
            await writer.WriteStartObjectAsync();
            await writer.WritePropertyNameAsync("values");
            await writer.WriteStartArrayAsync();
            await writer.WriteValueAsync(1);
            await writer.WriteValueAsync("two");
            await writer.WriteValueAsync(3.5);
            await writer.WriteValueAsync((decimal?)4m);
            await writer.WriteValueAsync(DateTime.UnixEpoch);
            await writer.WriteValueAsync(Guid.Empty);
            await writer.WriteValueAsync(new byte[] { 1 });
            await writer.WriteNullAsync();
            await writer.WriteCommentAsync("c");
            await writer.WriteRawValueAsync("[]");
            await writer.WriteEndArrayAsync();
            await writer.WriteEndObjectAsync();
            await writer.FlushAsync();
        }
        return text.ToString().ReplaceLineEndings("|");
    }

    private static string Several()
    {
        using var reader = new JsonTextReader(new StringReader("{'n':1} {'n':2}\n[3]"));
        reader.SupportMultipleContent = true;
        var serializer = JsonSerializer.CreateDefault();
        var parts = new List<string>();
        while (reader.Read())
        {
            parts.Add(serializer.Deserialize<JToken>(reader)!.ToString(Formatting.None));
        }
        return string.Join(" ", parts);
    }

    private sealed class Pool : IArrayPool<char>
    {
        public char[] Rent(int minimumLength) => new char[minimumLength];

        public void Return(char[]? array)
        {
        }
    }
}
