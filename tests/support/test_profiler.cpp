#include "tests/support/test_profiler.h"

STDAPI DllGetClassObject(REFCLSID, REFIID iid, LPVOID* object) {
    return corvane::testing::test_profiler_factory().QueryInterface(iid, object);
}

STDAPI DllCanUnloadNow() {
    return S_FALSE;
}
