using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Reflection;
using System.Runtime.InteropServices;
using Corvane.Instrumentation.Privacy;

namespace Corvane.Instrumentation.Export;

// What is said of this process with all of its spans, by the names of OpenTelemetry's conventions. Immutable.
internal sealed class Resource
{
    private const int MaxValue = 4_096;

    private readonly List<KeyValuePair<string, object>> attributes = new List<KeyValuePair<string, object>>();

    private Resource()
    {
    }

    internal IReadOnlyCollection<KeyValuePair<string, object>> Attributes => attributes;

    internal string ServiceName { get; private set; } = "";

    internal long ProcessId { get; private set; }

    internal static string LibraryVersion { get; } =
        typeof(Resource).Assembly.GetCustomAttribute<AssemblyInformationalVersionAttribute>()?.InformationalVersion ?? "";

    // What the program's user says of it goes before what is found out.
    internal static Resource From(Variables variables)
    {
        var resource = new Resource();
        foreach (var pair in variables.Attributes("OTEL_RESOURCE_ATTRIBUTES"))
        {
            resource.Set(pair.Key, SecretNames.IsSecret(pair.Key) ? SecretText.Mask : SecretText.Redact(pair.Value, MaxValue));
        }
        if (variables.Text("OTEL_SERVICE_NAME") is { } service)
        {
            resource.Set("service.name", service);
        }
        using (var process = Process.GetCurrentProcess())
        {
            resource.ProcessId = process.Id;
            resource.Add("service.name", () => ProgramName());
            resource.Add("process.pid", () => (long)process.Id);
            resource.Add("process.executable.name", () => Path.GetFileName(process.MainModule!.FileName!));
        }
        resource.Add("process.runtime.name", () => Runtime().Name);
        resource.Add("process.runtime.version", () => Runtime().Version);
        resource.Add("host.name", () => Environment.MachineName);
        resource.Set("telemetry.sdk.name", "corvane");
        resource.Set("telemetry.sdk.language", "dotnet");
        resource.Set("telemetry.sdk.version", LibraryVersion);
        resource.ServiceName = resource.attributes.Find(attribute => attribute.Key == "service.name").Value as string ?? "";
        return resource;
    }

    private void Set(string key, object value)
    {
        attributes.RemoveAll(attribute => attribute.Key == key);
        attributes.Add(new KeyValuePair<string, object>(key, value));
    }

    // A system that does not say does not keep the program's spans from being written.
    private void Add(string key, Func<object> find)
    {
        try
        {
            if (!attributes.Exists(attribute => attribute.Key == key))
            {
                Set(key, find());
            }
        }
        catch (Exception)
        {
        }
    }

    // Of a program that a general host runs the domain has the name.
    private static string ProgramName()
    {
        var name = AppDomain.CurrentDomain.FriendlyName;
        return name.EndsWith(".exe", StringComparison.OrdinalIgnoreCase) ? name.Substring(0, name.Length - 4) : name;
    }

    private static (string Name, string Version) Runtime() => Runtime(RuntimeInformation.FrameworkDescription);

    // As in ".NET 8.0.30", ".NET Framework 4.8.9300.0" or "Mono 6.8.0 (of somebody 2025)".
    internal static (string Name, string Version) Runtime(string description)
    {
        var words = description.Split(' ');
        var version = Array.FindIndex(words, word => word.Length > 0 && char.IsDigit(word[0]));
        return version < 1
            ? (description, Environment.Version.ToString())
            : (string.Join(" ", words, 0, version), words[version]);
    }
}
