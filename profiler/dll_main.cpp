// The library's entry points.
#include "base/log_output.h"
#include "profiler/com_module.h"

#include <windows.h>

using corvane::server_module;

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID process_ends) {
    if (reason == DLL_PROCESS_ATTACH) {
        server_module().initialise();
    } else if (reason == DLL_PROCESS_DETACH) {
        corvane::end_log_file(process_ends != nullptr);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* object) {
    return server_module().get_class_object(clsid, iid, object);
}

STDAPI DllCanUnloadNow() {
    return server_module().can_unload_now();
}

STDAPI DllRegisterServer() {
    return server_module().register_server();
}

STDAPI DllUnregisterServer() {
    return server_module().unregister_server();
}
