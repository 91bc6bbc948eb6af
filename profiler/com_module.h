// The server module: the counts that keep the library loaded, and its registration.
// One per process, a global that lives from library load to unload. Counts change on any thread.
#pragma once

#include <windows.h>

#include <atomic>

namespace corvane {

class CCorvaneProfiler {
public:
    // Called on library load; before that no class object is handed out.
    void initialise() noexcept { initialised_ = true; }

    void lock() noexcept { ++locks_; }
    void unlock() noexcept { --locks_; }
    void object_created() noexcept { ++objects_; }
    void object_destroyed() noexcept { --objects_; }

    HRESULT get_class_object(REFCLSID clsid, REFIID iid, void** object) noexcept;
    HRESULT can_unload_now() const noexcept {
        return locks_ == 0 && objects_ == 0 ? S_OK : S_FALSE;
    }

    // Write and remove the registry entries of the scripts and of the type library. A failed
    // registration takes back the keys that it made, no others, and returns the HRESULT of the call
    // that failed.
    HRESULT register_server() noexcept;
    HRESULT unregister_server() noexcept;

private:
    std::atomic<bool> initialised_ = false;
    std::atomic<long> locks_ = 0;   // class factory references and LockServer
    std::atomic<long> objects_ = 0; // living objects of this server
};

CCorvaneProfiler& server_module() noexcept;

} // namespace corvane
