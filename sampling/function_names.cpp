#include "sampling/function_names.h"

#include "base/hresult_text.h"
#include "base/runtime_state.h"
#include "clr/runtime_name.h"
#include "sampling/export_result.h"
#include "sampling/known_functions.h"
#include "sampling/snapshot.h"
#include "sampling/worker_thread.h"

#include <memory>
#include <string>

namespace corvane {
namespace {

// A number that is no function id becomes 0, which is none either.
FunctionID to_function_id(double value) {
    return value >= 0 && value < 0x1p64 ? static_cast<FunctionID>(value) : 0;
}

// Passes a result on; a failure is logged with `message`.
bool succeeded(HRESULT hr, const wchar_t* message) {
    if (FAILED(hr)) {
        log_result(default_log, message, hr, 4);
        return false;
    }
    return true;
}

HRESULT get_metadata(FunctionID function, ComPtr<IMetaDataImport>& metadata, mdMethodDef& token) {
    return profilerInfo2 ? profilerInfo2->GetTokenAndMetaDataFromFunction(
                               function, __uuidof(IMetaDataImport), metadata.put_unknown(), &token)
                         : CORPROF_E_PROFILER_NOT_YET_INITIALIZED;
}

HRESULT get_method_name(IMetaDataImport& metadata, mdMethodDef token, mdTypeDef& type,
                        std::wstring& name) {
    ULONG length = 0;
    DWORD attributes = 0;
    const HRESULT hr = metadata.GetMethodProps(token, &type, nullptr, 0, &length, &attributes,
                                               nullptr, nullptr, nullptr, nullptr);
    if (FAILED(hr)) {
        return hr;
    }
    resize_for_name(name, length);
    PCCOR_SIGNATURE signature = nullptr;
    ULONG signature_length = 0;
    return metadata.GetMethodProps(token, &type, name.data(), length, &length, &attributes,
                                   &signature, &signature_length, nullptr, nullptr);
}

HRESULT get_type_name(IMetaDataImport& metadata, mdTypeDef type, std::wstring& name) {
    ULONG length = 0;
    const HRESULT hr = metadata.GetTypeDefProps(type, nullptr, 0, &length, nullptr, nullptr);
    if (FAILED(hr)) {
        return hr;
    }
    resize_for_name(name, length);
    return metadata.GetTypeDefProps(type, name.data(), length, &length, nullptr, nullptr);
}

void read_names(FunctionNameRecord& record) {
    const FunctionID function = to_function_id(record.functionId);
    const KnownFunction known(function); // until all is read
    ComPtr<IMetaDataImport> metadata;
    mdMethodDef method = mdMethodDefNil;
    if (!succeeded(known ? get_metadata(function, metadata, method) : E_INVALIDARG,
                   L"CClrProfiler::Thread_Function_Names_App().GetTokenAndMetaDataFromFunction() "
                   L"did not return S_OK %s") ||
        !metadata) {
        return;
    }
    mdTypeDef type = mdTypeDefNil;
    std::wstring method_name;
    std::wstring type_name;
    if (succeeded(get_method_name(*metadata.get(), method, type, method_name),
                  L"CClrProfiler::Thread_Function_Names_App().GetMethodProps() "
                  L"did not return S_OK %s") &&
        succeeded(get_type_name(*metadata.get(), type, type_name),
                  L"CClrProfiler::Thread_Function_Names_App().GetTypeDefProps() "
                  L"did not return S_OK %s")) {
        record.typeName = Bstr(type_name.c_str());
        record.methodName = Bstr(method_name.c_str());
    }
}

struct RecordDeleter {
    void operator()(FunctionNameRecord* memory) const noexcept { ::operator delete(memory); }
};

// Copies of the records in one piece of memory, which begins with the first one.
FunctionNameRecord* as_result(const CorvaneFunctionNames& records, std::int32_t count) {
    // A negative count is more than there is memory for.
    std::unique_ptr<FunctionNameRecord, RecordDeleter> result(
        std::allocator<FunctionNameRecord>().allocate(static_cast<std::size_t>(count)));
    std::uninitialized_copy(records.begin(), records.end(), result.get());
    return result.release();
}

std::int32_t get_names(const double* const* ids, std::int32_t count, FunctionNameRecord** records) {
    if (ids == nullptr || records == nullptr) {
        return kNullArgument;
    }
    *records = nullptr;
    CorvaneFunctionNames request(count > 0 ? static_cast<std::size_t>(count) : 0);
    for (std::size_t i = 0; i < request.size(); ++i) {
        request[i].functionId = *ids[i];
    }
    run_worker(&Thread_Function_Names_App, request);
    *records = as_result(request, count);
    return kSucceeded;
}

} // namespace

HRESULT Thread_Function_Names_App(CorvaneFunctionNames* request) {
    for (FunctionNameRecord& record : *request) {
        read_names(record);
    }
    return S_OK;
}

} // namespace corvane

std::int32_t GetFunctionNames(const double* const* ids, std::int32_t count,
                              corvane::FunctionNameRecord** records) {
    return corvane::finish_export(
        corvane::attempt_export([&] { return corvane::get_names(ids, count, records); }));
}
