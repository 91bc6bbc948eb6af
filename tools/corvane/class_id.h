// The class id as text; class_ids.h of the profiler has it as the system does.
#pragma once

namespace corvane::tool {

inline constexpr wchar_t kProfilerClass[] = L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";

} // namespace corvane::tool
