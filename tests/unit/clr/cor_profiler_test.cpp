// Compares where the compiler put each method with the slot that the runtime calls it through.
#include "clr/cor_profiler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace {

// The vtable index of a virtual method. In the Itanium C++ ABI a pointer to one holds the byte
// offset into the vtable plus one.
template <class Method>
int slot_of(Method method) {
    std::intptr_t word = 0;
    static_assert(sizeof(method) >= sizeof(word));
    std::memcpy(&word, &method, sizeof(word));
    return static_cast<int>((word - 1) / static_cast<std::intptr_t>(sizeof(void*)));
}

#define EXPECT_SLOT(type, slot, name) EXPECT_EQ(slot_of(&type::name), slot) << #type "::" #name

TEST(ProfilerInterfaces, ICorProfilerCallback) {
    EXPECT_EQ(__uuidof(ICorProfilerCallback),
              (GUID{0x176FBED1, 0xA55C, 0x4796, {0x98, 0xCA, 0xA9, 0xDA, 0x0E, 0xF8, 0x83, 0xE7}}));
    EXPECT_SLOT(ICorProfilerCallback, 3, Initialize);
    EXPECT_SLOT(ICorProfilerCallback, 4, Shutdown);
    EXPECT_SLOT(ICorProfilerCallback, 5, AppDomainCreationStarted);
    EXPECT_SLOT(ICorProfilerCallback, 6, AppDomainCreationFinished);
    EXPECT_SLOT(ICorProfilerCallback, 7, AppDomainShutdownStarted);
    EXPECT_SLOT(ICorProfilerCallback, 8, AppDomainShutdownFinished);
    EXPECT_SLOT(ICorProfilerCallback, 9, AssemblyLoadStarted);
    EXPECT_SLOT(ICorProfilerCallback, 10, AssemblyLoadFinished);
    EXPECT_SLOT(ICorProfilerCallback, 11, AssemblyUnloadStarted);
    EXPECT_SLOT(ICorProfilerCallback, 12, AssemblyUnloadFinished);
    EXPECT_SLOT(ICorProfilerCallback, 13, ModuleLoadStarted);
    EXPECT_SLOT(ICorProfilerCallback, 14, ModuleLoadFinished);
    EXPECT_SLOT(ICorProfilerCallback, 15, ModuleUnloadStarted);
    EXPECT_SLOT(ICorProfilerCallback, 16, ModuleUnloadFinished);
    EXPECT_SLOT(ICorProfilerCallback, 17, ModuleAttachedToAssembly);
    EXPECT_SLOT(ICorProfilerCallback, 18, ClassLoadStarted);
    EXPECT_SLOT(ICorProfilerCallback, 19, ClassLoadFinished);
    EXPECT_SLOT(ICorProfilerCallback, 20, ClassUnloadStarted);
    EXPECT_SLOT(ICorProfilerCallback, 21, ClassUnloadFinished);
    EXPECT_SLOT(ICorProfilerCallback, 22, FunctionUnloadStarted);
    EXPECT_SLOT(ICorProfilerCallback, 23, JITCompilationStarted);
    EXPECT_SLOT(ICorProfilerCallback, 24, JITCompilationFinished);
    EXPECT_SLOT(ICorProfilerCallback, 25, JITCachedFunctionSearchStarted);
    EXPECT_SLOT(ICorProfilerCallback, 26, JITCachedFunctionSearchFinished);
    EXPECT_SLOT(ICorProfilerCallback, 27, JITFunctionPitched);
    EXPECT_SLOT(ICorProfilerCallback, 28, JITInlining);
    EXPECT_SLOT(ICorProfilerCallback, 29, ThreadCreated);
    EXPECT_SLOT(ICorProfilerCallback, 30, ThreadDestroyed);
    EXPECT_SLOT(ICorProfilerCallback, 31, ThreadAssignedToOSThread);
    EXPECT_SLOT(ICorProfilerCallback, 32, RemotingClientInvocationStarted);
    EXPECT_SLOT(ICorProfilerCallback, 33, RemotingClientSendingMessage);
    EXPECT_SLOT(ICorProfilerCallback, 34, RemotingClientReceivingReply);
    EXPECT_SLOT(ICorProfilerCallback, 35, RemotingClientInvocationFinished);
    EXPECT_SLOT(ICorProfilerCallback, 36, RemotingServerReceivingMessage);
    EXPECT_SLOT(ICorProfilerCallback, 37, RemotingServerInvocationStarted);
    EXPECT_SLOT(ICorProfilerCallback, 38, RemotingServerInvocationReturned);
    EXPECT_SLOT(ICorProfilerCallback, 39, RemotingServerSendingReply);
    EXPECT_SLOT(ICorProfilerCallback, 40, UnmanagedToManagedTransition);
    EXPECT_SLOT(ICorProfilerCallback, 41, ManagedToUnmanagedTransition);
    EXPECT_SLOT(ICorProfilerCallback, 42, RuntimeSuspendStarted);
    EXPECT_SLOT(ICorProfilerCallback, 43, RuntimeSuspendFinished);
    EXPECT_SLOT(ICorProfilerCallback, 44, RuntimeSuspendAborted);
    EXPECT_SLOT(ICorProfilerCallback, 45, RuntimeResumeStarted);
    EXPECT_SLOT(ICorProfilerCallback, 46, RuntimeResumeFinished);
    EXPECT_SLOT(ICorProfilerCallback, 47, RuntimeThreadSuspended);
    EXPECT_SLOT(ICorProfilerCallback, 48, RuntimeThreadResumed);
    EXPECT_SLOT(ICorProfilerCallback, 49, MovedReferences);
    EXPECT_SLOT(ICorProfilerCallback, 50, ObjectAllocated);
    EXPECT_SLOT(ICorProfilerCallback, 51, ObjectsAllocatedByClass);
    EXPECT_SLOT(ICorProfilerCallback, 52, ObjectReferences);
    EXPECT_SLOT(ICorProfilerCallback, 53, RootReferences);
    EXPECT_SLOT(ICorProfilerCallback, 54, ExceptionThrown);
    EXPECT_SLOT(ICorProfilerCallback, 55, ExceptionSearchFunctionEnter);
    EXPECT_SLOT(ICorProfilerCallback, 56, ExceptionSearchFunctionLeave);
    EXPECT_SLOT(ICorProfilerCallback, 57, ExceptionSearchFilterEnter);
    EXPECT_SLOT(ICorProfilerCallback, 58, ExceptionSearchFilterLeave);
    EXPECT_SLOT(ICorProfilerCallback, 59, ExceptionSearchCatcherFound);
    EXPECT_SLOT(ICorProfilerCallback, 60, ExceptionOSHandlerEnter);
    EXPECT_SLOT(ICorProfilerCallback, 61, ExceptionOSHandlerLeave);
    EXPECT_SLOT(ICorProfilerCallback, 62, ExceptionUnwindFunctionEnter);
    EXPECT_SLOT(ICorProfilerCallback, 63, ExceptionUnwindFunctionLeave);
    EXPECT_SLOT(ICorProfilerCallback, 64, ExceptionUnwindFinallyEnter);
    EXPECT_SLOT(ICorProfilerCallback, 65, ExceptionUnwindFinallyLeave);
    EXPECT_SLOT(ICorProfilerCallback, 66, ExceptionCatcherEnter);
    EXPECT_SLOT(ICorProfilerCallback, 67, ExceptionCatcherLeave);
    EXPECT_SLOT(ICorProfilerCallback, 68, COMClassicVTableCreated);
    EXPECT_SLOT(ICorProfilerCallback, 69, COMClassicVTableDestroyed);
    EXPECT_SLOT(ICorProfilerCallback, 70, ExceptionCLRCatcherFound);
    EXPECT_SLOT(ICorProfilerCallback, 71, ExceptionCLRCatcherExecute);
}

TEST(ProfilerInterfaces, ICorProfilerCallback2) {
    EXPECT_EQ(__uuidof(ICorProfilerCallback2),
              (GUID{0x8A8CC829, 0xCCF2, 0x49FE, {0xBB, 0xAE, 0x0F, 0x02, 0x22, 0x28, 0x07, 0x1A}}));
    EXPECT_SLOT(ICorProfilerCallback2, 72, ThreadNameChanged);
    EXPECT_SLOT(ICorProfilerCallback2, 73, GarbageCollectionStarted);
    EXPECT_SLOT(ICorProfilerCallback2, 74, SurvivingReferences);
    EXPECT_SLOT(ICorProfilerCallback2, 75, GarbageCollectionFinished);
    EXPECT_SLOT(ICorProfilerCallback2, 76, FinalizeableObjectQueued);
    EXPECT_SLOT(ICorProfilerCallback2, 77, RootReferences2);
    EXPECT_SLOT(ICorProfilerCallback2, 78, HandleCreated);
    EXPECT_SLOT(ICorProfilerCallback2, 79, HandleDestroyed);
}

TEST(ProfilerInterfaces, ICorProfilerCallback3) {
    EXPECT_EQ(__uuidof(ICorProfilerCallback3),
              (GUID{0x4FD2ED52, 0x7731, 0x4B8D, {0x94, 0x69, 0x03, 0xD2, 0xCC, 0x30, 0x86, 0xC5}}));
    EXPECT_SLOT(ICorProfilerCallback3, 80, InitializeForAttach);
    EXPECT_SLOT(ICorProfilerCallback3, 81, ProfilerAttachComplete);
    EXPECT_SLOT(ICorProfilerCallback3, 82, ProfilerDetachSucceeded);
}

TEST(ProfilerInterfaces, ICorProfilerInfo) {
    EXPECT_EQ(__uuidof(ICorProfilerInfo),
              (GUID{0x28B5557D, 0x3F3F, 0x48B4, {0x90, 0xB2, 0x5F, 0x9E, 0xEA, 0x2F, 0x6C, 0x48}}));
    EXPECT_SLOT(ICorProfilerInfo, 3, GetClassFromObject);
    EXPECT_SLOT(ICorProfilerInfo, 4, GetClassFromToken);
    EXPECT_SLOT(ICorProfilerInfo, 5, GetCodeInfo);
    EXPECT_SLOT(ICorProfilerInfo, 6, GetEventMask);
    EXPECT_SLOT(ICorProfilerInfo, 7, GetFunctionFromIP);
    EXPECT_SLOT(ICorProfilerInfo, 8, GetFunctionFromToken);
    EXPECT_SLOT(ICorProfilerInfo, 9, GetHandleFromThread);
    EXPECT_SLOT(ICorProfilerInfo, 10, GetObjectSize);
    EXPECT_SLOT(ICorProfilerInfo, 11, IsArrayClass);
    EXPECT_SLOT(ICorProfilerInfo, 12, GetThreadInfo);
    EXPECT_SLOT(ICorProfilerInfo, 13, GetCurrentThreadID);
    EXPECT_SLOT(ICorProfilerInfo, 14, GetClassIDInfo);
    EXPECT_SLOT(ICorProfilerInfo, 15, GetFunctionInfo);
    EXPECT_SLOT(ICorProfilerInfo, 16, SetEventMask);
    EXPECT_SLOT(ICorProfilerInfo, 17, SetEnterLeaveFunctionHooks);
    EXPECT_SLOT(ICorProfilerInfo, 18, SetFunctionIDMapper);
    EXPECT_SLOT(ICorProfilerInfo, 19, GetTokenAndMetaDataFromFunction);
    EXPECT_SLOT(ICorProfilerInfo, 20, GetModuleInfo);
    EXPECT_SLOT(ICorProfilerInfo, 21, GetModuleMetaData);
    EXPECT_SLOT(ICorProfilerInfo, 22, GetILFunctionBody);
    EXPECT_SLOT(ICorProfilerInfo, 23, GetILFunctionBodyAllocator);
    EXPECT_SLOT(ICorProfilerInfo, 24, SetILFunctionBody);
    EXPECT_SLOT(ICorProfilerInfo, 25, GetAppDomainInfo);
    EXPECT_SLOT(ICorProfilerInfo, 26, GetAssemblyInfo);
    EXPECT_SLOT(ICorProfilerInfo, 27, SetFunctionReJIT);
    EXPECT_SLOT(ICorProfilerInfo, 28, ForceGC);
    EXPECT_SLOT(ICorProfilerInfo, 29, SetILInstrumentedCodeMap);
    EXPECT_SLOT(ICorProfilerInfo, 30, GetInprocInspectionInterface);
    EXPECT_SLOT(ICorProfilerInfo, 31, GetInprocInspectionIThisThread);
    EXPECT_SLOT(ICorProfilerInfo, 32, GetThreadContext);
    EXPECT_SLOT(ICorProfilerInfo, 33, BeginInprocDebugging);
    EXPECT_SLOT(ICorProfilerInfo, 34, EndInprocDebugging);
    EXPECT_SLOT(ICorProfilerInfo, 35, GetILToNativeMapping);
}

TEST(ProfilerInterfaces, ICorProfilerInfo2) {
    EXPECT_EQ(__uuidof(ICorProfilerInfo2),
              (GUID{0xCC0935CD, 0xA518, 0x487D, {0xB0, 0xBB, 0xA9, 0x32, 0x14, 0xE6, 0x54, 0x78}}));
    EXPECT_SLOT(ICorProfilerInfo2, 36, DoStackSnapshot);
    EXPECT_SLOT(ICorProfilerInfo2, 37, SetEnterLeaveFunctionHooks2);
    EXPECT_SLOT(ICorProfilerInfo2, 38, GetFunctionInfo2);
    EXPECT_SLOT(ICorProfilerInfo2, 39, GetStringLayout);
    EXPECT_SLOT(ICorProfilerInfo2, 40, GetClassLayout);
    EXPECT_SLOT(ICorProfilerInfo2, 41, GetClassIDInfo2);
    EXPECT_SLOT(ICorProfilerInfo2, 42, GetCodeInfo2);
    EXPECT_SLOT(ICorProfilerInfo2, 43, GetClassFromTokenAndTypeArgs);
    EXPECT_SLOT(ICorProfilerInfo2, 44, GetFunctionFromTokenAndTypeArgs);
    EXPECT_SLOT(ICorProfilerInfo2, 45, EnumModuleFrozenObjects);
    EXPECT_SLOT(ICorProfilerInfo2, 46, GetArrayObjectInfo);
    EXPECT_SLOT(ICorProfilerInfo2, 47, GetBoxClassLayout);
    EXPECT_SLOT(ICorProfilerInfo2, 48, GetThreadAppDomain);
    EXPECT_SLOT(ICorProfilerInfo2, 49, GetRVAStaticAddress);
    EXPECT_SLOT(ICorProfilerInfo2, 50, GetAppDomainStaticAddress);
    EXPECT_SLOT(ICorProfilerInfo2, 51, GetThreadStaticAddress);
    EXPECT_SLOT(ICorProfilerInfo2, 52, GetContextStaticAddress);
    EXPECT_SLOT(ICorProfilerInfo2, 53, GetStaticFieldInfo);
    EXPECT_SLOT(ICorProfilerInfo2, 54, GetGenerationBounds);
    EXPECT_SLOT(ICorProfilerInfo2, 55, GetObjectGeneration);
    EXPECT_SLOT(ICorProfilerInfo2, 56, GetNotifiedExceptionClauseInfo);
}

TEST(ProfilerInterfaces, ICorProfilerInfo3) {
    EXPECT_EQ(__uuidof(ICorProfilerInfo3),
              (GUID{0xB555ED4F, 0x452A, 0x4E54, {0x8B, 0x39, 0xB5, 0x36, 0x0B, 0xAD, 0x32, 0xA0}}));
    EXPECT_SLOT(ICorProfilerInfo3, 57, EnumJITedFunctions);
    EXPECT_SLOT(ICorProfilerInfo3, 58, RequestProfilerDetach);
    EXPECT_SLOT(ICorProfilerInfo3, 59, SetFunctionIDMapper2);
    EXPECT_SLOT(ICorProfilerInfo3, 60, GetStringLayout2);
    EXPECT_SLOT(ICorProfilerInfo3, 61, SetEnterLeaveFunctionHooks3);
    EXPECT_SLOT(ICorProfilerInfo3, 62, SetEnterLeaveFunctionHooks3WithInfo);
    EXPECT_SLOT(ICorProfilerInfo3, 63, GetFunctionEnter3Info);
    EXPECT_SLOT(ICorProfilerInfo3, 64, GetFunctionLeave3Info);
    EXPECT_SLOT(ICorProfilerInfo3, 65, GetFunctionTailcall3Info);
    EXPECT_SLOT(ICorProfilerInfo3, 66, EnumModules);
    EXPECT_SLOT(ICorProfilerInfo3, 67, GetRuntimeInformation);
    EXPECT_SLOT(ICorProfilerInfo3, 68, GetThreadStaticAddress2);
    EXPECT_SLOT(ICorProfilerInfo3, 69, GetAppDomainsContainingModule);
    EXPECT_SLOT(ICorProfilerInfo3, 70, GetModuleInfo2);
}

TEST(ProfilerInterfaces, ICorProfilerFunctionControl) {
    EXPECT_EQ(__uuidof(ICorProfilerFunctionControl),
              (GUID{0xF0963021, 0xE1EA, 0x4732, {0x85, 0x81, 0xE0, 0x1B, 0x0B, 0xD3, 0xC0, 0xC6}}));
    EXPECT_SLOT(ICorProfilerFunctionControl, 3, SetCodegenFlags);
    EXPECT_SLOT(ICorProfilerFunctionControl, 4, SetILFunctionBody);
    EXPECT_SLOT(ICorProfilerFunctionControl, 5, SetILInstrumentedCodeMap);
}

TEST(ProfilerInterfaces, IMethodMalloc) {
    EXPECT_EQ(__uuidof(IMethodMalloc),
              (GUID{0xA0EFB28B, 0x6EE2, 0x4D7B, {0xB9, 0x83, 0xA7, 0x5E, 0xF7, 0xBE, 0xED, 0xB8}}));
    EXPECT_SLOT(IMethodMalloc, 3, Alloc);
}

TEST(ProfilerTypes, HaveTheRuntimesLayout) {
    EXPECT_EQ(sizeof(FunctionID), 8U);
    EXPECT_EQ(sizeof(FunctionIDOrClientID), 8U);
    EXPECT_EQ(sizeof(COR_PRF_MONITOR), 4U);
    EXPECT_EQ(sizeof(COR_IL_MAP), 12U);
    EXPECT_EQ(sizeof(COR_DEBUG_IL_TO_NATIVE_MAP), 12U);
    EXPECT_EQ(sizeof(COR_PRF_CODE_INFO), 16U);
    EXPECT_EQ(sizeof(COR_PRF_FUNCTION_ARGUMENT_RANGE), 16U);
    EXPECT_EQ(sizeof(COR_PRF_FUNCTION_ARGUMENT_INFO), 24U);
    EXPECT_EQ(sizeof(COR_PRF_GC_GENERATION_RANGE), 32U);
    EXPECT_EQ(sizeof(COR_PRF_EX_CLAUSE_INFO), 32U);
}

} // namespace
