#include <cstdarg>
#include <cstdio>

#include "kiv/exception.h"
#include "platform/type_name.h"

namespace kiv {

int TracePrint(const char* format, ...) {
  va_list args;
  va_start(args, format);
  int result = std::vfprintf(stderr, format, args);
  va_end(args);
  return result;
}

int TracePrintObj(const char* format, const char* text, const RefCount* object) {
  char name[platform::kTypeNameRoom] = "NULL";
  if (object != nullptr) object->GetClassName(name, sizeof name);
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
#endif
  return TracePrint(format, text, name, static_cast<const void*>(object));
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
}

int TracePrintObj(const char* format, const char* text, const RefCount& object) {
  return TracePrintObj(format, text, &object);
}

void TraceFlush() {}

}  // namespace kiv
