#include "selection/target_methods.h"

#include "il/element_type.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

namespace corvane {

// What a failing test calls them.
void PrintTo(const LogTraceIdSwitches& switches, std::ostream* out) {
    *out << (switches.insert_id ? "insert " : "") << (switches.add_attribute ? "add " : "");
}

namespace {

using Signature = std::vector<std::uint8_t>;

constexpr LogTraceIdSwitches kOff;
constexpr LogTraceIdSwitches kInsert{.enabled = true, .insert_id = true};
constexpr LogTraceIdSwitches kAdd{.enabled = true, .add_attribute = true};
constexpr LogTraceIdSwitches kBoth{.enabled = true, .insert_id = true, .add_attribute = true};

// In order, a row a line, its element types behind the name.
constexpr char kAlwaysThere[] = R"(System.Net.HttpWebRequest.GetRequestStream 12
System.Data.SqlClient.SqlCommand.ExecuteReader
System.Data.SqlClient.SqlCommand.ExecuteScalar
System.Data.SqlClient.SqlCommand.ExecuteNonQuery
System.Data.SqlClient.SqlCommand.ExecuteXmlReader
System.Data.SqlClient.SqlCommand.BeginExecuteReader 12 1C 11
System.Data.SqlClient.SqlCommand.EndExecuteReader
System.Data.SqlClient.SqlCommand.BeginExecuteXmlReader 12 1C
System.Data.SqlClient.SqlCommand.EndExecuteXmlReader
System.Data.SqlClient.SqlCommand.BeginExecuteNonQuery 12 1C
System.Data.SqlClient.SqlCommand.EndExecuteNonQuery
System.Data.SqlClient.SqlCommand.BeginExecuteReaderInternal
System.Data.SqlClient.SqlCommand.EndExecuteReaderAsync
System.Data.SqlClient.SqlCommand.BeginExecuteXmlReaderInternal
System.Data.SqlClient.SqlCommand.EndExecuteXmlReaderAsync
System.Data.SqlClient.SqlCommand.BeginExecuteNonQueryInternal
System.Data.SqlClient.SqlCommand.EndExecuteNonQueryAsync
Oracle.DataAccess.Client.OracleCommand.ExecuteReader
Oracle.DataAccess.Client.OracleCommand.ExecuteScalar
Oracle.DataAccess.Client.OracleCommand.ExecuteNonQuery
Oracle.DataAccess.Client.OracleCommand.ExecuteXmlReader
Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteReader
Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteScalar
Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteNonQuery
Oracle.ManagedDataAccess.Client.OracleCommand.ExecuteXmlReader
System.Data.OracleClient.OracleCommand.ExecuteReader
System.Data.OracleClient.OracleCommand.ExecuteScalar
System.Data.OracleClient.OracleCommand.ExecuteNonQuery
System.Net.Http.HttpClientHandler.SetRequestHeaders
System.Net.HttpWebRequest.BeginGetResponse
System.Net.HttpWebRequest.EndGetResponse
System.Net.HttpWebRequest.GetResponse
System.Net.HttpWebRequest.BeginGetRequestStream
System.Web.Mvc.MvcHandler.BeginProcessRequest
System.Web.Mvc.ViewResultBase.ExecuteResult
System.Web.Mvc.MvcHandler.EndProcessRequest
System.Web.Mvc.ReflectedActionDescriptor.Execute
System.Web.Mvc.Async.TaskAsyncActionDescriptor.BeginExecute
System.ServiceModel.ServiceHostBase.InitializeRuntime
System.ServiceModel.Dispatcher.ImmutableClientRuntime.BeforeSendRequest
System.ServiceModel.Dispatcher.ImmutableDispatchRuntime.PrepareAndAddressReply
System.ServiceModel.Dispatcher.ImmutableClientRuntime.AfterReceiveReply
System.ServiceModel.Channels.ServiceChannel.EndCall
System.ServiceModel.Channels.ServiceChannel.BeginCall
System.ServiceModel.Channels.HttpRequestContext.PrepareReply
System.ServiceModel.Dispatcher.ChannelHandler.HandleRequest
System.ServiceModel.Dispatcher.SyncMethodInvoker.Invoke
System.ServiceModel.Channels.ServiceChannel.Call
System.ServiceModel.Channels.ServiceChannel.SendAsyncResult.CallComplete
System.ServiceModel.Channels.ServiceChannel.HandleReply
System.ServiceModel.Dispatcher.ImmutableDispatchRuntime.PrepareReply
Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod
Corvane.Instrumentation.MultipleExitPoints.SomeVoidMethod
Corvane.Instrumentation.MethodArguments.InstrumentedMethod
Corvane.BVT.Activator.Activate
System.Web.ThreadContext.AssociateWithCurrentThread
System.Web.ThreadContext.DisassociateFromCurrentThread
Corvane.Instrumentation.Internals.TraceBase.LoadHandler
System.ServiceProcess.ServiceBase.ServiceMainCallback
)";

std::string table() {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const TargetMethod& row : target_methods) {
        text.append(row.name.begin(), row.name.end());
        if (row.parameter_types) {
            for (std::size_t i = 0; i < row.parameter_types->count; ++i) {
                const std::uint8_t code = row.parameter_types->codes[i];
                ((text += ' ') += kDigits[code >> 4]) += kDigits[code & 0xF];
            }
        }
        text += '\n';
    }
    return text;
}

MethodName method(std::wstring_view type, std::wstring_view name, const Signature& signature = {}) {
    return {type, name, signature.data(), static_cast<std::uint32_t>(signature.size())};
}

class TargetMethods : public ::testing::Test {
protected:
    ~TargetMethods() override { target_methods.clear(); }
};

TEST_F(TargetMethods, AreEmptyBeforeStartUp) {
    EXPECT_EQ(table(), "");
}

TEST_F(TargetMethods, WithoutSwitchesNameNoLoggingLibrary) {
    build_target_methods(kOff);
    EXPECT_EQ(table(), kAlwaysThere);
}

TEST_F(TargetMethods, ThatInsertTheTraceIdFollow) {
    build_target_methods(kInsert);
    EXPECT_EQ(table(), std::string(kAlwaysThere) +
                           "Serilog.Context.LogContext.Enrich\n"
                           "Serilog.Formatting.Display.MessageTemplateTextFormatter..ctor\n"
                           "log4net.Core.LoggerManager.GetLogger\n"
                           "log4net.Layout.SimpleLayout.Format\n"
                           "log4net.Layout.Pattern.PropertyPatternConverter.Convert\n");
}

TEST_F(TargetMethods, ThatAddTheTraceIdFollow) {
    build_target_methods(kAdd);
    EXPECT_EQ(table(), std::string(kAlwaysThere) +
                           "Serilog.Context.LogContext.Enrich\n"
                           "Serilog.Formatting.Compact.CompactJsonFormatter.Format\n"
                           "Serilog.Sinks.Murrel.LogEventConverter.CreateMurrelEvent\n"
                           "log4net.Repository.Hierarchy.Logger.CallAppenders\n"
                           "log4net.Layout.Pattern.PropertyPatternConverter.Convert\n");
}

TEST_F(TargetMethods, OfBothKindsFollow) {
    build_target_methods(kBoth);
    EXPECT_EQ(table(), std::string(kAlwaysThere) +
                           "Serilog.Context.LogContext.Enrich\n"
                           "Serilog.Formatting.Compact.CompactJsonFormatter.Format\n"
                           "Serilog.Sinks.Murrel.LogEventConverter.CreateMurrelEvent\n"
                           "Serilog.Formatting.Display.MessageTemplateTextFormatter..ctor\n"
                           "log4net.Core.LoggerManager.GetLogger\n"
                           "log4net.Layout.SimpleLayout.Format\n"
                           "log4net.Repository.Hierarchy.Logger.CallAppenders\n"
                           "log4net.Layout.Pattern.PropertyPatternConverter.Convert\n");
}

TEST_F(TargetMethods, NeedTheirCommonSwitch) {
    build_target_methods({.enabled = false, .insert_id = true, .add_attribute = true});
    EXPECT_EQ(table(), kAlwaysThere);
}

// --- is_target_method

class IsTargetMethod : public TargetMethods,
                       public ::testing::WithParamInterface<LogTraceIdSwitches> {
protected:
    IsTargetMethod() { build_target_methods(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Switches, IsTargetMethod, ::testing::Values(kOff, kInsert, kAdd, kBoth));

// The parameters that a row asks for, of a static method without a return value.
Signature asked_for(const TargetMethod& row) {
    Signature signature = {0x00, 0x00, kElementVoid};
    if (row.parameter_types) {
        signature[1] = static_cast<std::uint8_t>(row.parameter_types->count);
        for (std::size_t i = 0; i < row.parameter_types->count; ++i) {
            const std::uint8_t code = row.parameter_types->codes[i];
            signature.push_back(code);
            if (code != kElementObject) {
                signature.push_back(0x05); // a token
            }
        }
    }
    return signature;
}

TEST_P(IsTargetMethod, FindsEveryRowAndNothingBesideIt) {
    for (const TargetMethod& row : target_methods) {
        const std::size_t dot =
            row.name.ends_with(L"..ctor") ? row.name.size() - 6 : row.name.rfind(L'.');
        const std::wstring type(row.name.substr(0, dot));
        const std::wstring name(row.name.substr(dot + 1));
        const Signature signature = asked_for(row);
        const auto is_target = [&](std::wstring_view t, std::wstring_view n) {
            return is_target_method(method(t, n, signature));
        };
        EXPECT_TRUE(is_target(type, name)) << std::string(name.begin(), name.end());

        EXPECT_FALSE(is_target(type, name + L"x"));
        EXPECT_FALSE(is_target(type, name.substr(0, name.size() - 1)));
        EXPECT_FALSE(is_target(L"X" + type, name));
        EXPECT_FALSE(is_target(type.substr(1), name));
        EXPECT_FALSE(is_target(type + L".", name));
        EXPECT_FALSE(is_target(type, L"." + name));
        EXPECT_FALSE(is_target(type, L""));
        EXPECT_FALSE(is_target(L"", name));
        // As long as the row, with another character in the place of the dot.
        EXPECT_FALSE(is_target(type.substr(0, type.size() - 1), L"." + name));
        for (std::size_t i = 0; i < type.size(); ++i) {
            std::wstring other = type;
            other[i] ^= 0x20; // the other letter case
            EXPECT_FALSE(is_target(other, name));
        }
        for (std::size_t i = 0; i < name.size(); ++i) {
            std::wstring other = name;
            other[i] ^= 0x20;
            EXPECT_FALSE(is_target(type, other));
        }
    }
}

TEST_P(IsTargetMethod, ComparesTheWholeKeyWhereverItIsDivided) {
    EXPECT_TRUE(
        is_target_method(method(L"System.ServiceProcess", L"ServiceBase.ServiceMainCallback")));
    EXPECT_TRUE(is_target_method(
        method(L"System.ServiceModel.Channels.ServiceChannel.SendAsyncResult", L"CallComplete")));
    // What the metadata really says of a nested type.
    EXPECT_FALSE(is_target_method(method(L"SendAsyncResult", L"CallComplete")));
    EXPECT_FALSE(
        is_target_method(method(L"System.ServiceProcess.ServiceBase.ServiceMainCallback", L"")));
    EXPECT_FALSE(
        is_target_method(method(L"", L"System.ServiceProcess.ServiceBase.ServiceMainCallback")));
    EXPECT_FALSE(is_target_method(method(L"", L"")));
}

TEST_P(IsTargetMethod, LooksAtNoSignatureWithoutParameterTypes) {
    constexpr std::wstring_view kType = L"System.Data.SqlClient.SqlCommand";
    EXPECT_TRUE(is_target_method(method(kType, L"ExecuteReader")));
    EXPECT_TRUE(is_target_method(method(kType, L"ExecuteReader", {0xFF, 0xFF})));
    EXPECT_TRUE(is_target_method(method(kType, L"ExecuteReader", {0x20, 0x01, 0x01, 0x08})));
}

TEST_F(TargetMethods, PickOneOverloadByParameterTypes) {
    build_target_methods(kOff);
    const auto is_target = [](std::wstring_view name, const Signature& signature) {
        return is_target_method(method(L"System.Data.SqlClient.SqlCommand", name, signature));
    };
    // Instance methods that return a class.
    EXPECT_TRUE(
        is_target(L"BeginExecuteReader", {0x20, 3, 0x12, 0x05, 0x12, 0x09, 0x1C, 0x11, 0x0D}));
    EXPECT_FALSE(is_target(L"BeginExecuteReader", {0x20, 0, 0x12, 0x05}));
    EXPECT_FALSE(is_target(L"BeginExecuteReader", {0x20, 1, 0x12, 0x05, 0x11, 0x0D}));
    EXPECT_FALSE(is_target(L"BeginExecuteReader", {0x20, 2, 0x12, 0x05, 0x12, 0x09, 0x1C}));
    EXPECT_FALSE(
        is_target(L"BeginExecuteReader", {0x20, 3, 0x12, 0x05, 0x12, 0x09, 0x1C, 0x12, 0x0D}));
    EXPECT_FALSE(
        is_target(L"BeginExecuteReader", {0x20, 3, 0x12, 0x05, 0x1C, 0x12, 0x09, 0x11, 0x0D}));
    EXPECT_FALSE(is_target(L"BeginExecuteReader",
                           {0x20, 4, 0x12, 0x05, 0x12, 0x09, 0x1C, 0x11, 0x0D, 0x08}));

    for (const wchar_t* const name : {L"BeginExecuteXmlReader", L"BeginExecuteNonQuery"}) {
        EXPECT_TRUE(is_target(name, {0x20, 2, 0x12, 0x05, 0x12, 0x09, 0x1C}));
        EXPECT_FALSE(is_target(name, {0x20, 0, 0x12, 0x05}));
        EXPECT_FALSE(is_target(name, {0x20, 2, 0x12, 0x05, 0x1C, 0x12, 0x09}));
        EXPECT_FALSE(is_target(name, {0x20, 3, 0x12, 0x05, 0x12, 0x09, 0x1C, 0x11, 0x0D}));
    }
}

TEST_F(TargetMethods, CompareTheRecordedElementType) {
    build_target_methods(kOff);
    const auto is_target = [](const Signature& signature) {
        return is_target_method(
            method(L"System.Net.HttpWebRequest", L"GetRequestStream", signature));
    };
    EXPECT_FALSE(is_target({0x20, 0, 0x12, 0x05}));
    EXPECT_TRUE(is_target({0x20, 1, 0x12, 0x05, 0x12, 0x09}));
    EXPECT_TRUE(is_target({0x20, 1, 0x12, 0x05, 0x10, 0x12, 0x09}));       // by reference
    EXPECT_TRUE(is_target({0x20, 1, 0x12, 0x05, 0x1D, 0x12, 0x09}));       // an array of them
    EXPECT_TRUE(is_target({0x20, 1, 0x12, 0x05, 0x20, 0x0D, 0x12, 0x09})); // with a modifier
    EXPECT_FALSE(is_target({0x20, 1, 0x12, 0x05, 0x1C}));
    EXPECT_FALSE(is_target({0x20, 1, 0x12, 0x05, 0x0E}));
    EXPECT_FALSE(is_target({0x20, 1, 0x12, 0x05})); // cut short: no parameter was read
    EXPECT_FALSE(is_target({}));
}

TEST_F(TargetMethods, EndTheSearchAtAnotherOverloadOfTheSameLength) {
    const ParameterTypes one_int{{kElementI4}, 1};
    const ParameterTypes one_string{{kElementString}, 1};
    const ParameterTypes two_ints{{kElementI4, kElementI4}, 2};
    target_methods = {{L"T.M", one_int}, {L"T.M", one_string}, {L"T.M", two_ints}};
    EXPECT_TRUE(is_target_method(method(L"T", L"M", {0x00, 1, 0x01, 0x08})));
    EXPECT_FALSE(is_target_method(method(L"T", L"M", {0x00, 1, 0x01, 0x0E})));
    // A row for another number of parameters is passed over.
    EXPECT_TRUE(is_target_method(method(L"T", L"M", {0x00, 2, 0x01, 0x08, 0x08})));
    EXPECT_FALSE(is_target_method(method(L"T", L"M", {0x00, 0, 0x01})));
}

// --- is_entry_point

TEST(IsEntryPoint, TakesAStaticMainOfAnyShape) {
    const Signature signatures[] = {
        {0x00, 0x00, 0x01},             // void Main()
        {0x00, 0x01, 0x08, 0x1D, 0x0E}, // int Main(string[])
        {0x00, 0x02, 0x1C, 0x08, 0x08}, // object Main(int, int)
        {0x10, 0x01, 0x00, 0x01},       // void Main<T>()
        {0x05, 0x00, 0x01},             // with variable arguments
        {0x00},                         // cut short
    };
    for (const Signature& signature : signatures) {
        EXPECT_TRUE(is_entry_point(method(L"Any.Type", L"Main", signature)));
        EXPECT_TRUE(is_entry_point(method(L"", L"Main", signature)));
    }
}

TEST(IsEntryPoint, RefusesAnInstanceMain) {
    for (const Signature& signature :
         {Signature{0x20, 0x00, 0x01}, Signature{0x20, 0x01, 0x01, 0x1D, 0x0E},
          Signature{0x30, 0x01, 0x00, 0x01}, Signature{0x20}}) {
        EXPECT_FALSE(is_entry_point(method(L"Program", L"Main", signature)));
    }
}

TEST(IsEntryPoint, RefusesOtherNames) {
    for (const wchar_t* const name :
         {L"main", L"MAIN", L"Main2", L"Mai", L"", L"<Main>$", L" Main"}) {
        EXPECT_FALSE(is_entry_point(method(L"Program", name, {0x00, 0x00, 0x01})));
    }
    EXPECT_FALSE(
        is_entry_point(method(L"Program", std::wstring_view(L"Main\0", 5), {0x00, 0x00, 0x01})));
}

// --- has_generic_types

bool generic(const Signature& signature) {
    return has_generic_types(method(L"T", L"M", signature));
}

TEST(HasGenericTypes, OfAMethodWithoutThem) {
    EXPECT_FALSE(generic({0x00, 0x00, 0x01}));
    EXPECT_FALSE(generic({0x20, 0x02, 0x1C, 0x08, 0x0E}));
    EXPECT_FALSE(generic({0x00, 0x00, 0x15, 0x12, 0x05, 0x01, 0x08})); // List<int> M()
}

TEST(HasGenericTypes, OfAGenericMethod) {
    EXPECT_TRUE(generic({0x10, 0x01, 0x00, 0x01}));
    EXPECT_TRUE(generic({0x30, 0x01, 0x00, 0x01}));
}

TEST(HasGenericTypes, OfAReturnedTypeVariable) {
    EXPECT_TRUE(generic({0x20, 0x00, 0x13, 0x00}));
    EXPECT_TRUE(generic({0x20, 0x00, 0x1E, 0x00}));
    // Behind an array or among the arguments of an instance it is not the first byte.
    EXPECT_FALSE(generic({0x20, 0x00, 0x1D, 0x13, 0x00}));
    EXPECT_FALSE(generic({0x20, 0x00, 0x15, 0x12, 0x05, 0x01, 0x13, 0x00}));
    EXPECT_FALSE(generic({0x20, 0x00, 0x16})); // a returned TypedReference
}

TEST(HasGenericTypes, LooksForTheReturnTypeInAFixedPlace) {
    // From 128 parameters on that place holds the second byte of their number: 0x13 here.
    Signature signature(4 + 0x113, kElementI4);
    signature[0] = 0x00;
    signature[1] = 0x81;
    signature[2] = 0x13;
    signature[3] = kElementVoid;
    EXPECT_TRUE(generic(signature));
    signature[2] = 0x12;
    EXPECT_FALSE(generic(signature));
}

TEST(HasGenericTypes, OfAParameter) {
    EXPECT_TRUE(generic({0x20, 0x01, 0x01, 0x13, 0x00}));
    EXPECT_TRUE(generic({0x20, 0x01, 0x01, 0x1E, 0x00}));
    EXPECT_TRUE(generic({0x20, 0x01, 0x01, 0x16})); // TypedReference
    EXPECT_TRUE(generic({0x20, 0x02, 0x01, 0x08, 0x13, 0x00}));
    EXPECT_TRUE(generic({0x20, 0x01, 0x01, 0x10, 0x13, 0x00}));                          // ref T
    EXPECT_TRUE(generic({0x20, 0x01, 0x01, 0x1D, 0x13, 0x00}));                          // T[]
    EXPECT_TRUE(generic({0x20, 0x01, 0x01, 0x15, 0x12, 0x05, 0x01, 0x13, 0x00}));        // List<T>
    EXPECT_FALSE(generic({0x20, 0x01, 0x01, 0x15, 0x12, 0x05, 0x02, 0x13, 0x00, 0x08})); // <T, int>
}

TEST(HasGenericTypes, OfASignatureThatIsCutShort) {
    EXPECT_FALSE(generic({}));
    EXPECT_FALSE(generic({0x20}));
    EXPECT_FALSE(generic({0x20, 0x01}));
    EXPECT_TRUE(generic({0x10}));
    EXPECT_TRUE(generic({0x20, 0x01, 0x1E}));
    EXPECT_FALSE(generic({0x20, 0x02, 0x01, 0x08, 0x13})); // without its number it was not read
    EXPECT_TRUE(generic({0x20, 0x02, 0x01, 0x16}));
}

} // namespace
} // namespace corvane
