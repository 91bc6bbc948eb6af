#include "selection/jit_flow.h"

#include "base/hresult_text.h"
#include "clr/metadata.h"
#include "selection/full_name.h"
#include "selection/method_outcomes.h"
#include "selection/method_patterns.h"
#include "selection/target_methods.h"

#include <exception>
#include <string>

namespace corvane {
namespace {

constexpr const wchar_t* kNoMethodInfo = L"Failed to create method info (%s)";

MethodName name_of(const method_info& method) {
    return {method.type_name, method.method_name, method.signature, method.signature_size};
}

bool meets_pattern(ICorProfilerInfo* info, const method_info& method) {
    if (method_patterns.empty()) {
        return false;
    }
    ComPtr<IMetaDataImport> metadata;
    mdTypeDef type = mdTypeDefNil;
    ULONG length = 0;
    DWORD attributes = 0;
    if (FAILED(info->GetModuleMetaData(method.module_id, ofRead, __uuidof(IMetaDataImport),
                                       metadata.put_unknown())) ||
        FAILED(metadata->GetMethodProps(method.method_token, &type, nullptr, 0, &length,
                                        &attributes, nullptr, nullptr, nullptr, nullptr))) {
        return false;
    }
    std::wstring name = full_type_name(*metadata.get(), type);
    if (name.empty() || !method_patterns.may_match_type(name)) {
        return false;
    }
    (name += L'.') += method.method_name;
    return method_patterns.matches(name);
}

void log_choice(const method_info& method, const Choice& choice) {
    if (choice.rule == Rule::kNone) {
        return;
    }
    const int level = mode_of(choice.rule) == InstrumentationMode::kTable ? 1 : 4;
    default_log.log(level,
                    choice.obstacle == Obstacle::kGeneric
                        ? L"Method %s.%s not traced because it has generic types"
                        : L"===================Inserting prologue for: %s.%s",
                    method.type_name.c_str(), method.method_name.c_str());
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

Choice choice_of(ICorProfilerInfo* info, const method_info& method,
                 const SelectionSettings& settings) {
    return choose(
        {method.assembly_name, name_of(method), method.has_trace_attribute, method.is_transparent},
        settings, [&] { return meets_pattern(info, method); });
}

void on_jit_compilation_started(ICorProfilerInfo* info, FunctionID function,
                                const SelectionSettings& settings, RewriteMethodEntry rewrite) {
    method_info method;
    HRESULT hr = method.get_info(info, function);
    if (FAILED(hr)) {
        log_result(default_log, kNoMethodInfo, hr);
        return;
    }
    const Choice choice = choice_of(info, method, settings);
    if (choice.obstacle == Obstacle::kTransparent) {
        log_result(default_log, L"it is transparent (%s)", hr);
        return;
    }
    log_choice(method, choice);
    if (choice.obstacle == Obstacle::kGeneric) {
        leave_for_good(method.module_id, method.method_token, L"it has generic types");
    }
    if (!is_chosen(choice)) {
        return;
    }
    const InstrumentationMode mode = mode_of(choice.rule);
    RewriteContext context{info, method, channel_of(method)};
    hr = call(rewrite, context, mode);
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
                                       const SelectionSettings& settings,
                                       BOOL* use_cached_function) {
    method_info method;
    const HRESULT hr = method.get_info(info, function);
    if (FAILED(hr)) {
        log_result(default_log, kNoMethodInfo, hr);
        return;
    }
    // A row of the table counts here even where the method would be left for its transparency.
    if (is_target_method(name_of(method)) ||
        (settings.strict && is_chosen(choice_of(info, method, settings)))) {
        *use_cached_function = FALSE;
        default_log.log(1, L"UseCachedFunction(%s, %s.%s)=False", method.assembly_name.c_str(),
                        method.type_name.c_str(), method.method_name.c_str());
    }
}

void on_jit_inlining(ICorProfilerInfo* info, FunctionID callee, const SelectionSettings& settings,
                     BOOL* should_inline) {
    if (!settings.strict) {
        return;
    }
    method_info method;
    // What cannot be described is left when it is compiled, too.
    if (SUCCEEDED(method.get_info(info, callee)) && is_chosen(choice_of(info, method, settings))) {
        *should_inline = FALSE;
    }
}

} // namespace corvane
