// The document model and its queries.
using Newtonsoft.Json;
using Newtonsoft.Json.Linq;

internal static class Tokens
{
    public static IEnumerable<string> Run()
    {
        var document = JObject.Parse(
            "{'store':{'name':'s','items':[{'id':1,'price':9.5,'tags':['a','b']},{'id':2,'price':3,'tags':[]}]," +
            "'open':true,'none':null}}",
            new JsonLoadSettings { LineInfoHandling = LineInfoHandling.Load,
                CommentHandling = CommentHandling.Ignore });
        var items = (JArray)document["store"]!["items"]!;
        yield return string.Join(" ", document.Descendants().Select(t => $"{t.Type}@{t.Path}"));
        yield return string.Join(" ", items.Children<JObject>().OrderBy(i => (decimal)i["price"]!)
            .Select(i => (int)i["id"]!));
        yield return string.Join(" ", items.Select(i => i["tags"]!.Values<string>().Count()));
        var info = (IJsonLineInfo)items[1];
        yield return $"{info.HasLineInfo()} {info.LineNumber}:{info.LinePosition}";
        items.Add(new JObject(new JProperty("id", 3), new JProperty("price", 1e-3),
            new JProperty("tags", new JArray("z"))));
        items.Insert(0, JValue.CreateNull());
        items[1].AddBeforeSelf(JValue.CreateComment("before"));
        items[2].AddAfterSelf(new JRaw("{\"raw\":1}"));
        items[0].Replace(JToken.FromObject(new Point(1, 2)));
        yield return document.ToString(Formatting.None);
        ((JObject)items[2]).Property("price")!.Remove();
        document["store"]!["open"]!.Parent!.Replace(new JProperty("closed", false));
        yield return document.ToString(Formatting.Indented).ReplaceLineEndings("|");
        var clone = document.DeepClone();
        yield return Program.Line(JToken.DeepEquals(clone, document),
            new JTokenEqualityComparer().GetHashCode(clone) == new JTokenEqualityComparer().GetHashCode(document));
        ((JObject)clone).Merge(JObject.Parse("{'store':{'items':[7],'name':'merged','extra':{}}}"),
            new JsonMergeSettings { MergeArrayHandling = MergeArrayHandling.Union });
        yield return clone.ToString(Formatting.None);
        foreach (var handling in Enum.GetValues<MergeArrayHandling>())
        {
            var left = JArray.Parse("[1,{'a':1},[2]]");
            left.Merge(JArray.Parse("[1,{'b':2},3,4]"), new JsonMergeSettings { MergeArrayHandling = handling });
            yield return $"{handling} {left.ToString(Formatting.None)}";
        }
        yield return items[0].ToObject<Point>().ToString();
        foreach (var line in Values().Concat(Writing()).Concat(Failures()))
        {
            yield return line;
        }
    }

    private static IEnumerable<string> Values()
    {
        var values = new JArray(1, 2L, 3.5, 4m, "5", true, new DateTime(2020, 1, 2, 3, 4, 5), Guid.Empty,
            new Uri("http://u/"), TimeSpan.FromSeconds(6), new byte[] { 1, 2 }, 7f, new JValue('c'),
            JValue.CreateNull());
        yield return string.Join(" ", values.Select(v => $"{v.Type}={v.ToString(Formatting.None)}"));
        yield return Program.Line((int)values[0], (long)values[1], (double)values[2], (decimal)values[3],
            (int)values[4], (bool)values[5], (string?)values[7], (Guid)values[7], (int?)values[13]);
        yield return Program.Line(((JValue)values[0]).CompareTo((JValue)values[1]),
            new JValue(2.0).Equals(new JValue(2.0)), new JValue("a").CompareTo(new JValue("b")),
            JToken.EqualityComparer.Equals(values[1], new JValue(2)));
        dynamic one = new JValue(40);
        yield return $"{one + 2} {one / 7} {one > 3} {one == 40}";
        yield return string.Join(" ",
            ((IEnumerable<KeyValuePair<string, JToken?>>)JObject.FromObject(new { a = 1, b = "x" })).Select(p => $"{p.Key}:{p.Value}"));
        var observed = new List<string>();
        var watched = new JObject();
        watched.PropertyChanged += (_, changed) => observed.Add($"changed {changed.PropertyName}");
        watched.PropertyChanging += (_, changing) => observed.Add($"changing {changing.PropertyName}");
        watched.CollectionChanged += (_, changed) => observed.Add($"{changed.Action}");
        watched["p"] = 1;
        watched["p"] = 2;
        watched.Remove("p");
        yield return string.Join(", ", observed);
        yield return string.Join(" ", System.ComponentModel.TypeDescriptor.GetProperties(JObject.Parse("{'q':1}"))
            .Cast<System.ComponentModel.PropertyDescriptor>()
            .Select(p => $"{p.Name} {p.GetValue(JObject.Parse("{'q':5}"))}"));
    }

    private static IEnumerable<string> Writing()
    {
        using var writer = new JTokenWriter();
        writer.WriteStartObject();
        writer.WritePropertyName("constructor");
        writer.WriteStartConstructor("Date");
        writer.WriteValue(1);
        writer.WriteEndConstructor();
        writer.WritePropertyName("array");
        writer.WriteStartArray();
        writer.WriteUndefined();
        writer.WriteRawValue("[0]");
        writer.WriteEndArray();
        writer.WriteEndObject();
        yield return writer.Token!.ToString(Formatting.None);
        using var reader = new JTokenReader(writer.Token);
        var types = new List<string>();
        while (reader.Read())
        {
            types.Add($"{reader.TokenType}");
        }
        yield return string.Join(" ", types);
        yield return Program.Line(JConstructor.Load(new JsonTextReader(new StringReader("new Date(5)"))),
            JProperty.Load(Positioned("{'p':[1]}")).Value).ReplaceLineEndings("");
    }

    private static JsonTextReader Positioned(string json)
    {
        var reader = new JsonTextReader(new StringReader(json));
        reader.Read();
        reader.Read();
        return reader;
    }

    private static IEnumerable<string> Failures()
    {
        yield return Program.Failure(() => JObject.Parse("[]"));
        yield return Program.Failure(() => JArray.Parse("{}"));
        yield return Program.Failure(() => JToken.Parse("1 2"));
        yield return Program.Failure(() => _ = (int)JToken.Parse("'x'"));
        yield return Program.Failure(() => _ = (Guid)JToken.Parse("[]"));
        yield return Program.Failure(() => new JObject().Add(new JValue(1)));
        yield return Program.Failure(() => new JObject { { "a", 1 }, { "a", 2 } });
        yield return Program.Failure(() => _ = new JArray()[3]);
        yield return Program.Failure(() => JObject.Parse("{'a':1,'a':2}",
            new JsonLoadSettings { DuplicatePropertyNameHandling = DuplicatePropertyNameHandling.Error }));
    }
}

internal static class Paths
{
    private const string Document = "{'a':{'b':[{'c':1,'d':'x'},{'c':2,'d':'y y'},{'c':3},{'e':{'c':4}}],'f.g':{'h':[5,6,7,8]}},'k':'v'}";

    public static IEnumerable<string> Run()
    {
        var document = JObject.Parse(Document);
        foreach (var path in new[]
                 {
                     "a.b[0].c", "$.a.b[*].c", "$..c", "a.b[?(@.c > 1)].d", "a.b[?(@.d == 'x' || @.c == 3)].c",
                     "a['f.g'].h[1:3]", "a['f.g'].h[-1:]", "a['f.g'].h[::2]", "a['f.g'].h[0,2]", "a['f.g','b']", "$..*", "a.b[?(@.d =~ /Y/i)].c",
                     "a.b[?(@.e)].e.c", "a.b[?(@.c <= 2 && @.d != 'x')].d", "$.k", "nothing.there", "a.b[?(@.c === 3)].c",
                     "a.b[?('v' == $.k)].c",
                 })
        {
            yield return $"{path}: {string.Join(" ", document.SelectTokens(path).Select(t => t.ToString(Formatting.None)))}";
        }
        foreach (var path in new[] { "a[", "a.b[?(@.c", "a..", "a.b[1", "['x'", "a.b[?(@.c ~ 1)]", "a.b[?(!@.d)]",
            "a.b[*].c" })
        {
            yield return Program.Failure(() => document.SelectToken(path,
                new JsonSelectSettings { ErrorWhenNoMatch = true }));
        }
        yield return Program.Failure(() => document.SelectToken("a.none", true));
    }
}
