#include "selection/method_info.h"

#include "base/hresult_text.h"

namespace corvane {

const DebugLog method_info::log(make_prefix(L"", L"method_info", L""));

namespace {

// Passes a result on; a failure is logged with `message`, which ends in "(%s)".
HRESULT reported(HRESULT hr, const wchar_t* message) {
    if (FAILED(hr)) {
        log_result(method_info::log, message, hr);
    }
    return hr;
}

// S_FALSE says that the attribute is not there.
bool is_found(HRESULT hr) {
    return SUCCEEDED(hr) && hr != S_FALSE;
}

} // namespace

bool has_attribute(IMetaDataImport& metadata, mdToken owner, const wchar_t* attribute) {
    return is_found(metadata.GetCustomAttributeByName(owner, attribute, nullptr, nullptr));
}

HRESULT find_transparent_assembly(IMetaDataImport& metadata, bool& is_transparent) {
    ComPtr<IMetaDataAssemblyImport> assembly_metadata;
    HRESULT hr =
        metadata.QueryInterface(__uuidof(IMetaDataAssemblyImport), assembly_metadata.put_void());
    if (FAILED(hr)) {
        return hr;
    }
    mdAssembly assembly = mdAssemblyNil;
    assembly_metadata->GetAssemblyFromScope(&assembly);
    if (is_transparent) {
        return hr;
    }
    // An error of this query fails the step; S_FALSE, an assembly without the attribute, does not.
    hr = metadata.GetCustomAttributeByName(assembly, kTransparentAttribute, nullptr, nullptr);
    is_transparent = is_found(hr);
    return hr;
}

HRESULT method_info::get_info(ICorProfilerInfo* info, FunctionID function) {
    HRESULT hr =
        reported(get_class_method_info(info, function), L"get_class_method_info() failed (%s)");
    if (SUCCEEDED(hr)) {
        hr = reported(get_module_info(info), L"get_module_info() failed (%s)");
    }
    if (SUCCEEDED(hr)) {
        hr = reported(get_assembly_info(info), L"get_assembly_info() failed (%s)");
    }
    if (SUCCEEDED(hr)) {
        hr = reported(get_thread_id(info), L"get_thread_id() failed (%s)");
    }
    return hr;
}

HRESULT method_info::get_class_method_info(ICorProfilerInfo* info, FunctionID function) {
    ComPtr<IMetaDataImport> metadata;
    HRESULT hr = info->GetTokenAndMetaDataFromFunction(function, __uuidof(IMetaDataImport),
                                                       metadata.put_unknown(), &method_token);
    if (FAILED(hr)) {
        return reported(hr, L"Failed to query IMetaDataImport interface (%s)");
    }
    has_trace_attribute = false;
    is_transparent = false;
    signature = nullptr;
    signature_size = 0;

    mdTypeDef type_token = mdTypeDefNil;
    ULONG length = 0;
    DWORD attributes = 0;
    hr = metadata->GetMethodProps(method_token, &type_token, nullptr, 0, &length, &attributes,
                                  nullptr, nullptr, nullptr, nullptr);
    if (FAILED(hr)) {
        return reported(hr, L"Failed to query method properties size (%s)");
    }
    hr = metadata->GetMethodProps(method_token, &type_token, method_name.resize(length), length,
                                  &length, &attributes, &signature, &signature_size, nullptr,
                                  nullptr);
    if (FAILED(hr)) {
        return reported(hr, L"Failed to query method properties (%s)");
    }

    has_trace_attribute = has_attribute(*metadata.get(), method_token, kTraceAttribute);
    is_transparent = has_attribute(*metadata.get(), method_token, kTransparentAttribute);

    hr = metadata->GetTypeDefProps(type_token, nullptr, 0, &length, nullptr, nullptr);
    if (FAILED(hr)) {
        return reported(hr, L"Failed to query class properties size (%s)");
    }
    hr = metadata->GetTypeDefProps(type_token, type_name.resize(length), length, &length, nullptr,
                                   nullptr);
    if (FAILED(hr)) {
        return reported(hr, L"Failed to query class properties (%s)");
    }
    return reported(info->GetFunctionInfo(function, &class_id, &module_id, &method_token),
                    L"Failed to class/module ids (%s)");
}

HRESULT method_info::get_module_info(ICorProfilerInfo* info) {
    ULONG length = 0;
    const HRESULT hr = info->GetModuleInfo(module_id, nullptr, 0, &length, nullptr, nullptr);
    if (FAILED(hr)) {
        return hr;
    }
    return info->GetModuleInfo(module_id, nullptr, length, &length, module_name.resize(length),
                               &assembly_id);
}

HRESULT method_info::get_assembly_info(ICorProfilerInfo* info) {
    // A name that cannot be read stays empty; the decision does not need it.
    ULONG length = 0;
    if (SUCCEEDED(info->GetAssemblyInfo(assembly_id, 0, &length, nullptr, nullptr, nullptr)) &&
        FAILED(info->GetAssemblyInfo(assembly_id, length, &length, assembly_name.resize(length),
                                     nullptr, nullptr))) {
        assembly_name = RuntimeName();
    }

    ComPtr<IMetaDataImport> metadata;
    const HRESULT hr = info->GetModuleMetaData(module_id, ofWrite, __uuidof(IMetaDataImport),
                                               metadata.put_unknown());
    return FAILED(hr) ? hr : find_transparent_assembly(*metadata.get(), is_transparent);
}

HRESULT method_info::get_thread_id(ICorProfilerInfo* info) {
    return info->GetCurrentThreadID(&thread_id);
}

} // namespace corvane
