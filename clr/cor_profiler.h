// The CLR's profiling interfaces, declared from the lists of their methods.
// A vtable's order is the order of its list; a list that skips or repeats a slot does not compile.
#pragma once

#include "clr/profiler_callback_methods.h"
#include "clr/profiler_info_methods.h"
#include "clr/profiler_types.h"

struct ICorProfilerObjectEnum;
struct ICorProfilerFunctionEnum;

// Handed out by the runtime; never asked for by id.
template <class Own>
struct ICorProfilerEnum : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(Own** copy) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCount(ULONG* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, UINT_PTR* ids, ULONG* fetched) = 0;
};
struct ICorProfilerModuleEnum : public ICorProfilerEnum<ICorProfilerModuleEnum> {};
struct ICorProfilerThreadEnum : public ICorProfilerEnum<ICorProfilerThreadEnum> {};

// Allocates memory for new method bodies; the address fits the module it was asked for.
MIDL_INTERFACE("A0EFB28B-6EE2-4D7B-B983-A75EF7BEEDB8")
IMethodMalloc : public IUnknown {
    virtual PVOID STDMETHODCALLTYPE Alloc(ULONG size) = 0;
};

// clang-format off
#define CLR_DECLARE_METHOD(slot, name, parameters) \
    virtual HRESULT STDMETHODCALLTYPE name parameters = 0;

MIDL_INTERFACE("176FBED1-A55C-4796-98CA-A9DA0EF883E7")
ICorProfilerCallback : public IUnknown {
    CLR_PROFILER_CALLBACK_METHODS(CLR_DECLARE_METHOD)
};

MIDL_INTERFACE("8A8CC829-CCF2-49FE-BBAE-0F022228071A")
ICorProfilerCallback2 : public ICorProfilerCallback {
    CLR_PROFILER_CALLBACK2_METHODS(CLR_DECLARE_METHOD)
};

MIDL_INTERFACE("4FD2ED52-7731-4B8D-9469-03D2CC3086C5")
ICorProfilerCallback3 : public ICorProfilerCallback2 {
    CLR_PROFILER_CALLBACK3_METHODS(CLR_DECLARE_METHOD)
};

MIDL_INTERFACE("28B5557D-3F3F-48B4-90B2-5F9EEA2F6C48")
ICorProfilerInfo : public IUnknown {
    CLR_PROFILER_INFO_METHODS(CLR_DECLARE_METHOD)
};

MIDL_INTERFACE("CC0935CD-A518-487D-B0BB-A93214E65478")
ICorProfilerInfo2 : public ICorProfilerInfo {
    CLR_PROFILER_INFO2_METHODS(CLR_DECLARE_METHOD)
};

MIDL_INTERFACE("B555ED4F-452A-4E54-8B39-B5360BAD32A0")
ICorProfilerInfo3 : public ICorProfilerInfo2 {
    CLR_PROFILER_INFO3_METHODS(CLR_DECLARE_METHOD)
};

// The first of its methods; the others are not called.
MIDL_INTERFACE("0D8FDCAA-6257-47BF-B1BF-94DAC88466EE")
ICorProfilerInfo4 : public ICorProfilerInfo3 {
    virtual HRESULT STDMETHODCALLTYPE EnumThreads(ICorProfilerThreadEnum** threads) = 0;
};

MIDL_INTERFACE("F0963021-E1EA-4732-8581-E01B0BD3C0C6")
ICorProfilerFunctionControl : public IUnknown {
    CLR_PROFILER_FUNCTION_CONTROL_METHODS(CLR_DECLARE_METHOD)
};

#undef CLR_DECLARE_METHOD

// Where the compiler has no uuid attribute, __uuidof needs the ids once more.
#ifdef __CRT_UUID_DECL
__CRT_UUID_DECL(IMethodMalloc, 0xA0EFB28B, 0x6EE2, 0x4D7B, 0xB9, 0x83, 0xA7, 0x5E, 0xF7, 0xBE, 0xED, 0xB8)
__CRT_UUID_DECL(ICorProfilerCallback, 0x176FBED1, 0xA55C, 0x4796, 0x98, 0xCA, 0xA9, 0xDA, 0x0E, 0xF8, 0x83, 0xE7)
__CRT_UUID_DECL(ICorProfilerCallback2, 0x8A8CC829, 0xCCF2, 0x49FE, 0xBB, 0xAE, 0x0F, 0x02, 0x22, 0x28, 0x07, 0x1A)
__CRT_UUID_DECL(ICorProfilerCallback3, 0x4FD2ED52, 0x7731, 0x4B8D, 0x94, 0x69, 0x03, 0xD2, 0xCC, 0x30, 0x86, 0xC5)
__CRT_UUID_DECL(ICorProfilerInfo, 0x28B5557D, 0x3F3F, 0x48B4, 0x90, 0xB2, 0x5F, 0x9E, 0xEA, 0x2F, 0x6C, 0x48)
__CRT_UUID_DECL(ICorProfilerInfo2, 0xCC0935CD, 0xA518, 0x487D, 0xB0, 0xBB, 0xA9, 0x32, 0x14, 0xE6, 0x54, 0x78)
__CRT_UUID_DECL(ICorProfilerInfo3, 0xB555ED4F, 0x452A, 0x4E54, 0x8B, 0x39, 0xB5, 0x36, 0x0B, 0xAD, 0x32, 0xA0)
__CRT_UUID_DECL(ICorProfilerInfo4, 0x0D8FDCAA, 0x6257, 0x47BF, 0xB1, 0xBF, 0x94, 0xDA, 0xC8, 0x84, 0x66, 0xEE)
__CRT_UUID_DECL(ICorProfilerFunctionControl, 0xF0963021, 0xE1EA, 0x4732, 0x85, 0x81, 0xE0, 0x1B, 0x0B, 0xD3, 0xC0, 0xC6)
#endif

namespace clr_slots {

// IUnknown takes slots 0 to 2; every list continues where its base ends.
#define CLR_NUMBER_METHOD(slot, name, parameters) k##name,
enum Callback {
    kBeforeCallback = 2,
    CLR_PROFILER_CALLBACK_METHODS(CLR_NUMBER_METHOD)
    CLR_PROFILER_CALLBACK2_METHODS(CLR_NUMBER_METHOD)
    CLR_PROFILER_CALLBACK3_METHODS(CLR_NUMBER_METHOD)
};
enum Info {
    kBeforeInfo = 2,
    CLR_PROFILER_INFO_METHODS(CLR_NUMBER_METHOD)
    CLR_PROFILER_INFO2_METHODS(CLR_NUMBER_METHOD)
    CLR_PROFILER_INFO3_METHODS(CLR_NUMBER_METHOD)
};
#undef CLR_NUMBER_METHOD

#define CLR_CHECK_SLOT(slot, name, parameters) static_assert(k##name == (slot));
CLR_PROFILER_CALLBACK_METHODS(CLR_CHECK_SLOT)
CLR_PROFILER_CALLBACK2_METHODS(CLR_CHECK_SLOT)
CLR_PROFILER_CALLBACK3_METHODS(CLR_CHECK_SLOT)
CLR_PROFILER_INFO_METHODS(CLR_CHECK_SLOT)
CLR_PROFILER_INFO2_METHODS(CLR_CHECK_SLOT)
CLR_PROFILER_INFO3_METHODS(CLR_CHECK_SLOT)
#undef CLR_CHECK_SLOT
// clang-format on

} // namespace clr_slots
