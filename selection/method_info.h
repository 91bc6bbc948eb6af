// method_info: the facts about one method that the runtime is about to compile or to take from its
// precompiled code. One is built per callback, on that callback's thread, and never kept.
#pragma once

#include "base/debug_log.h"
#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "clr/metadata.h"
#include "clr/runtime_name.h"

namespace corvane {

inline constexpr const wchar_t* kTraceAttribute = L"Corvane.Instrumentation.TraceAttribute";
inline constexpr const wchar_t* kTransparentAttribute =
    L"System.Security.SecurityTransparentAttribute";

// What errors of the query say as well: no.
bool has_attribute(IMetaDataImport& metadata, mdToken owner, const wchar_t* attribute);

// Sets `is_transparent` if the assembly of the metadata has the attribute; one that is set stays.
HRESULT find_transparent_assembly(IMetaDataImport& metadata, bool& is_transparent);

struct method_info {
    AssemblyID assembly_id = 0;
    RuntimeName assembly_name; // simple name; empty when the runtime does not tell it
    ModuleID module_id = 0;
    RuntimeName module_name; // its file's path
    ClassID class_id = 0;
    RuntimeName type_name;   // with its namespace; of a nested type the own name only
    RuntimeName method_name; // ".ctor" for a constructor
    mdMethodDef method_token = mdTokenNil;
    PCCOR_SIGNATURE signature = nullptr; // the runtime's, valid while the module is loaded
    ULONG signature_size = 0;            // in bytes
    ThreadID thread_id = 0;              // the thread that the callback runs on
    bool has_trace_attribute = false;
    bool is_transparent = false; // the method, or else its assembly, is security-transparent

    // The channel of every message about a method that cannot be described.
    static const DebugLog log;

    // Runs the four steps below until one fails and returns the last one's result. Fields that were
    // filled before a failure keep their values. Every failure is logged, where it happened and as
    // the step that it failed.
    HRESULT get_info(ICorProfilerInfo* info, FunctionID function);

    HRESULT get_class_method_info(ICorProfilerInfo* info, FunctionID function);
    HRESULT get_module_info(ICorProfilerInfo* info);
    HRESULT get_assembly_info(ICorProfilerInfo* info);
    HRESULT get_thread_id(ICorProfilerInfo* info);
};

} // namespace corvane
