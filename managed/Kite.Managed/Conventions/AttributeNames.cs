namespace Corvane.Instrumentation.Conventions;

// Names of the OpenTelemetry semantic conventions. Those of remote calls are not stable yet.
internal static class AttributeNames
{
    internal const string DatabaseSystem = "db.system.name";
    internal const string DatabaseQuery = "db.query.text";
    internal const string DatabaseSummary = "db.query.summary";
    internal const string DatabaseOperation = "db.operation.name";
    internal const string DatabaseProcedure = "db.stored_procedure.name";
    internal const string DatabaseNamespace = "db.namespace";
    internal const string ErrorType = "error.type";
    internal const string HttpMethod = "http.request.method";
    internal const string HttpOriginalMethod = "http.request.method_original";
    internal const string HttpStatus = "http.response.status_code";
    internal const string HttpRoute = "http.route";
    internal const string RemoteSystem = "rpc.system";
    internal const string RemoteService = "rpc.service";
    internal const string RemoteMethod = "rpc.method";
    internal const string ServerAddress = "server.address";
    internal const string ServerPort = "server.port";
    internal const string Url = "url.full";
}
