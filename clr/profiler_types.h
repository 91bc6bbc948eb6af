// Scalar types, structures, enumerations and function types of the CLR's profiling interface.
// Names, widths and values are the platform's; the values are used exactly as the runtime defines
// them.
#pragma once

#include "clr/metadata.h"

#include <windows.h>

#include <unknwn.h>

#include <corerror.h>

using ProcessID = UINT_PTR;
using AssemblyID = UINT_PTR;
using AppDomainID = UINT_PTR;
using ModuleID = UINT_PTR;
using ClassID = UINT_PTR;
using ThreadID = UINT_PTR;
using ContextID = UINT_PTR;
using FunctionID = UINT_PTR;
using ObjectID = UINT_PTR;
using GCHandleID = UINT_PTR;
using ReJITID = UINT_PTR;
using COR_PRF_FRAME_INFO = UINT_PTR;
using COR_PRF_ELT_INFO = UINT_PTR;
using LPCBYTE = const BYTE*;

union FunctionIDOrClientID {
    FunctionID functionID;
    UINT_PTR clientID;
};

// The events a profiler subscribes to and the services it switches on (SetEventMask).
enum COR_PRF_MONITOR : DWORD {
    COR_PRF_MONITOR_NONE = 0x00000000,
    COR_PRF_MONITOR_FUNCTION_UNLOADS = 0x00000001,
    COR_PRF_MONITOR_CLASS_LOADS = 0x00000002,
    COR_PRF_MONITOR_MODULE_LOADS = 0x00000004,
    COR_PRF_MONITOR_ASSEMBLY_LOADS = 0x00000008,
    COR_PRF_MONITOR_APPDOMAIN_LOADS = 0x00000010,
    COR_PRF_MONITOR_JIT_COMPILATION = 0x00000020,
    COR_PRF_MONITOR_EXCEPTIONS = 0x00000040,
    COR_PRF_MONITOR_GC = 0x00000080,
    COR_PRF_MONITOR_OBJECT_ALLOCATED = 0x00000100,
    COR_PRF_MONITOR_THREADS = 0x00000200,
    COR_PRF_MONITOR_REMOTING = 0x00000400,
    COR_PRF_MONITOR_CODE_TRANSITIONS = 0x00000800,
    COR_PRF_MONITOR_ENTERLEAVE = 0x00001000,
    COR_PRF_MONITOR_CCW = 0x00002000,
    COR_PRF_MONITOR_REMOTING_COOKIE = 0x00004400,
    COR_PRF_MONITOR_REMOTING_ASYNC = 0x00008400,
    COR_PRF_MONITOR_SUSPENDS = 0x00010000,
    COR_PRF_MONITOR_CACHE_SEARCHES = 0x00020000,
    COR_PRF_ENABLE_REJIT = 0x00040000,
    COR_PRF_ENABLE_INPROC_DEBUGGING = 0x00080000,
    COR_PRF_ENABLE_JIT_MAPS = 0x00100000,
    COR_PRF_DISABLE_INLINING = 0x00200000,
    COR_PRF_DISABLE_OPTIMIZATIONS = 0x00400000,
    COR_PRF_ENABLE_OBJECT_ALLOCATED = 0x00800000,
    COR_PRF_MONITOR_CLR_EXCEPTIONS = 0x01000000,
    COR_PRF_MONITOR_ALL = 0x0107FFFF,
    COR_PRF_ENABLE_FUNCTION_ARGS = 0x02000000,
    COR_PRF_ENABLE_FUNCTION_RETVAL = 0x04000000,
    COR_PRF_ENABLE_FRAME_INFO = 0x08000000,
    COR_PRF_ENABLE_STACK_SNAPSHOT = 0x10000000,
    COR_PRF_USE_PROFILE_IMAGES = 0x20000000,
    COR_PRF_DISABLE_TRANSPARENCY_CHECKS_UNDER_FULL_TRUST = 0x40000000,
    COR_PRF_DISABLE_ALL_NGEN_IMAGES = 0x80000000,
    COR_PRF_ALL = 0x8FFFFFFF,
    COR_PRF_REQUIRE_PROFILE_IMAGE = 0x20001800,
    COR_PRF_ALLOWABLE_AFTER_ATTACH = 0x106502FE,
    COR_PRF_ALLOWABLE_NOTIFICATION_PROFILER = 0xB1E32B7F,
    COR_PRF_MONITOR_IMMUTABLE = 0xEE98CC00,
};

enum COR_PRF_SNAPSHOT_INFO : int {
    COR_PRF_SNAPSHOT_DEFAULT = 0x0,
    COR_PRF_SNAPSHOT_REGISTER_CONTEXT = 0x1,
    COR_PRF_SNAPSHOT_X86_OPTIMIZED = 0x2,
};

enum COR_PRF_JIT_CACHE : int {
    COR_PRF_CACHED_FUNCTION_FOUND = 0,
    COR_PRF_CACHED_FUNCTION_NOT_FOUND = 1,
};

enum COR_PRF_CODEGEN_FLAGS : int {
    COR_PRF_CODEGEN_DISABLE_INLINING = 0x1,
    COR_PRF_CODEGEN_DISABLE_ALL_OPTIMIZATIONS = 0x2,
    COR_PRF_CODEGEN_DEBUG_INFO = 0x3,
};

enum COR_PRF_TRANSITION_REASON : int {
    COR_PRF_TRANSITION_CALL = 0,
    COR_PRF_TRANSITION_RETURN = 1,
};

enum COR_PRF_SUSPEND_REASON : int {
    COR_PRF_SUSPEND_OTHER = 0,
    COR_PRF_SUSPEND_FOR_GC = 1,
    COR_PRF_SUSPEND_FOR_APPDOMAIN_SHUTDOWN = 2,
    COR_PRF_SUSPEND_FOR_CODE_PITCHING = 3,
    COR_PRF_SUSPEND_FOR_SHUTDOWN = 4,
    COR_PRF_SUSPEND_FOR_INPROC_DEBUGGER = 6,
    COR_PRF_SUSPEND_FOR_GC_PREP = 7,
    COR_PRF_SUSPEND_FOR_REJIT = 8,
    COR_PRF_SUSPEND_FOR_PROFILER = 9,
};

enum COR_PRF_GC_REASON : int {
    COR_PRF_GC_OTHER = 0,
    COR_PRF_GC_INDUCED = 1,
};

enum COR_PRF_GC_ROOT_KIND : int {
    COR_PRF_GC_ROOT_OTHER = 0,
    COR_PRF_GC_ROOT_STACK = 1,
    COR_PRF_GC_ROOT_FINALIZER = 2,
    COR_PRF_GC_ROOT_HANDLE = 3,
};

enum COR_PRF_GC_ROOT_FLAGS : int {
    COR_PRF_GC_ROOT_PINNING = 0x1,
    COR_PRF_GC_ROOT_WEAKREF = 0x2,
    COR_PRF_GC_ROOT_INTERIOR = 0x4,
    COR_PRF_GC_ROOT_REFCOUNTED = 0x8,
};

enum COR_PRF_GC_GENERATION : int {
    COR_PRF_GC_GEN_0 = 0,
    COR_PRF_GC_GEN_1 = 1,
    COR_PRF_GC_GEN_2 = 2,
    COR_PRF_GC_LARGE_OBJECT_HEAP = 3,
    COR_PRF_GC_PINNED_OBJECT_HEAP = 4,
};

enum COR_PRF_CLAUSE_TYPE : int {
    COR_PRF_CLAUSE_NONE = 0,
    COR_PRF_CLAUSE_FILTER = 1,
    COR_PRF_CLAUSE_CATCH = 2,
    COR_PRF_CLAUSE_FINALLY = 3,
};

enum COR_PRF_STATIC_TYPE : int {
    COR_PRF_FIELD_NOT_A_STATIC = 0x0,
    COR_PRF_FIELD_APP_DOMAIN_STATIC = 0x1,
    COR_PRF_FIELD_THREAD_STATIC = 0x2,
    COR_PRF_FIELD_CONTEXT_STATIC = 0x4,
    COR_PRF_FIELD_RVA_STATIC = 0x8,
};

enum COR_PRF_RUNTIME_TYPE : int {
    COR_PRF_DESKTOP_CLR = 0x1,
    COR_PRF_CORE_CLR = 0x2,
};

enum COR_PRF_FINALIZER_FLAGS : int {
    COR_PRF_FINALIZER_CRITICAL = 0x1,
};

enum COR_PRF_MODULE_FLAGS : int {
    COR_PRF_MODULE_DISK = 0x1,
    COR_PRF_MODULE_NGEN = 0x2,
    COR_PRF_MODULE_DYNAMIC = 0x4,
    COR_PRF_MODULE_COLLECTIBLE = 0x8,
    COR_PRF_MODULE_RESOURCE = 0x10,
    COR_PRF_MODULE_FLAT_LAYOUT = 0x20,
    COR_PRF_MODULE_WINDOWS_RUNTIME = 0x40,
};

struct COR_IL_MAP {
    ULONG32 oldOffset;
    ULONG32 newOffset;
    BOOL fAccurate;
};

struct COR_DEBUG_IL_TO_NATIVE_MAP {
    ULONG32 ilOffset;
    ULONG32 nativeStartOffset;
    ULONG32 nativeEndOffset;
};

struct COR_PRF_CODE_INFO {
    UINT_PTR startAddress;
    SIZE_T size;
};

struct COR_PRF_FUNCTION_ARGUMENT_RANGE {
    UINT_PTR startAddress;
    ULONG length;
};

// Variable-length: `ranges` holds numRanges entries.
struct COR_PRF_FUNCTION_ARGUMENT_INFO {
    ULONG numRanges;
    ULONG totalArgumentSize;
    COR_PRF_FUNCTION_ARGUMENT_RANGE ranges[1];
};

struct COR_PRF_GC_GENERATION_RANGE {
    COR_PRF_GC_GENERATION generation;
    ObjectID rangeStart;
    UINT_PTR rangeLength;
    UINT_PTR rangeLengthReserved;
};

struct COR_PRF_EX_CLAUSE_INFO {
    COR_PRF_CLAUSE_TYPE clauseType;
    UINT_PTR programCounter;
    UINT_PTR framePointer;
    UINT_PTR shadowStackPointer;
};

// Called once per frame by DoStackSnapshot; `function` is 0 for a run of unmanaged frames.
using StackSnapshotCallback = HRESULT STDMETHODCALLTYPE(FunctionID function, UINT_PTR ip,
                                                        COR_PRF_FRAME_INFO frame,
                                                        ULONG32 context_size, BYTE* context,
                                                        void* client_data);

// Maps a function to the id its hooks receive and says whether it is hooked at all.
using FunctionIDMapper = UINT_PTR STDMETHODCALLTYPE(FunctionID function, BOOL* is_hooked);
using FunctionIDMapper2 = UINT_PTR STDMETHODCALLTYPE(FunctionID function, void* client_data,
                                                     BOOL* is_hooked);

// Enter, leave and tail-call hooks. The runtime saves no register before it calls one.
using FunctionEnter = void STDMETHODCALLTYPE(FunctionID);
using FunctionLeave = void STDMETHODCALLTYPE(FunctionID);
using FunctionTailcall = void STDMETHODCALLTYPE(FunctionID);
using FunctionEnter2 = void STDMETHODCALLTYPE(FunctionID, UINT_PTR, COR_PRF_FRAME_INFO,
                                              COR_PRF_FUNCTION_ARGUMENT_INFO*);
using FunctionLeave2 = void STDMETHODCALLTYPE(FunctionID, UINT_PTR, COR_PRF_FRAME_INFO,
                                              COR_PRF_FUNCTION_ARGUMENT_RANGE*);
using FunctionTailcall2 = void STDMETHODCALLTYPE(FunctionID, UINT_PTR, COR_PRF_FRAME_INFO);
using FunctionEnter3 = void STDMETHODCALLTYPE(FunctionIDOrClientID);
using FunctionLeave3 = void STDMETHODCALLTYPE(FunctionIDOrClientID);
using FunctionTailcall3 = void STDMETHODCALLTYPE(FunctionIDOrClientID);
using FunctionEnter3WithInfo = void STDMETHODCALLTYPE(FunctionIDOrClientID, COR_PRF_ELT_INFO);
using FunctionLeave3WithInfo = void STDMETHODCALLTYPE(FunctionIDOrClientID, COR_PRF_ELT_INFO);
using FunctionTailcall3WithInfo = void STDMETHODCALLTYPE(FunctionIDOrClientID, COR_PRF_ELT_INFO);
