#include "rewrite/shape/by_ref_like.h"

#include "clr/com_ptr.h"
#include "rewrite/shape/loaded_modules.h"
#include "rewrite/shape/method_signature.h"

#include <array>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvane {

namespace {

// Of a nested type the types around it first.
using TypePath = std::vector<std::wstring>;

bool read_path(IMetaDataImport* metadata, mdToken type, TypePath& path) {
    constexpr std::size_t kDeepestNesting = 64; // damaged metadata may nest a type in itself
    while (TypeFromToken(type) == mdtTypeRef) {
        if (path.size() == kDeepestNesting) {
            return false;
        }
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

// A "no" counts of every module, or only of the one that defines the runtime's own types.
ByRefLike ask_module(ICorProfilerInfo* info, ModuleID module, const TypePath& path,
                     bool counts_of_all) {
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
    if (is_marked(metadata.get(), type)) {
        return ByRefLike::kYes;
    }
    mdTypeDef object = mdTypeDefNil;
    const bool counts =
        counts_of_all ||
        SUCCEEDED(metadata->FindTypeDefByName(L"System.Object", mdTokenNil, &object));
    return counts ? ByRefLike::kNo : ByRefLike::kUnknown;
}

// What was found about a type of a module. Good as long as the same modules are loaded.
class Answers {
public:
    using Type = std::pair<ModuleID, mdToken>;

    std::optional<ByRefLike> find(std::uint64_t state, const Type& type) {
        const std::lock_guard lock(mutex_);
        const auto found = answers_.find(type);
        return state == state_ && found != answers_.end() ? std::optional(found->second)
                                                          : std::nullopt;
    }

    void keep(std::uint64_t state, const Type& type, ByRefLike answer) {
        const std::lock_guard lock(mutex_);
        if (state > state_) {
            answers_.clear();
            state_ = state;
        }
        if (state == state_) {
            answers_[type] = answer;
        }
    }

private:
    std::mutex mutex_;
    std::uint64_t state_ = 0;
    std::map<Type, ByRefLike> answers_;
};

// Outlives every thread that compiles.
Answers& answers() {
    static auto& all = *new Answers();
    return all;
}

// Which module's type is meant is not resolved: a method too many left as it is does no harm,
// and one that boxes what cannot be boxed ends the program.
ByRefLike ask_modules(ICorProfilerInfo* info, ModuleID module, const TypePath& path) {
    ByRefLike answer = ByRefLike::kUnknown;
    const bool stays = is_loaded_module(module);
    visit_loaded_modules([&](ModuleID candidate) {
        const ByRefLike there = ask_module(info, candidate, path, stays);
        answer = there == ByRefLike::kUnknown ? answer : there;
        return answer != ByRefLike::kYes;
    });
    return answer;
}

// The type that a TypeSpec is an instance of; a type that is no value type is no by-ref-like one.
ByRefLike ask_type_spec(ICorProfilerInfo* info, ModuleID module, IMetaDataImport* metadata,
                        mdTypeSpec type) {
    PCCOR_SIGNATURE blob = nullptr;
    ULONG size = 0;
    if (FAILED(metadata->GetTypeSpecFromToken(type, &blob, &size))) {
        return ByRefLike::kUnknown;
    }
    const SignatureType spec{{blob, size}};
    switch (spec.passing()) {
    case Passing::kValueType:
    case Passing::kGenericValueType:
        return spec.token() && TypeFromToken(*spec.token()) != mdtTypeSpec
                   ? by_ref_like(info, module, metadata, *spec.token())
                   : ByRefLike::kUnknown;
    case Passing::kNotAtAll:
        return ByRefLike::kUnknown;
    default:
        return ByRefLike::kNo;
    }
}

} // namespace

ByRefLike by_ref_like(ICorProfilerInfo* info, ModuleID module, IMetaDataImport* metadata,
                      mdToken type) {
    if (TypeFromToken(type) == mdtTypeSpec) {
        return ask_type_spec(info, module, metadata, type);
    }
    if (TypeFromToken(type) == mdtTypeDef) {
        return is_marked(metadata, type) ? ByRefLike::kYes : ByRefLike::kNo;
    }
    const std::uint64_t state = loaded_modules_state();
    if (const auto known = answers().find(state, {module, type})) {
        return *known;
    }
    TypePath path;
    if (!read_path(metadata, type, path) || path.empty()) {
        return ByRefLike::kUnknown;
    }
    if (is_unmarked(path)) {
        return ByRefLike::kYes;
    }
    const ByRefLike answer = ask_modules(info, module, path);
    if (answer != ByRefLike::kUnknown) { // a module that is made at run time may yet define it
        answers().keep(state, {module, type}, answer);
    }
    return answer;
}

} // namespace corvane
