// What the serializer knows of types, and its naming.
using Newtonsoft.Json;
using Newtonsoft.Json.Serialization;

internal static class Contracts
{
    public static IEnumerable<string> Run()
    {
        var resolver = new DefaultContractResolver();
        foreach (var type in new[]
                 {
                     typeof(int), typeof(string), typeof(Point), typeof(Node), typeof(int[]),
                     typeof(Dictionary<string, int>),
                     typeof(Attributed), typeof(WithContract), typeof(Immutable), typeof(Dynamic), typeof(Access),
                     typeof(Exception), typeof(Newtonsoft.Json.Linq.JObject), typeof(IEnumerable<Node>), typeof(Uri),
                     typeof(KeyValuePair<int, int>),
                 })
        {
            var contract = resolver.ResolveContract(type);
            var members = contract is JsonObjectContract o ? string.Join(" ",
                o.Properties.Select(p => $"{p.PropertyName}:{p.Order}:{p.Readable}:{p.Writable}")) : "";
            yield return Program.Line(type.Name, contract.GetType().Name, contract.IsReference,
                contract.DefaultCreator != null, members);
        }
        foreach (NamingStrategy naming in new NamingStrategy[]
                 {
                     new DefaultNamingStrategy(), new CamelCaseNamingStrategy(true, true),
                     new SnakeCaseNamingStrategy(), new KebabCaseNamingStrategy(),
                 })
        {
            yield return string.Join(" ", new[] { "URLValue", "ID", "aB", "Some Name", "x", "HTML5Page" }
                .Select(name => string.Join(",", naming.GetPropertyName(name, false), naming.GetDictionaryKey(name),
                    naming.GetExtensionDataName(name))));
        }
        foreach (var value in new object?[] { null, true, 'c', 1.0, 1e300, double.NaN, float.MaxValue, 1m, "s'\"",
            new Uri("http://a/"), Guid.Empty, TimeSpan.MinValue, DateTime.UnixEpoch, Access.Write })
        {
            yield return JsonConvert.ToString(value);
        }
    }
}
