// The callbacks through which the CLR drives a profiler, one list per interface version.
// Columns: vtable slot (IUnknown takes 0 to 2), name, parameter types with their meaning.
// The interfaces, the do-nothing base class and the tests are expanded from these lists.
#pragma once

// clang-format off

#define CLR_PROFILER_CALLBACK_METHODS(X) \
    X( 3, Initialize,                       (IUnknown* /* info */)) \
    X( 4, Shutdown,                         ()) \
    X( 5, AppDomainCreationStarted,         (AppDomainID /* app_domain */)) \
    X( 6, AppDomainCreationFinished,        (AppDomainID /* app_domain */, HRESULT /* status */)) \
    X( 7, AppDomainShutdownStarted,         (AppDomainID /* app_domain */)) \
    X( 8, AppDomainShutdownFinished,        (AppDomainID /* app_domain */, HRESULT /* status */)) \
    X( 9, AssemblyLoadStarted,              (AssemblyID /* assembly */)) \
    X(10, AssemblyLoadFinished,             (AssemblyID /* assembly */, HRESULT /* status */)) \
    X(11, AssemblyUnloadStarted,            (AssemblyID /* assembly */)) \
    X(12, AssemblyUnloadFinished,           (AssemblyID /* assembly */, HRESULT /* status */)) \
    X(13, ModuleLoadStarted,                (ModuleID /* module */)) \
    X(14, ModuleLoadFinished,               (ModuleID /* module */, HRESULT /* status */)) \
    X(15, ModuleUnloadStarted,              (ModuleID /* module */)) \
    X(16, ModuleUnloadFinished,             (ModuleID /* module */, HRESULT /* status */)) \
    X(17, ModuleAttachedToAssembly,         (ModuleID /* module */, AssemblyID /* assembly */)) \
    X(18, ClassLoadStarted,                 (ClassID /* class */)) \
    X(19, ClassLoadFinished,                (ClassID /* class */, HRESULT /* status */)) \
    X(20, ClassUnloadStarted,               (ClassID /* class */)) \
    X(21, ClassUnloadFinished,              (ClassID /* class */, HRESULT /* status */)) \
    X(22, FunctionUnloadStarted,            (FunctionID /* function */)) \
    X(23, JITCompilationStarted,            (FunctionID /* function */, BOOL /* is_safe_to_block */)) \
    X(24, JITCompilationFinished,           (FunctionID /* function */, HRESULT /* status */, BOOL /* is_safe_to_block */)) \
    X(25, JITCachedFunctionSearchStarted,   (FunctionID /* function */, BOOL* /* use_cached_function */)) \
    X(26, JITCachedFunctionSearchFinished,  (FunctionID /* function */, COR_PRF_JIT_CACHE /* result */)) \
    X(27, JITFunctionPitched,               (FunctionID /* function */)) \
    X(28, JITInlining,                      (FunctionID /* caller */, FunctionID /* callee */, BOOL* /* should_inline */)) \
    X(29, ThreadCreated,                    (ThreadID /* thread */)) \
    X(30, ThreadDestroyed,                  (ThreadID /* thread */)) \
    X(31, ThreadAssignedToOSThread,         (ThreadID /* managed_thread */, DWORD /* os_thread_id */)) \
    X(32, RemotingClientInvocationStarted,  ()) \
    X(33, RemotingClientSendingMessage,     (GUID* /* cookie */, BOOL /* is_async */)) \
    X(34, RemotingClientReceivingReply,     (GUID* /* cookie */, BOOL /* is_async */)) \
    X(35, RemotingClientInvocationFinished, ()) \
    X(36, RemotingServerReceivingMessage,   (GUID* /* cookie */, BOOL /* is_async */)) \
    X(37, RemotingServerInvocationStarted,  ()) \
    X(38, RemotingServerInvocationReturned, ()) \
    X(39, RemotingServerSendingReply,       (GUID* /* cookie */, BOOL /* is_async */)) \
    X(40, UnmanagedToManagedTransition,     (FunctionID /* function */, COR_PRF_TRANSITION_REASON /* reason */)) \
    X(41, ManagedToUnmanagedTransition,     (FunctionID /* function */, COR_PRF_TRANSITION_REASON /* reason */)) \
    X(42, RuntimeSuspendStarted,            (COR_PRF_SUSPEND_REASON /* reason */)) \
    X(43, RuntimeSuspendFinished,           ()) \
    X(44, RuntimeSuspendAborted,            ()) \
    X(45, RuntimeResumeStarted,             ()) \
    X(46, RuntimeResumeFinished,            ()) \
    X(47, RuntimeThreadSuspended,           (ThreadID /* thread */)) \
    X(48, RuntimeThreadResumed,             (ThreadID /* thread */)) \
    X(49, MovedReferences,                  (ULONG /* count */, ObjectID* /* old_starts */, ObjectID* /* new_starts */, ULONG* /* sizes */)) \
    X(50, ObjectAllocated,                  (ObjectID /* object */, ClassID /* class */)) \
    X(51, ObjectsAllocatedByClass,          (ULONG /* count */, ClassID* /* classes */, ULONG* /* object_counts */)) \
    X(52, ObjectReferences,                 (ObjectID /* object */, ClassID /* class */, ULONG /* count */, ObjectID* /* references */)) \
    X(53, RootReferences,                   (ULONG /* count */, ObjectID* /* roots */)) \
    X(54, ExceptionThrown,                  (ObjectID /* object */)) \
    X(55, ExceptionSearchFunctionEnter,     (FunctionID /* function */)) \
    X(56, ExceptionSearchFunctionLeave,     ()) \
    X(57, ExceptionSearchFilterEnter,       (FunctionID /* function */)) \
    X(58, ExceptionSearchFilterLeave,       ()) \
    X(59, ExceptionSearchCatcherFound,      (FunctionID /* function */)) \
    X(60, ExceptionOSHandlerEnter,          (UINT_PTR /* unused */)) \
    X(61, ExceptionOSHandlerLeave,          (UINT_PTR /* unused */)) \
    X(62, ExceptionUnwindFunctionEnter,     (FunctionID /* function */)) \
    X(63, ExceptionUnwindFunctionLeave,     ()) \
    X(64, ExceptionUnwindFinallyEnter,      (FunctionID /* function */)) \
    X(65, ExceptionUnwindFinallyLeave,      ()) \
    X(66, ExceptionCatcherEnter,            (FunctionID /* function */, ObjectID /* object */)) \
    X(67, ExceptionCatcherLeave,            ()) \
    X(68, COMClassicVTableCreated,          (ClassID /* wrapped_class */, REFGUID /* iid */, void* /* vtable */, ULONG /* slots */)) \
    X(69, COMClassicVTableDestroyed,        (ClassID /* wrapped_class */, REFGUID /* iid */, void* /* vtable */)) \
    X(70, ExceptionCLRCatcherFound,         ()) \
    X(71, ExceptionCLRCatcherExecute,       ())

#define CLR_PROFILER_CALLBACK2_METHODS(X) \
    X(72, ThreadNameChanged,         (ThreadID /* thread */, ULONG /* length */, WCHAR* /* name, not terminated */)) \
    X(73, GarbageCollectionStarted,  (int /* generations */, BOOL* /* collected */, COR_PRF_GC_REASON /* reason */)) \
    X(74, SurvivingReferences,       (ULONG /* count */, ObjectID* /* starts */, ULONG* /* sizes */)) \
    X(75, GarbageCollectionFinished, ()) \
    X(76, FinalizeableObjectQueued,  (DWORD /* flags */, ObjectID /* object */)) \
    X(77, RootReferences2,           (ULONG /* count */, ObjectID* /* roots */, COR_PRF_GC_ROOT_KIND* /* kinds */, COR_PRF_GC_ROOT_FLAGS* /* flags */, UINT_PTR* /* ids */)) \
    X(78, HandleCreated,             (GCHandleID /* handle */, ObjectID /* object */)) \
    X(79, HandleDestroyed,           (GCHandleID /* handle */))

#define CLR_PROFILER_CALLBACK3_METHODS(X) \
    X(80, InitializeForAttach,     (IUnknown* /* info */, void* /* client_data */, UINT /* client_data_size */)) \
    X(81, ProfilerAttachComplete,  ()) \
    X(82, ProfilerDetachSucceeded, ())

// clang-format on
