#include "selection/target_methods.h"

#include "il/element_type.h"
#include "il/sig_parser.h"

#include <algorithm>
#include <bitset>
#include <cstddef>

namespace corvane {

std::vector<TargetMethod> target_methods;

namespace {

enum class When {
    kAlways,
    kLogTraceId, // with either of the next two
    kAddAttribute,
    kInsertId,
};

enum class Place { kBack, kFront };

struct Row {
    TargetMethod method;
    When when = When::kAlways;
    Place place = Place::kBack;
};

template <class... Code>
constexpr ParameterTypes taking(Code... codes) {
    return {{codes...}, sizeof...(codes)};
}

// In the order in which they are added.
// clang-format off
constexpr Row kRows[] = {
    // Database commands
    {{L"System.Data.SqlClient.SqlCommand.ExecuteReader", {}}},
    {{L"System.Data.SqlClient.SqlCommand.ExecuteScalar", {}}},
    {{L"System.Data.SqlClient.SqlCommand.ExecuteNonQuery", {}}},
    {{L"System.Data.SqlClient.SqlCommand.ExecuteXmlReader", {}}},
    {{L"System.Data.SqlClient.SqlCommand.BeginExecuteReader", taking(kElementClass, kElementObject, kElementValueType)}},
    {{L"System.Data.SqlClient.SqlCommand.EndExecuteReader", {}}},
    {{L"System.Data.SqlClient.SqlCommand.BeginExecuteXmlReader", taking(kElementClass, kElementObject)}},
    {{L"System.Data.SqlClient.SqlCommand.EndExecuteXmlReader", {}}},
    {{L"System.Data.SqlClient.SqlCommand.BeginExecuteNonQuery", taking(kElementClass, kElementObject)}},
    {{L"System.Data.SqlClient.SqlCommand.EndExecuteNonQuery", {}}},
    {{L"System.Data.SqlClient.SqlCommand.BeginExecuteReaderInternal", {}}},
    {{L"System.Data.SqlClient.SqlCommand.EndExecuteReaderAsync", {}}},
    {{L"System.Data.SqlClient.SqlCommand.BeginExecuteXmlReaderInternal", {}}},
    {{L"System.Data.SqlClient.SqlCommand.EndExecuteXmlReaderAsync", {}}},
    {{L"System.Data.SqlClient.SqlCommand.BeginExecuteNonQueryInternal", {}}},
    {{L"System.Data.SqlClient.SqlCommand.EndExecuteNonQueryAsync", {}}},
    {{L"Oracle.DataAccess.Client.OracleCommand.ExecuteReader", {}}},
    {{L"Oracle.DataAccess.Client.OracleCommand.ExecuteScalar", {}}},
    {{L"Oracle.DataAccess.Client.OracleCommand.ExecuteNonQuery", {}}},
    {{L"Oracle.DataAccess.Client.OracleCommand.ExecuteXmlReader", {}}},
    {{L"Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteReader", {}}},
    {{L"Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteScalar", {}}},
    {{L"Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteNonQuery", {}}},
    {{L"Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteXmlReader", {}}},
    {{L"System.Data.OracleClient.OracleCommand.ExecuteReader", {}}},
    {{L"System.Data.OracleClient.OracleCommand.ExecuteScalar", {}}},
    {{L"System.Data.OracleClient.OracleCommand.ExecuteNonQuery", {}}},

    // HTTP clients
    {{L"System.Net.Http.HttpClientHandler.SetRequestHeaders", {}}},
    {{L"System.Net.HttpWebRequest.BeginGetResponse", {}}},
    {{L"System.Net.HttpWebRequest.EndGetResponse", {}}},
    {{L"System.Net.HttpWebRequest.GetResponse", {}}},
    {{L"System.Net.HttpWebRequest.BeginGetRequestStream", {}}},

    // Web framework
    {{L"System.Web.Mvc.MvcHandler.BeginProcessRequest", {}}},
    {{L"System.Web.Mvc.ViewResultBase.ExecuteResult", {}}},
    {{L"System.Web.Mvc.MvcHandler.EndProcessRequest", {}}},
    {{L"System.Web.Mvc.ReflectedActionDescriptor.Execute", {}}},
    {{L"System.Web.Mvc.Async.TaskAsyncActionDescriptor.BeginExecute", {}}},

    // Service host and channels
    {{L"System.ServiceModel.ServiceHostBase.InitializeRuntime", {}}},
    {{L"System.ServiceModel.Dispatcher.ImmutableClientRuntime.BeforeSendRequest", {}}},
    {{L"System.ServiceModel.Dispatcher.ImmutableDispatchRuntime.PrepareAndAddressReply", {}}},
    {{L"System.ServiceModel.Dispatcher.ImmutableClientRuntime.AfterReceiveReply", {}}},
    {{L"System.ServiceModel.Channels.ServiceChannel.EndCall", {}}},
    {{L"System.ServiceModel.Channels.ServiceChannel.BeginCall", {}}},
    {{L"System.ServiceModel.Channels.HttpRequestContext.PrepareReply", {}}},
    {{L"System.ServiceModel.Dispatcher.ChannelHandler.HandleRequest", {}}},
    {{L"System.ServiceModel.Dispatcher.SyncMethodInvoker.Invoke", {}}},
    {{L"System.ServiceModel.Channels.ServiceChannel.Call", {}}},
    {{L"System.ServiceModel.Channels.ServiceChannel.SendAsyncResult.CallComplete", {}}},
    {{L"System.ServiceModel.Channels.ServiceChannel.HandleReply", {}}},
    {{L"System.ServiceModel.Dispatcher.ImmutableDispatchRuntime.PrepareReply", {}}},

    {{L"System.Net.HttpWebRequest.GetRequestStream", taking(kElementClass)}, When::kAlways, Place::kFront},

    // The tracing library's own sample and activation methods
    {{L"Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod", {}}},
    {{L"Corvane.Instrumentation.MultipleExitPoints.SomeVoidMethod", {}}},
    {{L"Corvane.Instrumentation.MethodArguments.InstrumentedMethod", {}}},
    {{L"Corvane.BVT.Activator.Activate", {}}},

    // Request thread context
    {{L"System.Web.ThreadContext.AssociateWithCurrentThread", {}}},
    {{L"System.Web.ThreadContext.DisassociateFromCurrentThread", {}}},

    {{L"Corvane.Instrumentation.Internals.TraceBase.LoadHandler", {}}},
    {{L"System.ServiceProcess.ServiceBase.ServiceMainCallback", {}}},

    // Logging libraries
    {{L"Serilog.Context.LogContext.Enrich", {}},                                      When::kLogTraceId},
    {{L"Serilog.Formatting.Compact.CompactJsonFormatter.Format", {}},                 When::kAddAttribute},
    {{L"Serilog.Sinks.Murrel.LogEventConverter.CreateMurrelEvent", {}},               When::kAddAttribute},
    {{L"Serilog.Formatting.Display.MessageTemplateTextFormatter..ctor", {}},          When::kInsertId},
    {{L"log4net.Core.LoggerManager.GetLogger", {}},                                   When::kInsertId},
    {{L"log4net.Layout.SimpleLayout.Format", {}},                                     When::kInsertId},
    {{L"log4net.Repository.Hierarchy.Logger.CallAppenders", {}},                      When::kAddAttribute},
    {{L"log4net.Layout.Pattern.PropertyPatternConverter.Convert", {}},                When::kLogTraceId},
};
// clang-format on

// How names end: a bit for each hash of the last characters of a row. The rows themselves lie too
// far apart in memory to be looked at for every method.
constexpr std::size_t kEnding = 4;
std::bitset<512> endings;

std::size_t hash_of_ending(std::wstring_view name) {
    std::size_t hash = 0;
    for (const wchar_t c : name.substr(name.size() - kEnding)) {
        hash = hash * 37 + static_cast<std::size_t>(c);
    }
    return hash % endings.size();
}

bool is_wanted(When when, const LogTraceIdSwitches& switches) {
    switch (when) {
    case When::kAlways:
        return true;
    case When::kLogTraceId:
        return switches.enabled;
    case When::kAddAttribute:
        return switches.enabled && switches.add_attribute;
    case When::kInsertId:
        return switches.enabled && switches.insert_id;
    }
    return false;
}

SigParser parsed(const MethodName& method) {
    SigParser parser;
    parser.Parse(method.signature, method.signature_size); // a summary cut short serves as it is
    return parser;
}

// Whether `name` is type_name + "." + method_name, without putting them together.
bool is_name_of(std::wstring_view name, const MethodName& method) {
    const std::size_t type_length = method.type_name.size();
    return name.size() == type_length + 1 + method.method_name.size() &&
           name.ends_with(method.method_name) && name[type_length] == L'.' &&
           name.starts_with(method.type_name);
}

bool is_static_named(std::wstring_view name, const MethodName& method) {
    return method.method_name == name && parsed(method).hasThis == 0;
}

} // namespace

void build_target_methods(const LogTraceIdSwitches& switches) {
    for (const Row& row : kRows) {
        if (is_wanted(row.when, switches)) {
            target_methods.insert(row.place == Place::kFront ? target_methods.begin()
                                                             : target_methods.end(),
                                  row.method);
            endings.set(hash_of_ending(row.method.name));
        }
    }
}

bool is_target_method(const MethodName& method) {
    for (const TargetMethod& row : target_methods) {
        if (!is_name_of(row.name, method)) {
            continue;
        }
        if (!row.parameter_types) {
            return true;
        }
        const SigParser signature = parsed(method);
        const ParameterTypes& types = *row.parameter_types;
        if (signature.params.size() == types.count) {
            // A different overload settles it: rows behind this one are not looked at.
            return std::equal(signature.params.begin(), signature.params.end(), types.codes.begin(),
                              [](const SigTypeInfo& parameter, std::uint8_t code) {
                                  return parameter.elementType == code;
                              });
        }
    }
    return false;
}

bool is_entry_point(const MethodName& method) {
    return is_static_named(L"Main", method);
}

bool is_top_level_entry_point(const MethodName& method) {
    return is_static_named(L"<Main>$", method);
}

bool can_be_chosen_by_name(std::wstring_view method_name) {
    if (method_name == L"Main" || method_name == L"<Main>$") {
        return true;
    }
    return (method_name.size() < kEnding || endings.test(hash_of_ending(method_name))) &&
           std::ranges::any_of(target_methods, [method_name](const TargetMethod& row) {
               return row.name.size() > method_name.size() && row.name.ends_with(method_name) &&
                      row.name[row.name.size() - method_name.size() - 1] == L'.';
           });
}

bool has_generic_types(const MethodName& method) {
    constexpr std::uint8_t kGenericConvention = 0x10;
    // With fewer than 128 parameters the first byte of the return type.
    constexpr std::uint32_t kReturnTypeOffset = 2;

    if (method.signature_size > 0 && (method.signature[0] & kGenericConvention) != 0) {
        return true;
    }
    if (method.signature_size > kReturnTypeOffset) {
        const std::uint8_t type = method.signature[kReturnTypeOffset];
        if (type == kElementMVar || type == kElementVar) {
            return true;
        }
    }
    const SigParser signature = parsed(method);
    return std::any_of(signature.params.begin(), signature.params.end(),
                       [](const SigTypeInfo& parameter) {
                           return parameter.elementType == kElementVar ||
                                  parameter.elementType == kElementTypedByRef ||
                                  parameter.elementType == kElementMVar;
                       });
}

} // namespace corvane
