// The library's version: the macros give the version a program was compiled against, and
// GetVersion the version of the library it runs with. While the major version is 0, each minor
// version may change the binary interface (the shared library's soname is "libkiv_common.so.0.N");
// patch versions never do.
#ifndef KIV_VERSION_H_
#define KIV_VERSION_H_

#include <kiv/export.h>

#define KIV_VERSION_MAJOR 0
#define KIV_VERSION_MINOR 1
#define KIV_VERSION_PATCH 0
#define KIV_VERSION_STRING "0.1.0"

namespace kiv {

struct Version {
  int major;
  int minor;
  int patch;
};

// The version of the library loaded at run time.
[[nodiscard]] KIV_EXPORT Version GetVersion() noexcept;
// The same as text, "major.minor.patch".
[[nodiscard]] KIV_EXPORT const char* GetVersionString() noexcept;

}  // namespace kiv

#endif  // KIV_VERSION_H_
