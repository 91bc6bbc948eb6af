// The type library in this server's resources. Registering and unregistering throw std::bad_alloc.
#pragma once

#include <windows.h>

#include <oaidl.h>

namespace corvane {

HRESULT register_type_library();

// Removing what is not registered is a success.
HRESULT unregister_type_library();

// Describes the coclass `clsid`, for IProvideClassInfo. E_POINTER for a null `info`.
HRESULT get_class_info(REFCLSID clsid, ITypeInfo** info) noexcept;

} // namespace corvane
