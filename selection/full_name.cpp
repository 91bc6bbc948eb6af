#include "selection/full_name.h"

#include "clr/runtime_name.h"

namespace corvane {

std::wstring full_type_name(IMetaDataImport& metadata, mdTypeDef type) {
    constexpr int kDeepestNesting = 64; // damaged metadata may nest a type in itself
    std::wstring name;
    for (int depth = 0; depth < kDeepestNesting; ++depth) {
        ULONG length = 0;
        std::wstring own;
        if (FAILED(metadata.GetTypeDefProps(type, nullptr, 0, &length, nullptr, nullptr))) {
            return {};
        }
        resize_for_name(own, length);
        if (FAILED(metadata.GetTypeDefProps(type, own.data(), length, &length, nullptr, nullptr))) {
            return {};
        }
        name.insert(0, depth == 0 ? own : own + L'+');
        if (FAILED(metadata.GetNestedClassProps(type, &type))) {
            return name;
        }
    }
    return {};
}

} // namespace corvane
