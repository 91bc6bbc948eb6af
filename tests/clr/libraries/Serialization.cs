// Objects to JSON and back.
using System.Dynamic;
using Newtonsoft.Json;
using Newtonsoft.Json.Converters;
using Newtonsoft.Json.Serialization;

internal static class Serialization
{
    public static IEnumerable<string> Run()
    {
        yield return RoundTrip(new Primitives());
        yield return RoundTrip(new Collections());
        yield return RoundTrip(new Person("Ada", 36, Access.All));
        yield return RoundTrip(new Person("", null, Access.None));
        yield return RoundTrip(new Point(3, -0.5));
        yield return RoundTrip(new WithContract());
        yield return RoundTrip(new Immutable("t", 7, [1, 2]));
        yield return RoundTrip(new { Anonymous = true, Inner = new { Deep = 1.25m } });
        yield return RoundTrip(Chain(20));
        foreach (var line in Settings().Concat(Populating()).Concat(Dynamics()).Concat(Failures()))
        {
            yield return line;
        }
    }

    private static string RoundTrip<T>(T value)
    {
        var json = JsonConvert.SerializeObject(value);
        var again = JsonConvert.SerializeObject(JsonConvert.DeserializeObject<T>(json));
        return json == again ? json : $"{json} became {again}";
    }

    private static Node Chain(int length)
    {
        var node = new Node { Name = $"n{length}" };
        if (length > 0)
        {
            node.Next = Chain(length - 1);
            node.Children.Add(new Node { Name = "leaf" });
        }
        return node;
    }

    private static IEnumerable<string> Settings()
    {
        var primitives = new Primitives();
        foreach (var settings in new JsonSerializerSettings[]
                 {
                     new() { Formatting = Formatting.Indented },
                     new() { ContractResolver = new CamelCasePropertyNamesContractResolver() },
                     new()
                     {
                         ContractResolver = new DefaultContractResolver { NamingStrategy = new KebabCaseNamingStrategy() },
                     },
                     new() { ContractResolver = new UpperCaseResolver() },
                     new() { NullValueHandling = NullValueHandling.Ignore,
                         DefaultValueHandling = DefaultValueHandling.Ignore },
                     new() { DateFormatHandling = DateFormatHandling.MicrosoftDateFormat,
                         DateTimeZoneHandling = DateTimeZoneHandling.Utc },
                     new() { DateFormatString = "yyyy'/'MM" },
                     new() { StringEscapeHandling = StringEscapeHandling.EscapeNonAscii },
                     new() { StringEscapeHandling = StringEscapeHandling.EscapeHtml,
                         FloatFormatHandling = FloatFormatHandling.Symbol },
                     new() { Converters = { new StringEnumConverter(new CamelCaseNamingStrategy()),
                         new IsoDateTimeConverter(), new VersionConverter() } },
                     new() { Converters = { new JavaScriptDateTimeConverter() } },
                     new() { TypeNameHandling = TypeNameHandling.All },
                 })
        {
            yield return JsonConvert.SerializeObject(primitives, settings).ReplaceLineEndings("|");
        }
        var unix = new JsonSerializerSettings { Converters = { new UnixDateTimeConverter() } };
        var second = JsonConvert.SerializeObject(new DateTime(2001, 9, 9, 1, 46, 40, DateTimeKind.Utc), unix);
        yield return $"{second} {JsonConvert.DeserializeObject<DateTime>(second, unix):O}";

        var named = new JsonSerializerSettings { TypeNameHandling = TypeNameHandling.Auto,
            SerializationBinder = new ShortNames() };
        Animal[] animals = [new Dog { Legs = 4 }, new Bird { Legs = 2, Flight = TimeSpan.FromDays(2) }];
        var zoo = JsonConvert.SerializeObject(animals, named);
        yield return zoo;
        animals = JsonConvert.DeserializeObject<Animal[]>(zoo, named)!;
        yield return string.Join(", ", animals.Select(animal => $"{animal.GetType().Name} {animal.Legs}"));
        yield return JsonConvert.DeserializeObject<Animal>("{'Legs':2,'Flight':'1.00:00:00'}",
            new AnimalConverter())!.GetType().Name;
        var point = JsonConvert.SerializeObject(new Point(5, 2.25), new PointConverter());
        yield return $"{point} {JsonConvert.DeserializeObject<Point>(point, new PointConverter())}";

        var loop = new Node { Name = "loop" };
        loop.Next = loop;
        var references = new JsonSerializerSettings { PreserveReferencesHandling = PreserveReferencesHandling.All };
        var looped = JsonConvert.SerializeObject(loop, references);
        var back = JsonConvert.DeserializeObject<Node>(looped, references)!;
        yield return $"{looped} {ReferenceEquals(back, back.Next)}";
        yield return JsonConvert.SerializeObject(loop,
            new JsonSerializerSettings { ReferenceLoopHandling = ReferenceLoopHandling.Ignore });

        using var text = new StringWriter();
        var trace = new MemoryTraceWriter();
        var serializer = JsonSerializer.Create(new JsonSerializerSettings { TraceWriter = trace });
        serializer.Serialize(text, new Attributed());
        yield return $"{text} {trace.GetTraceMessages().Count()}";
    }

    private static IEnumerable<string> Populating()
    {
        var attributed = JsonConvert.DeserializeObject<Attributed>(
            "{renamed:'x', 'Accesses':['Read',3], /* a comment */ unknown:{a:[1,2]}, Access:'write-it'}")!;
        yield return JsonConvert.SerializeObject(attributed, Formatting.None);
        var node = new Node { Name = "kept", Children = { new Node { Name = "first" } } };
        JsonConvert.PopulateObject("{'Next':{'Name':'new'},'Children':[{'Name':'second'}]}", node);
        yield return JsonConvert.SerializeObject(node);
        JsonConvert.PopulateObject("{'Children':[]}", node,
            new JsonSerializerSettings { ObjectCreationHandling = ObjectCreationHandling.Reuse });
        yield return JsonConvert.SerializeObject(node);
        yield return JsonConvert.SerializeObject(new WithCallbacks());
        yield return Program.Line(JsonConvert.DeserializeObject<WithCallbacks>("{'Value':'no number'}")!.Value,
            string.Join(", ", WithCallbacks.Heard));
        var sample = new { Name = "", Count = 0 };
        yield return JsonConvert.DeserializeAnonymousType("{'Name':'n','Count':'5'}", sample)!.ToString()!;
    }

    private static IEnumerable<string> Dynamics()
    {
        dynamic expando = new ExpandoObject();
        expando.A = 1;
        expando.B = new[] { "x", "y" };
        yield return JsonConvert.SerializeObject(expando);
        dynamic own = new Dynamic();
        own.Second = 2;
        own.First = "f";
        yield return JsonConvert.SerializeObject(own);
        var read = (IDictionary<string, object?>)JsonConvert.DeserializeObject<ExpandoObject>(
            "{'k':{'l':[1,{'m':null}]}}", new ExpandoObjectConverter())!;
        yield return JsonConvert.SerializeObject(read);
        dynamic token = JsonConvert.DeserializeObject("{'a':{'b':[10,20,30]},'s':'text'}")!;
        int middle = token.a.b[1];
        string text = token.s;
        token.added = middle + 1;
        yield return $"{middle} {text} {token.added} {token.missing == null}";
    }

    private static IEnumerable<string> Failures()
    {
        foreach (var json in new[] { "{", "[1,2", "{'a' 1}", "nul", "'unclosed", "{'X':1.5}", "[1]", "/*",
            "{'X':99999999999}", "\"\\u12\"", "{'a':undefined}" })
        {
            yield return Program.Failure(() => JsonConvert.DeserializeObject<Point>(json));
        }
        yield return Program.Failure(() => JsonConvert.DeserializeObject<Attributed>("{}"));
        yield return Program.Failure(() => JsonConvert.DeserializeObject<Animal>("{}"));
        yield return Program.Failure(() => JsonConvert.DeserializeObject<Access>("'Unknown'"));
        yield return Program.Failure(() => JsonConvert.DeserializeObject<Immutable>("{'list':{}}"));
        yield return Program.Failure(() => JsonConvert.DeserializeObject<Node>("{'Nome':1}",
            new JsonSerializerSettings { MissingMemberHandling = MissingMemberHandling.Error }));
        yield return Program.Failure(() => JsonConvert.DeserializeObject<int[]>("[[[[1]]]]",
            new JsonSerializerSettings { MaxDepth = 2 }));
        yield return Program.Failure(() => JsonConvert.SerializeObject(new Throwing()));
        var loop = new Node();
        loop.Next = loop;
        yield return Program.Failure(() => JsonConvert.SerializeObject(loop));
        var errors = new List<string>();
        var list = JsonConvert.DeserializeObject<List<int>>("[1,'x',3,1e400,5]", new JsonSerializerSettings
        {
            Error = (_, happened) =>
            {
                errors.Add(happened.ErrorContext.Path);
                happened.ErrorContext.Handled = true;
            },
        })!;
        yield return $"{string.Join(",", list)} without {string.Join(" and ", errors)}";
    }

    private sealed class Throwing
    {
        public int Value => throw new InvalidOperationException("the getter's own");
    }
}
