// Names of what a module's tokens stand for, in UTF-8, as people read IL: types as patterns of
// CORVANE_METHODS write them ("Namespace.Type+Nested"), members behind "::", signatures in words.
// Damaged metadata gives a "?" where there is no name. One thread.
#pragma once

#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "tools/corvane/offline/signature_texts.h"

#include <map>
#include <string>
#include <vector>

namespace corvane::tool {

class MetadataNames {
public:
    // The metadata is borrowed. It may grow.
    explicit MetadataNames(IMetaDataImport& metadata) : metadata_(metadata) {}

    // A type, field, method or signature that stands alone, or a literal.
    const std::string& token(mdToken token);

    // "int32 Namespace.Type::Method(string, int32)", without the type for a name of its own.
    std::string method(mdMethodDef method, bool with_type);
    const std::string& type_of_method(mdMethodDef method);
    std::string full_method_name(mdMethodDef method); // as patterns mean it

    // For signatures; of this object, which outlives it.
    TypeNames type_names();
    std::vector<std::string> locals(mdSignature token);

private:
    std::string make(mdToken token);
    std::string type_reference(mdToken token);
    std::string member(std::string parent, const std::string& name, Blob signature);
    std::string literal(mdToken token);

    IMetaDataImport& metadata_;
    std::map<mdToken, std::string> known_;
    unsigned depth_ = 0;
};

} // namespace corvane::tool
