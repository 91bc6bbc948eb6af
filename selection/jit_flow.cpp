#include "selection/jit_flow.h"

#include "base/hresult_text.h"
#include "selection/target_methods.h"

#include <exception>
#include <optional>

namespace corvane {
namespace {

constexpr const wchar_t* kNoMethodInfo = L"Failed to create method info (%s)";
constexpr const wchar_t* kInsertingPrologue = L"===================Inserting prologue for: %s.%s";

MethodName name_of(const method_info& method) {
    return {method.type_name, method.method_name, method.signature, method.signature_size};
}

// The mode in which a described method is rewritten, if it is.
std::optional<InstrumentationMode> choose(const method_info& method) {
    const MethodName name = name_of(method);
    if (is_entry_point(name) || is_target_method(name)) {
        default_log.log(1, kInsertingPrologue, method.type_name.c_str(),
                        method.method_name.c_str());
        return InstrumentationMode::kTable;
    }
    if (!method.has_trace_attribute) {
        return std::nullopt;
    }
    if (has_generic_types(name)) {
        default_log.log(4, L"Method %s.%s not traced because it has generic types",
                        method.type_name.c_str(), method.method_name.c_str());
        return std::nullopt;
    }
    default_log.log(4, kInsertingPrologue, method.type_name.c_str(), method.method_name.c_str());
    return InstrumentationMode::kAttribute;
}

// Names come from the program: a percent sign in one is no conversion.
DebugLog channel_of(const method_info& method) {
    return DebugLog(make_prefix(as_format_text(method.assembly_name),
                                as_format_text(method.type_name),
                                as_format_text(method.method_name)));
}

// A method whose rewriting breaks off is as good as one whose rewriting failed.
HRESULT call(RewriteMethodEntry rewrite, RewriteContext& context, InstrumentationMode mode) {
    try {
        return rewrite(context, context.info, context.method, mode);
    } catch (const std::exception&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace

void on_jit_compilation_started(ICorProfilerInfo* info, FunctionID function,
                                bool transparency_instrumentation, RewriteMethodEntry rewrite) {
    method_info method;
    HRESULT hr = method.get_info(info, function);
    if (FAILED(hr)) {
        log_result(default_log, kNoMethodInfo, hr);
        return;
    }
    if (method.is_transparent && !transparency_instrumentation) {
        log_result(default_log, L"it is transparent (%s)", hr);
        return;
    }
    const auto mode = choose(method);
    if (!mode) {
        return;
    }
    RewriteContext context{info, method, channel_of(method)};
    hr = call(rewrite, context, *mode);
    if (FAILED(hr)) {
        log_result(context.log, L"Failed to create prologue/epilogue IL (%s)", hr);
        log_result(default_log,
                   mode == InstrumentationMode::kTable
                       ? L"Failed to create method body instrumenter (%s)"
                       : L"Failed to create method body instrumenter(attribute) (%s)",
                   hr);
    }
}

void on_cached_function_search_started(ICorProfilerInfo* info, FunctionID function,
                                       BOOL* use_cached_function) {
    method_info method;
    const HRESULT hr = method.get_info(info, function);
    if (FAILED(hr)) {
        log_result(default_log, kNoMethodInfo, hr);
        return;
    }
    if (is_target_method(name_of(method))) {
        *use_cached_function = FALSE;
        default_log.log(1, L"UseCachedFunction(%s, %s.%s)=False", method.assembly_name.c_str(),
                        method.type_name.c_str(), method.method_name.c_str());
    }
}

} // namespace corvane
