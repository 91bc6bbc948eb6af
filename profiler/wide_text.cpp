#include "profiler/wide_text.h"

#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <boost/algorithm/string/predicate.hpp>
#include <boost/locale/encoding_utf.hpp>
#endif

namespace corvane {

#ifdef _WIN32

std::wstring widen_utf8(std::string_view utf8) {
    if (utf8.empty()) {
        return {};
    }
    const int size = static_cast<int>(utf8.size());
    const int length =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), size, nullptr, 0);
    if (length <= 0) {
        throw std::runtime_error("malformed UTF-8");
    }
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), size, wide.data(), length);
    return wide;
}

bool equals_ignore_case(std::wstring_view left, std::wstring_view right) {
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

#else

std::wstring widen_utf8(std::string_view utf8) {
    return boost::locale::conv::utf_to_utf<wchar_t>(utf8.data(), utf8.data() + utf8.size(),
                                                    boost::locale::conv::stop);
}

bool equals_ignore_case(std::wstring_view left, std::wstring_view right) {
    return boost::iequals(left, right);
}

#endif

} // namespace corvane
