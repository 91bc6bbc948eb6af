// XML and tables to JSON and back.
using System.Data;
using System.Xml;
using System.Xml.Linq;
using Newtonsoft.Json;
using Newtonsoft.Json.Converters;

internal static class XmlNodes
{
    private const string Xml = "<?xml version=\"1.0\"?><!DOCTYPE r><r xmlns:n=\"urn:n\" a=\"1\"><n:x>t</n:x><y/><y>2</y><![CDATA[<raw>]]><!--c--><?p i?></r>";

    public static IEnumerable<string> Run()
    {
        var document = new XmlDocument();
        document.LoadXml(Xml);
        var json = JsonConvert.SerializeXmlNode(document);
        yield return json;
        yield return JsonConvert.DeserializeXmlNode(json)!.OuterXml;
        var linq = XDocument.Parse(Xml);
        json = JsonConvert.SerializeXNode(linq, Newtonsoft.Json.Formatting.None, omitRootObject: true);
        yield return json;
        yield return JsonConvert.DeserializeXNode("{'a':{'@id':5,'#text':'t','b':[1,null,{'c':true}]}}", "root",
            true)!.ToString(SaveOptions.DisableFormatting);
        yield return Program.Failure(() => JsonConvert.DeserializeXmlNode("{'a':1,'b':2}"));

        var table = new DataTable("t") { Columns = { { "id", typeof(int) }, { "name", typeof(string) },
            { "at", typeof(DateTime) } } };
        table.Rows.Add(1, "one", DateTime.UnixEpoch);
        table.Rows.Add(2, DBNull.Value, DBNull.Value);
        json = JsonConvert.SerializeObject(table, new DataTableConverter());
        yield return json;
        var back = JsonConvert.DeserializeObject<DataTable>(json)!;
        yield return string.Join(" ", back.Columns.Cast<DataColumn>().Select(c => $"{c.ColumnName}:{c.DataType.Name}"));
        var set = new DataSet { Tables = { table } };
        yield return JsonConvert.SerializeObject(JsonConvert.DeserializeObject<DataSet>(JsonConvert.SerializeObject(set)));
    }
}
