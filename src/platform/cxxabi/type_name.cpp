// The compiler's C++ ABI (the Itanium ABI of GCC and Clang, MinGW-w64 included) names types, so
// this one implementation serves every system the library builds on.
#include "platform/type_name.h"

#include <cxxabi.h>

#include <cstdlib>
#include <cstring>

namespace kiv::platform {

const char* ReadableTypeName(const std::type_info& type, char* buffer, std::size_t size) noexcept {
  if (buffer == nullptr || size == 0) return nullptr;
  int status = 0;
  char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  const char* name = (status == 0 && demangled != nullptr) ? demangled : type.name();
  std::size_t n = std::strlen(name);
  // The Itanium demangler writes "kiv::RefCount*"; the class-name routine ends a name at a blank,
  // as the original compiler's "kiv::RefCount *" has one.
  bool pointer = n > 0 && name[n - 1] == '*' && (n < 2 || name[n - 2] != ' ');
  std::size_t body = pointer ? n - 1 : n;
  std::size_t out = body < size - 1 ? body : size - 1;
  std::memcpy(buffer, name, out);
  if (pointer && out + 2 < size) {
    buffer[out++] = ' ';
    buffer[out++] = '*';
  }
  buffer[out] = '\0';
  std::free(demangled);
  return buffer;
}

}  // namespace kiv::platform
