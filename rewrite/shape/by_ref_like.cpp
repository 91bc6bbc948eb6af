#include "rewrite/shape/by_ref_like.h"

#include "clr/com_ptr.h"
#include "rewrite/shape/loaded_modules.h"

#include <array>
#include <string>
#include <vector>

namespace corvane {

namespace {

// Of a nested type the types around it first.
using TypePath = std::vector<std::wstring>;

bool read_path(IMetaDataImport* metadata, mdToken type, TypePath& path) {
    while (TypeFromToken(type) == mdtTypeRef) {
        constexpr ULONG kNameRoom = 1024; // the longest that a compiler writes
        std::array<wchar_t, kNameRoom> name{};
        ULONG length = 0;
        mdToken scope = mdTokenNil;
        if (FAILED(metadata->GetTypeRefProps(type, &scope, name.data(), kNameRoom, &length))) {
            return false;
        }
        path.emplace(path.begin(), name.data());
        type = scope;
    }
    return true;
}

bool is_marked(IMetaDataImport* metadata, mdTypeDef type) {
    return metadata->GetCustomAttributeByName(
               type, L"System.Runtime.CompilerServices.IsByRefLikeAttribute", nullptr, nullptr) ==
           S_OK;
}

// These were so before there was a mark for it.
bool is_unmarked(const TypePath& path) {
    return path.size() == 1 &&
           (path[0] == L"System.ArgIterator" || path[0] == L"System.RuntimeArgumentHandle" ||
            path[0] == L"System.TypedReference");
}

ByRefLike ask_module(ICorProfilerInfo* info, ModuleID module, const TypePath& path) {
    ComPtr<IMetaDataImport> metadata;
    if (FAILED(info->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataImport),
                                       metadata.put_unknown())) ||
        !metadata) { // a module of resources has none, and that is no failure
        return ByRefLike::kUnknown;
    }
    mdTypeDef type = mdTokenNil;
    for (const std::wstring& name : path) {
        if (FAILED(metadata->FindTypeDefByName(name.c_str(), type, &type))) {
            return ByRefLike::kUnknown;
        }
    }
    return is_marked(metadata.get(), type) ? ByRefLike::kYes : ByRefLike::kNo;
}

} // namespace

ByRefLike by_ref_like(ICorProfilerInfo* info, IMetaDataImport* metadata, mdToken type) {
    if (TypeFromToken(type) == mdtTypeDef) {
        return is_marked(metadata, type) ? ByRefLike::kYes : ByRefLike::kNo;
    }
    TypePath path;
    if (!read_path(metadata, type, path) || path.empty()) {
        return ByRefLike::kUnknown;
    }
    if (is_unmarked(path)) {
        return ByRefLike::kYes;
    }
    // Which module's type is meant is not resolved: a method too many left as it is does no harm,
    // and one that boxes what cannot be boxed ends the program.
    ByRefLike answer = ByRefLike::kUnknown;
    visit_loaded_modules([&](ModuleID module) {
        const ByRefLike there = ask_module(info, module, path);
        answer = there == ByRefLike::kUnknown ? answer : there;
        return answer != ByRefLike::kYes;
    });
    return answer;
}

} // namespace corvane
