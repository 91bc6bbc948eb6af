// What is serialized: the shapes that the serializer tells apart.
using System.Collections;
using System.Collections.ObjectModel;
using System.Dynamic;
using System.Runtime.Serialization;
using Newtonsoft.Json;
using Newtonsoft.Json.Converters;
using Newtonsoft.Json.Serialization;

[Flags]
internal enum Access
{
    None = 0,
    Read = 1,
    [EnumMember(Value = "write-it")]
    Write = 2,
    All = Read | Write,
}

internal readonly record struct Point(int X, double Y);

internal record Person(string Name, int? Age, Access Access);

internal class Node
{
    public string? Name { get; set; }
    public Node? Next { get; set; }
    public List<Node> Children { get; } = [];
}

internal abstract class Animal
{
    public int Legs { get; set; }
}

internal sealed class Dog : Animal
{
    public bool Barks { get; set; }
}

internal sealed class Bird : Animal
{
    public TimeSpan Flight { get; set; }
}

internal sealed class Primitives
{
    public bool Boolean { get; set; } = true;
    public byte Byte { get; set; } = 200;
    public sbyte SByte { get; set; } = -100;
    public short Int16 { get; set; } = -30_000;
    public ushort UInt16 { get; set; } = 60_000;
    public int Int32 { get; set; } = int.MinValue;
    public uint UInt32 { get; set; } = uint.MaxValue;
    public long Int64 { get; set; } = long.MinValue;
    public ulong UInt64 { get; set; } = ulong.MaxValue;
    public float Single { get; set; } = 1.5f;
    public double Double { get; set; } = double.Epsilon;
    public decimal Decimal { get; set; } = 79228162514264337593543950335m;
    public char Char { get; set; } = '\u2028';
    public string String { get; set; } = "tab\t quote\" \u00e9 \ud83d\ude00";
    public DateTime Date { get; set; } = new(2024, 2, 29, 23, 59, 58, 123, DateTimeKind.Utc);
    public DateTimeOffset Offset { get; set; } = new(2024, 2, 29, 1, 2, 3, TimeSpan.FromHours(-7));
    public TimeSpan Span { get; set; } = new(1, 2, 3, 4, 5);
    public Guid Guid { get; set; } = new("0f8fad5b-d9cb-469f-a165-70867728950e");
    public Uri Uri { get; set; } = new("https://example.com/a?b=c#d");
    public Version Version { get; set; } = new(1, 2, 3, 4);
    public byte[] Bytes { get; set; } = [1, 2, 3, 254];
    public int? Nothing { get; set; }
    public Access Access { get; set; } = Access.Read | Access.Write;
    public System.Numerics.BigInteger Big { get; set; } = System.Numerics.BigInteger.Pow(7, 50);
    public Type Type { get; set; } = typeof(string);
    public object Anything { get; set; } = 12L;
}

internal sealed class Collections
{
    public int[] Array { get; set; } = [1, 2, 3];
    public int[,] Grid { get; set; } = { { 1, 2 }, { 3, 4 } };
    public int[][] Jagged { get; set; } = [[1], [2, 3], []];
    public List<string?> List { get; set; } = ["a", null, "c"];
    public Dictionary<string, int> Map { get; set; } = new() { ["one"] = 1, ["two"] = 2 };
    public Dictionary<Access, Point> ByEnum { get; set; } = new() { [Access.Read] = new(1, 2.5) };
    public SortedDictionary<int, string> Sorted { get; set; } = new() { [2] = "b", [1] = "a" };
    public HashSet<int> Set { get; set; } = [5, 6];
    public Queue<int> Queue { get; set; } = new([1, 2]);
    public Stack<int> Stack { get; set; } = new([1, 2]);
    public LinkedList<int> Linked { get; set; } = new([7, 8]);
    public ReadOnlyCollection<int> ReadOnly { get; set; } = new([9, 10]);
    public IEnumerable<int> Lazy { get; set; } = Enumerable.Range(1, 3).ToList();
    public IReadOnlyDictionary<string, object> Mixed { get; set; } =
        new Dictionary<string, object> { ["n"] = 1L, ["s"] = "x", ["z"] = 1.5 };
    public ArrayList Untyped { get; set; } = new() { 1L, "two", null };
    public Hashtable Table { get; set; } = new() { ["key"] = "value" };
    public KeyValuePair<string, int> Pair { get; set; } = new("k", 1);
    public Tuple<int, string> Tuple { get; set; } = System.Tuple.Create(1, "t");
    public (int Left, string Right) ValueTuple { get; set; } = (3, "r");
}

[JsonObject(MemberSerialization.OptIn, Title = "attributed")]
internal sealed class Attributed
{
    [JsonProperty("renamed", Order = 2, Required = Required.Always)]
    public string Name { get; set; } = "n";

    [JsonProperty(Order = 1, NullValueHandling = NullValueHandling.Ignore)]
    public string? Nothing { get; set; }

    [JsonProperty(DefaultValueHandling = DefaultValueHandling.Populate)]
    [System.ComponentModel.DefaultValue(17)]
    public int Defaulted { get; set; }

    [JsonProperty]
    [JsonConverter(typeof(StringEnumConverter))]
    public Access Access { get; set; } = Access.Write;

    [JsonProperty(ItemConverterType = typeof(StringEnumConverter))]
    public List<Access> Accesses { get; set; } = [Access.Read, Access.All];

    [JsonProperty(NamingStrategyType = typeof(SnakeCaseNamingStrategy))]
    public int SnakeCased { get; set; } = 1;

    [JsonProperty(TypeNameHandling = TypeNameHandling.Auto)]
    public Animal Animal { get; set; } = new Dog { Legs = 4, Barks = true };

    public int NotThere { get; set; } = 99;

    [JsonExtensionData]
    public IDictionary<string, Newtonsoft.Json.Linq.JToken> Rest { get; set; } =
        new Dictionary<string, Newtonsoft.Json.Linq.JToken>();
}

[DataContract(Name = "contract")]
internal sealed class WithContract
{
    [DataMember(Name = "first", Order = 1, IsRequired = true)]
    public int First { get; set; } = 1;

    [DataMember(EmitDefaultValue = false)]
    public int Second { get; set; }

    [IgnoreDataMember]
    public int Third { get; set; } = 3;
}

internal sealed class WithCallbacks
{
    public static readonly List<string> Heard = [];

    public int Value { get; set; } = 1;

    public bool ShouldSerializeHidden() => false;
    public int Hidden { get; set; } = 2;

    [OnSerializing] internal void OnSerializing(StreamingContext context) => Heard.Add("serializing");
    [OnSerialized] internal void OnSerialized(StreamingContext context) => Heard.Add("serialized");
    [OnDeserializing] internal void OnDeserializing(StreamingContext context) => Heard.Add("deserializing");
    [OnDeserialized] internal void OnDeserialized(StreamingContext context) => Heard.Add("deserialized");

    [OnError]
    internal void OnError(StreamingContext context, ErrorContext error)
    {
        Heard.Add($"error at {error.Path}");
        error.Handled = true;
    }
}

internal sealed class Immutable
{
    [JsonConstructor]
    public Immutable(string text, int number = 5, IReadOnlyList<int>? list = null)
    {
        Text = text;
        Number = number;
        List = list ?? [];
    }

    public string Text { get; }
    public int Number { get; }
    public IReadOnlyList<int> List { get; }
}

internal sealed class Dynamic : DynamicObject
{
    private readonly SortedDictionary<string, object?> values = new(StringComparer.Ordinal);

    public override IEnumerable<string> GetDynamicMemberNames() => values.Keys;
    public override bool TryGetMember(GetMemberBinder binder, out object? result) =>
        values.TryGetValue(binder.Name, out result);

    public override bool TrySetMember(SetMemberBinder binder, object? value)
    {
        values[binder.Name] = value;
        return true;
    }
}

internal sealed class PointConverter : JsonConverter<Point>
{
    public override void WriteJson(JsonWriter writer, Point value, JsonSerializer serializer) =>
        writer.WriteValue(FormattableString.Invariant($"{value.X};{value.Y}"));

    public override Point ReadJson(
        JsonReader reader, Type objectType, Point existingValue, bool hasExistingValue, JsonSerializer serializer)
    {
        var parts = ((string)reader.Value!).Split(';');
        return new(int.Parse(parts[0]), double.Parse(parts[1], System.Globalization.CultureInfo.InvariantCulture));
    }
}

internal sealed class AnimalConverter : CustomCreationConverter<Animal>
{
    public override Animal Create(Type objectType) => new Bird();
}

internal sealed class UpperCaseResolver : DefaultContractResolver
{
    protected override string ResolvePropertyName(string propertyName) => propertyName.ToUpperInvariant();

    protected override IList<JsonProperty> CreateProperties(Type type, MemberSerialization memberSerialization) =>
        base.CreateProperties(type, memberSerialization).OrderBy(p => p.PropertyName, StringComparer.Ordinal).ToList();
}

internal sealed class ShortNames : ISerializationBinder
{
    public Type BindToType(string? assemblyName, string typeName) => typeName == "d" ? typeof(Dog) : typeof(Bird);

    public void BindToName(Type serializedType, out string? assemblyName, out string? typeName)
    {
        assemblyName = null;
        typeName = serializedType == typeof(Dog) ? "d" : "b";
    }
}
