// The calls of the CLR that a profiler may use, one list per interface version.
// Columns: vtable slot (IUnknown takes 0 to 2), name, parameter types with their meaning. Lengths
// and capacities of names count characters, the terminator included; a byte size has a name that
// says so. The interfaces and the tests' fakes are expanded from these lists.
#pragma once

// clang-format off

#define CLR_PROFILER_INFO_METHODS(X) \
    X( 3, GetClassFromObject,              (ObjectID /* object */, ClassID* /* class */)) \
    X( 4, GetClassFromToken,               (ModuleID /* module */, mdTypeDef /* type */, ClassID* /* class */)) \
    X( 5, GetCodeInfo,                     (FunctionID /* function */, LPCBYTE* /* start */, ULONG* /* size */)) \
    X( 6, GetEventMask,                    (DWORD* /* events */)) \
    X( 7, GetFunctionFromIP,               (LPCBYTE /* ip */, FunctionID* /* function */)) \
    X( 8, GetFunctionFromToken,            (ModuleID /* module */, mdToken /* token */, FunctionID* /* function */)) \
    X( 9, GetHandleFromThread,             (ThreadID /* thread */, HANDLE* /* handle */)) \
    X(10, GetObjectSize,                   (ObjectID /* object */, ULONG* /* size */)) \
    X(11, IsArrayClass,                    (ClassID /* class */, CorElementType* /* element_type */, ClassID* /* element_class */, ULONG* /* rank */)) \
    X(12, GetThreadInfo,                   (ThreadID /* thread */, DWORD* /* os_thread_id */)) \
    X(13, GetCurrentThreadID,              (ThreadID* /* thread */)) \
    X(14, GetClassIDInfo,                  (ClassID /* class */, ModuleID* /* module */, mdTypeDef* /* type */)) \
    X(15, GetFunctionInfo,                 (FunctionID /* function */, ClassID* /* class */, ModuleID* /* module */, mdToken* /* token */)) \
    X(16, SetEventMask,                    (DWORD /* events */)) \
    X(17, SetEnterLeaveFunctionHooks,      (FunctionEnter* /* enter */, FunctionLeave* /* leave */, FunctionTailcall* /* tailcall */)) \
    X(18, SetFunctionIDMapper,             (FunctionIDMapper* /* mapper */)) \
    X(19, GetTokenAndMetaDataFromFunction, (FunctionID /* function */, REFIID /* iid */, IUnknown** /* metadata */, mdToken* /* token */)) \
    X(20, GetModuleInfo,                   (ModuleID /* module */, LPCBYTE* /* base */, ULONG /* capacity */, ULONG* /* name_length */, WCHAR* /* name */, AssemblyID* /* assembly */)) \
    X(21, GetModuleMetaData,               (ModuleID /* module */, DWORD /* open_flags */, REFIID /* iid */, IUnknown** /* metadata */)) \
    X(22, GetILFunctionBody,               (ModuleID /* module */, mdMethodDef /* method */, LPCBYTE* /* header */, ULONG* /* size */)) \
    X(23, GetILFunctionBodyAllocator,      (ModuleID /* module */, IMethodMalloc** /* allocator */)) \
    X(24, SetILFunctionBody,               (ModuleID /* module */, mdMethodDef /* method */, LPCBYTE /* header */)) \
    X(25, GetAppDomainInfo,                (AppDomainID /* app_domain */, ULONG /* capacity */, ULONG* /* name_length */, WCHAR* /* name */, ProcessID* /* process */)) \
    X(26, GetAssemblyInfo,                 (AssemblyID /* assembly */, ULONG /* capacity */, ULONG* /* name_length */, WCHAR* /* name */, AppDomainID* /* app_domain */, ModuleID* /* module */)) \
    X(27, SetFunctionReJIT,                (FunctionID /* function */)) \
    X(28, ForceGC,                         ()) \
    X(29, SetILInstrumentedCodeMap,        (FunctionID /* function */, BOOL /* is_first */, ULONG /* count */, COR_IL_MAP* /* map */)) \
    X(30, GetInprocInspectionInterface,    (IUnknown** /* inspection */)) \
    X(31, GetInprocInspectionIThisThread,  (IUnknown** /* inspection */)) \
    X(32, GetThreadContext,                (ThreadID /* thread */, ContextID* /* context */)) \
    X(33, BeginInprocDebugging,            (BOOL /* this_thread_only */, DWORD* /* context */)) \
    X(34, EndInprocDebugging,              (DWORD /* context */)) \
    X(35, GetILToNativeMapping,            (FunctionID /* function */, ULONG32 /* capacity */, ULONG32* /* available */, COR_DEBUG_IL_TO_NATIVE_MAP* /* map */))

#define CLR_PROFILER_INFO2_METHODS(X) \
    X(36, DoStackSnapshot,                 (ThreadID /* thread, 0 for this one */, StackSnapshotCallback* /* callback */, ULONG32 /* flags */, void* /* client_data */, BYTE* /* context */, ULONG32 /* context_size */)) \
    X(37, SetEnterLeaveFunctionHooks2,     (FunctionEnter2* /* enter */, FunctionLeave2* /* leave */, FunctionTailcall2* /* tailcall */)) \
    X(38, GetFunctionInfo2,                (FunctionID /* function */, COR_PRF_FRAME_INFO /* frame */, ClassID* /* class */, ModuleID* /* module */, mdToken* /* token */, ULONG32 /* capacity */, ULONG32* /* available */, ClassID* /* type_arguments */)) \
    X(39, GetStringLayout,                 (ULONG* /* buffer_length_offset */, ULONG* /* string_length_offset */, ULONG* /* buffer_offset */)) \
    X(40, GetClassLayout,                  (ClassID /* class */, COR_FIELD_OFFSET* /* fields */, ULONG /* capacity */, ULONG* /* available */, ULONG* /* instance_size */)) \
    X(41, GetClassIDInfo2,                 (ClassID /* class */, ModuleID* /* module */, mdTypeDef* /* type */, ClassID* /* parent */, ULONG32 /* capacity */, ULONG32* /* available */, ClassID* /* type_arguments */)) \
    X(42, GetCodeInfo2,                    (FunctionID /* function */, ULONG32 /* capacity */, ULONG32* /* available */, COR_PRF_CODE_INFO* /* code */)) \
    X(43, GetClassFromTokenAndTypeArgs,    (ModuleID /* module */, mdTypeDef /* type */, ULONG32 /* count */, ClassID* /* type_arguments */, ClassID* /* class */)) \
    X(44, GetFunctionFromTokenAndTypeArgs, (ModuleID /* module */, mdMethodDef /* method */, ClassID /* class */, ULONG32 /* count */, ClassID* /* type_arguments */, FunctionID* /* function */)) \
    X(45, EnumModuleFrozenObjects,         (ModuleID /* module */, ICorProfilerObjectEnum** /* objects */)) \
    X(46, GetArrayObjectInfo,              (ObjectID /* object */, ULONG32 /* rank */, ULONG32* /* sizes */, int* /* lower_bounds */, BYTE** /* elements */)) \
    X(47, GetBoxClassLayout,               (ClassID /* class */, ULONG32* /* offset */)) \
    X(48, GetThreadAppDomain,              (ThreadID /* thread */, AppDomainID* /* app_domain */)) \
    X(49, GetRVAStaticAddress,             (ClassID /* class */, mdFieldDef /* field */, void** /* address */)) \
    X(50, GetAppDomainStaticAddress,       (ClassID /* class */, mdFieldDef /* field */, AppDomainID /* app_domain */, void** /* address */)) \
    X(51, GetThreadStaticAddress,          (ClassID /* class */, mdFieldDef /* field */, ThreadID /* thread */, void** /* address */)) \
    X(52, GetContextStaticAddress,         (ClassID /* class */, mdFieldDef /* field */, ContextID /* context */, void** /* address */)) \
    X(53, GetStaticFieldInfo,              (ClassID /* class */, mdFieldDef /* field */, COR_PRF_STATIC_TYPE* /* kind */)) \
    X(54, GetGenerationBounds,             (ULONG /* capacity */, ULONG* /* available */, COR_PRF_GC_GENERATION_RANGE* /* ranges */)) \
    X(55, GetObjectGeneration,             (ObjectID /* object */, COR_PRF_GC_GENERATION_RANGE* /* range */)) \
    X(56, GetNotifiedExceptionClauseInfo,  (COR_PRF_EX_CLAUSE_INFO* /* clause */))

#define CLR_PROFILER_INFO3_METHODS(X) \
    X(57, EnumJITedFunctions,                  (ICorProfilerFunctionEnum** /* functions */)) \
    X(58, RequestProfilerDetach,               (DWORD /* expected_milliseconds */)) \
    X(59, SetFunctionIDMapper2,                (FunctionIDMapper2* /* mapper */, void* /* client_data */)) \
    X(60, GetStringLayout2,                    (ULONG* /* string_length_offset */, ULONG* /* buffer_offset */)) \
    X(61, SetEnterLeaveFunctionHooks3,         (FunctionEnter3* /* enter */, FunctionLeave3* /* leave */, FunctionTailcall3* /* tailcall */)) \
    X(62, SetEnterLeaveFunctionHooks3WithInfo, (FunctionEnter3WithInfo* /* enter */, FunctionLeave3WithInfo* /* leave */, FunctionTailcall3WithInfo* /* tailcall */)) \
    X(63, GetFunctionEnter3Info,               (FunctionID /* function */, COR_PRF_ELT_INFO /* elt_info */, COR_PRF_FRAME_INFO* /* frame */, ULONG* /* arguments_size */, COR_PRF_FUNCTION_ARGUMENT_INFO* /* arguments */)) \
    X(64, GetFunctionLeave3Info,               (FunctionID /* function */, COR_PRF_ELT_INFO /* elt_info */, COR_PRF_FRAME_INFO* /* frame */, COR_PRF_FUNCTION_ARGUMENT_RANGE* /* return_value */)) \
    X(65, GetFunctionTailcall3Info,            (FunctionID /* function */, COR_PRF_ELT_INFO /* elt_info */, COR_PRF_FRAME_INFO* /* frame */)) \
    X(66, EnumModules,                         (ICorProfilerModuleEnum** /* modules */)) \
    X(67, GetRuntimeInformation,               (USHORT* /* instance */, COR_PRF_RUNTIME_TYPE* /* runtime */, USHORT* /* major */, USHORT* /* minor */, USHORT* /* build */, USHORT* /* qfe */, ULONG /* capacity */, ULONG* /* version_length */, WCHAR* /* version */)) \
    X(68, GetThreadStaticAddress2,             (ClassID /* class */, mdFieldDef /* field */, AppDomainID /* app_domain */, ThreadID /* thread */, void** /* address */)) \
    X(69, GetAppDomainsContainingModule,       (ModuleID /* module */, ULONG32 /* capacity */, ULONG32* /* available */, AppDomainID* /* app_domains */)) \
    X(70, GetModuleInfo2,                      (ModuleID /* module */, LPCBYTE* /* base */, ULONG /* capacity */, ULONG* /* name_length */, WCHAR* /* name */, AssemblyID* /* assembly */, DWORD* /* flags */))

#define CLR_PROFILER_FUNCTION_CONTROL_METHODS(X) \
    X( 3, SetCodegenFlags,          (DWORD /* flags */)) \
    X( 4, SetILFunctionBody,        (ULONG /* size */, LPCBYTE /* header */)) \
    X( 5, SetILInstrumentedCodeMap, (ULONG /* count */, COR_IL_MAP* /* map */))

// clang-format on
