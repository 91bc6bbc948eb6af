#include "selection/precompiled_code.h"

#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "clr/metadata_enumeration.h"
#include "clr/runtime_name.h"
#include "selection/choice.h"
#include "selection/full_name.h"
#include "selection/image_metadata.h"
#include "selection/method_info.h"
#include "selection/method_patterns.h"
#include "selection/ready_to_run.h"
#include "selection/target_methods.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <string>
#include <unordered_map>

namespace corvane {
namespace {

std::shared_mutex mutex;
std::unordered_map<ModuleID, bool> known; // under `mutex`

// Whether `meets` holds for any token that `next(handle, token, count)` gives.
template <class Next, class Meets>
bool any_token(IMetaDataImport& metadata, const Next& next, const Meets& meets) {
    MetadataEnumeration tokens(&metadata);
    mdToken token = mdTokenNil;
    for (ULONG count = 0; next(tokens.put(), &token, &count) == S_OK && count == 1;) {
        if (meets(token)) {
            return true;
        }
    }
    return false;
}

std::wstring method_name(IMetaDataImport& metadata, mdMethodDef method) {
    ULONG length = 0;
    std::wstring name;
    if (SUCCEEDED(metadata.GetMethodProps(method, nullptr, nullptr, 0, &length, nullptr, nullptr,
                                          nullptr, nullptr, nullptr))) {
        resize_for_name(name, length);
        metadata.GetMethodProps(method, nullptr, name.data(), length, &length, nullptr, nullptr,
                                nullptr, nullptr, nullptr);
    }
    return name;
}

bool refers_to_attribute(IMetaDataImport& metadata) {
    return any_token(
        metadata,
        [&](HCORENUM* handle, mdTypeRef* type, ULONG* count) {
            return metadata.EnumTypeRefs(handle, type, 1, count);
        },
        [&](mdTypeRef type) {
            wchar_t name[64] = {}; // a longer one is cut, and another
            ULONG length = 0;
            return SUCCEEDED(metadata.GetTypeRefProps(
                       type, nullptr, name, static_cast<ULONG>(std::size(name)), &length)) &&
                   std::wstring_view(name) == kTraceAttribute;
        });
}

bool is_in_table(const std::wstring& type) {
    const std::size_t own = type.rfind(L'+') + 1; // npos + 1 is 0
    const std::wstring beginning = type.substr(own) + L'.';
    return std::ranges::any_of(
        target_methods, [&](const TargetMethod& row) { return row.name.starts_with(beginning); });
}

bool any_matches(IMetaDataImport& metadata, mdTypeDef type, const std::wstring& type_name) {
    return method_patterns.may_match_type(type_name) &&
           any_token(
               metadata,
               [&](HCORENUM* handle, mdMethodDef* method, ULONG* count) {
                   return metadata.EnumMethods(handle, type, method, 1, count);
               },
               [&](mdMethodDef method) {
                   return method_patterns.would_match(type_name + L'.' +
                                                      method_name(metadata, method));
               });
}

bool defines_chosen(IMetaDataImport& metadata, bool patterns_count) {
    return any_token(
        metadata,
        [&](HCORENUM* handle, mdTypeDef* type, ULONG* count) {
            return metadata.EnumTypeDefs(handle, type, 1, count);
        },
        [&](mdTypeDef type) {
            const std::wstring name = full_type_name(metadata, type);
            return name == kTraceAttribute || is_in_table(name) ||
                   (patterns_count && any_matches(metadata, type, name));
        });
}

// As the runtime has mapped it. A file that it only reads has no code that could be used.
std::span<const std::uint8_t> mapped_image(const std::uint8_t* base) {
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto& headers = *reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos.e_lfanew);
    return {base, headers.OptionalHeader.SizeOfImage};
}

// Whether the answer is "yes", or cannot be given.
bool learn(ICorProfilerInfo* info, ModuleID module) {
    constexpr DWORD kNotMapped = COR_PRF_MODULE_DYNAMIC | COR_PRF_MODULE_FLAT_LAYOUT;
    ComPtr<ICorProfilerInfo3> info3;
    ComPtr<IMetaDataImport> metadata;
    const std::uint8_t* base = nullptr;
    ULONG length = 0;
    AssemblyID assembly = 0;
    DWORD flags = 0;
    if (FAILED(info->QueryInterface(__uuidof(ICorProfilerInfo3), info3.put_void())) ||
        FAILED(info3->GetModuleInfo2(module, &base, 0, &length, nullptr, &assembly, &flags))) {
        return true;
    }
    metadata = open_image_metadata_of_module(reinterpret_cast<const std::byte*>(base), flags);
    if (!metadata && FAILED(info->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataImport),
                                                    metadata.put_unknown()))) {
        return true;
    }
    if (base != nullptr && (flags & kNotMapped) == 0 &&
        is_part_of_composite(ready_to_run_flags(mapped_image(base)).value_or(0))) {
        return true;
    }
    RuntimeName name;
    if (SUCCEEDED(info->GetAssemblyInfo(assembly, 0, &length, nullptr, nullptr, nullptr))) {
        info->GetAssemblyInfo(assembly, length, &length, name.resize(length), nullptr, nullptr);
    }
    const bool patterns_count = !method_patterns.empty() && !is_beyond_patterns(name);
    return refers_to_attribute(*metadata.get()) || defines_chosen(*metadata.get(), patterns_count);
}

} // namespace

bool may_hold_chosen_code(ICorProfilerInfo* info, FunctionID function) {
    ClassID type = 0;
    ModuleID module = 0;
    mdToken method = mdTokenNil;
    if (FAILED(info->GetFunctionInfo(function, &type, &module, &method))) {
        return true;
    }
    {
        const std::shared_lock reading(mutex);
        if (const auto found = known.find(module); found != known.end()) {
            return found->second;
        }
    }
    const bool may = learn(info, module);
    const std::lock_guard writing(mutex);
    return known.emplace(module, may).first->second;
}

void forget_precompiled_code(ModuleID module) {
    const std::lock_guard writing(mutex);
    known.erase(module);
}

} // namespace corvane
