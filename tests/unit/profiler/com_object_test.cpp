#include "profiler/com_object.h"

#include "profiler/class_factory.h"
#include "profiler/class_ids.h"
#include "profiler/clr_profiler.h"

#include <gtest/gtest.h>

#include <array>

namespace corvane {
namespace {

ComPtr<IClassFactory> factory() {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(get_profiler_class_factory(__uuidof(IClassFactory), factory.put_void()), S_OK);
    return factory;
}

HRESULT query(IUnknown* object, REFIID iid) {
    ComPtr<IUnknown> answer;
    const HRESULT hr = object->QueryInterface(iid, answer.put_void());
    EXPECT_EQ(SUCCEEDED(hr), static_cast<bool>(answer));
    return hr;
}

// Every interface that exists, and some that a newer runtime asks for.
void expect_exactly_its_interfaces(IUnknown* object) {
    for (const IID& iid : std::array{
             __uuidof(IUnknown), __uuidof(ICorProfilerCallback), __uuidof(ICorProfilerCallback2),
             __uuidof(ICorProfilerCallback3), __uuidof(IProvideClassInfo)}) {
        EXPECT_EQ(query(object, iid), S_OK);
    }
    constexpr IID kCallback4 = {
        0x7B63B2E3, 0x107D, 0x4D48, {0xB2, 0xF6, 0xF6, 0x1E, 0x22, 0x94, 0x70, 0xD2}};
    constexpr IID kProvideClassInfo2 = {
        0xA6BC3AC0, 0xDBAA, 0x11CE, {0x9D, 0xE3, 0x00, 0xAA, 0x00, 0x4B, 0xB8, 0x51}};
    for (const IID& iid : std::array{kCallback4, kProvideClassInfo2, __uuidof(ICorProfilerInfo),
                                     __uuidof(IClassFactory), __uuidof(IDispatch)}) {
        EXPECT_EQ(query(object, iid), E_NOINTERFACE);
    }
    EXPECT_EQ(object->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST(ClassFactory, IsOnePerProcess) {
    EXPECT_EQ(factory().get(), factory().get());
    EXPECT_EQ(query(factory().get(), __uuidof(IUnknown)), S_OK);
    EXPECT_EQ(query(factory().get(), __uuidof(ICorProfilerCallback)), E_NOINTERFACE);
    EXPECT_EQ(factory()->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST(ClassFactory, CreatesAnObjectOfItsOwnEachTime) {
    ComPtr<IUnknown> first;
    ComPtr<IUnknown> second;
    EXPECT_EQ(factory()->CreateInstance(nullptr, __uuidof(IUnknown), first.put_void()), S_OK);
    EXPECT_EQ(factory()->CreateInstance(nullptr, __uuidof(IUnknown), second.put_void()), S_OK);
    EXPECT_NE(first.get(), second.get());
}

TEST(ClassFactory, RefusesAnInterfaceThatIsNotThere) {
    void* object = &object;
    EXPECT_EQ(factory()->CreateInstance(nullptr, __uuidof(IDispatch), &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory()->CreateInstance(nullptr, __uuidof(IUnknown), nullptr), E_POINTER);
}

TEST(PlainObject, AnswersExactlyItsInterfaces) {
    ComPtr<ICorProfilerCallback2> object;
    ASSERT_EQ(
        factory()->CreateInstance(nullptr, __uuidof(ICorProfilerCallback2), object.put_void()),
        S_OK);
    expect_exactly_its_interfaces(object.get());
}

TEST(PlainObject, IsOneIdentity) {
    ComPtr<ICorProfilerCallback3> callback;
    ASSERT_EQ(
        factory()->CreateInstance(nullptr, __uuidof(ICorProfilerCallback3), callback.put_void()),
        S_OK);
    ComPtr<IProvideClassInfo> class_info;
    ASSERT_EQ(callback.query(class_info), S_OK);
    ComPtr<IUnknown> of_callback;
    ComPtr<IUnknown> of_class_info;
    EXPECT_EQ(callback.query(of_callback), S_OK);
    EXPECT_EQ(class_info.query(of_class_info), S_OK);
    EXPECT_EQ(of_callback.get(), of_class_info.get());
    ComPtr<ICorProfilerCallback> back;
    EXPECT_EQ(class_info.query(back), S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(back.get()), static_cast<IUnknown*>(callback.get()));
}

TEST(PlainObject, CountsItsReferences) {
    ComPtr<IUnknown> object;
    ASSERT_EQ(factory()->CreateInstance(nullptr, __uuidof(IUnknown), object.put_void()), S_OK);
    EXPECT_EQ(object->AddRef(), 2U);
    EXPECT_EQ(object->AddRef(), 3U);
    EXPECT_EQ(object->Release(), 2U);
    EXPECT_EQ(object->Release(), 1U);
}

TEST(PlainObject, DescribesItsClass) {
    ComPtr<IProvideClassInfo> object;
    ASSERT_EQ(factory()->CreateInstance(nullptr, __uuidof(IProvideClassInfo), object.put_void()),
              S_OK);
    EXPECT_EQ(object->GetClassInfo(nullptr), E_POINTER);
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(object->GetClassInfo(info.put()), S_OK);
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(info->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(attributes->guid, kProfilerClassId);
    EXPECT_EQ(attributes->typekind, TKIND_COCLASS);
    info->ReleaseTypeAttr(attributes);

    ComPtr<ITypeLib> library;
    UINT index = 0;
    ASSERT_EQ(info->GetContainingTypeLib(library.put(), &index), S_OK);
    TLIBATTR* library_attributes = nullptr;
    ASSERT_EQ(library->GetLibAttr(&library_attributes), S_OK);
    EXPECT_EQ(library_attributes->guid, kTypeLibraryId);
    EXPECT_EQ(library_attributes->syskind, SYS_WIN64);
    library->ReleaseTLibAttr(library_attributes);
}

// An object that holds the profiler inside itself and counts for both.
class Outer final : public IUnknown {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (object != nullptr && iid == __uuidof(IUnknown)) {
            *object = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return inner->QueryInterface(iid, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }

    ULONG references = 1;
    ComPtr<IUnknown> inner;
};

TEST(AggregatedObject, IsGivenOutAsUnknownOnly) {
    Outer outer;
    void* object = &object;
    EXPECT_EQ(factory()->CreateInstance(&outer, __uuidof(ICorProfilerCallback), &object),
              CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(outer.references, 1U);
}

TEST(AggregatedObject, AnswersExactlyItsInterfacesThroughBothUnknowns) {
    Outer outer;
    ASSERT_EQ(factory()->CreateInstance(&outer, __uuidof(IUnknown), outer.inner.put_void()), S_OK);
    expect_exactly_its_interfaces(outer.inner.get());
    expect_exactly_its_interfaces(&outer);
    EXPECT_EQ(outer.references, 1U);
}

TEST(AggregatedObject, HasTheOuterObjectsIdentityAndCount) {
    Outer outer;
    ASSERT_EQ(factory()->CreateInstance(&outer, __uuidof(IUnknown), outer.inner.put_void()), S_OK);
    {
        ComPtr<ICorProfilerCallback3> callback;
        ASSERT_EQ(outer.inner.query(callback), S_OK);
        EXPECT_EQ(outer.references, 2U);
        ComPtr<IUnknown> identity;
        EXPECT_EQ(callback.query(identity), S_OK);
        EXPECT_EQ(identity.get(), &outer);
        ComPtr<IProvideClassInfo> class_info;
        EXPECT_EQ(callback.query(class_info), S_OK);
        EXPECT_EQ(outer.references, 4U);
    }
    EXPECT_EQ(outer.references, 1U);

    ComPtr<IUnknown> inner;
    EXPECT_EQ(outer.inner.query(inner), S_OK);
    EXPECT_EQ(inner.get(), outer.inner.get()); // its own identity is the inner one
    EXPECT_EQ(outer.references, 1U);
}

TEST(ServerModule, IsHeldByObjectsFactoriesAndLocks) {
    CCorvaneProfiler& module = server_module();
    ASSERT_EQ(module.can_unload_now(), S_OK);
    {
        const ComPtr<IClassFactory> held = factory();
        EXPECT_EQ(module.can_unload_now(), S_FALSE);
    }
    EXPECT_EQ(module.can_unload_now(), S_OK);

    EXPECT_EQ(factory()->LockServer(TRUE), S_OK);
    EXPECT_EQ(module.can_unload_now(), S_FALSE);
    EXPECT_EQ(factory()->LockServer(FALSE), S_OK);
    EXPECT_EQ(module.can_unload_now(), S_OK);
    {
        ComPtr<IUnknown> object;
        EXPECT_EQ(factory()->CreateInstance(nullptr, __uuidof(IUnknown), object.put_void()), S_OK);
        EXPECT_EQ(module.can_unload_now(), S_FALSE);
    }
    EXPECT_EQ(module.can_unload_now(), S_OK);
    {
        Outer outer;
        EXPECT_EQ(factory()->CreateInstance(&outer, __uuidof(IUnknown), outer.inner.put_void()),
                  S_OK);
        EXPECT_EQ(module.can_unload_now(), S_FALSE);
    }
    EXPECT_EQ(module.can_unload_now(), S_OK);
}

TEST(ServerModule, HandsOutTheFactoryOfItsClassOnly) {
    CCorvaneProfiler module;
    void* object = &object;
    EXPECT_EQ(module.get_class_object(kProfilerClassId, __uuidof(IClassFactory), &object),
              E_UNEXPECTED);
    EXPECT_EQ(object, nullptr);
    module.initialise();
    EXPECT_EQ(module.get_class_object(kProfilerClassId, __uuidof(IClassFactory), nullptr),
              E_POINTER);
    EXPECT_EQ(module.get_class_object(kAppId, __uuidof(IClassFactory), &object),
              CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
    ComPtr<IClassFactory> got;
    EXPECT_EQ(module.get_class_object(kProfilerClassId, __uuidof(IClassFactory), got.put_void()),
              S_OK);
    EXPECT_EQ(got.get(), factory().get());
}

} // namespace
} // namespace corvane
