// The type library in this server's resources. Registering and unregistering throw std::bad_alloc.
#pragma once

#include <windows.h>

#include <oaidl.h>

namespace corvane {

// A failure leaves what was there before.
HRESULT register_type_library();

// Removing what is not registered is a success, and nothing else that fails is.
HRESULT unregister_type_library();

// Describes the coclass `clsid`, for IProvideClassInfo. E_POINTER for a null `info`.
HRESULT get_class_info(REFCLSID clsid, ITypeInfo** info) noexcept;

} // namespace corvane
