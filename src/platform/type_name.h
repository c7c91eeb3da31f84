// Readable run-time type names, in the shape the library's class-name routine expects:
// "kiv::RefCount" for a class and "kiv::RefCount *" for a pointer type.
#ifndef KIV_PLATFORM_TYPE_NAME_H_
#define KIV_PLATFORM_TYPE_NAME_H_

#include <cstddef>
#include <typeinfo>

namespace kiv::platform {

// The room of the library's buffers for a type or class name; a longer name is cut to fit.
inline constexpr std::size_t kTypeNameRoom = 1024;

// Writes the readable name of `type` into `buffer` (always terminated when size > 0) and returns
// `buffer`, or null when the name cannot be produced.
const char* ReadableTypeName(const std::type_info& type, char* buffer, std::size_t size) noexcept;

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_TYPE_NAME_H_
