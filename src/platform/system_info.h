// The operating system's version and the process's file-creation mask.
#ifndef KIV_PLATFORM_SYSTEM_INFO_H_
#define KIV_PLATFORM_SYSTEM_INFO_H_

#include <cstdint>
#include <string>

namespace kiv::platform {

// The system's own version text, starting "major.minor": the kernel release on POSIX systems
// ("6.1.0-18-amd64"), "major.minor.build" on Windows ("10.0.19045"); empty when the system is of a
// family whose numbers are no version. False when the system does not tell.
bool SystemVersionText(std::string& text);

// Whether the system has a file-creation mask at all (Windows has none: new files take the access
// of their directory).
bool HasFileCreationMask() noexcept;
// Sets the mask and returns the one it replaces.
std::uint32_t SetFileCreationMask(std::uint32_t mask) noexcept;

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_SYSTEM_INFO_H_
