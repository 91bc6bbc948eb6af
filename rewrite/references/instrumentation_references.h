// The references of injected code, as tokens of one module. Made for one method, passed on by
// value.
#pragma once

#include "clr/metadata.h"

namespace corvane {

struct InstrumentationReferences {
    mdMemberRef generic_prologue = mdMemberRefNil;
    mdMemberRef generic_epilogue = mdMemberRefNil;
    mdMemberRef contains_key = mdMemberRefNil;
    mdMemberRef get_current_method = mdMemberRefNil;
    mdMemberRef register_method = mdMemberRefNil;
    mdMemberRef log = mdMemberRefNil;
    mdMemberRef error = mdMemberRefNil;
    mdTypeRef exception_type = mdTypeRefNil;
    mdTypeRef object_type = mdTypeRefNil;
    mdTypeRef directives_type = mdTypeRefNil;
    mdMemberRef directives_constructor = mdMemberRefNil;
    mdMemberRef get_indexes = mdMemberRefNil;
    // Strict only.
    mdMemberRef has_listeners = mdMemberRefNil;
    mdMethodSpec index_of = mdMethodSpecNil; // Array.IndexOf<int>

    // Where types are that the module does not name yet.
    mdAssemblyRef mscorlib = mdAssemblyRefNil;
    // False where the signature of RegisterMethod had to be made such that no method has it. The
    // runtime refuses to compile whatever calls it.
    bool register_method_binds = true;
};

} // namespace corvane
