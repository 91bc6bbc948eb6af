// Writes down what a crash dump shows of the thread that crashed: the exception, and its stack, innermost first.
//
//   dumped DUMP RUNTIME OUTPUT
//
// RUNTIME is the folder of the runtime that the dumped program ran in.
using System;
using System.IO;
using System.Linq;
using Microsoft.Diagnostics.Runtime;

using var dump = DataTarget.LoadDump(args[0]);
using var runtime = dump.ClrVersions.Single().CreateRuntime(Path.Combine(args[1], "mscordaccore.dll"), ignoreMismatch: true);
var crashed = runtime.Threads.Single(thread => thread.CurrentException != null);
using var output = new StreamWriter(args[2]);
output.WriteLine($"{crashed.CurrentException!.Type.Name}: {crashed.CurrentException.Message}");
foreach (var frame in crashed.EnumerateStackTrace())
{
    output.WriteLine($"{frame.Kind} {frame.Method?.Type.Name}.{frame.Method?.Name}");
}
