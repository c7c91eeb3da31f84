#include <sys/stat.h>
#include <sys/utsname.h>

#include "platform/system_info.h"

namespace kiv::platform {

bool SystemVersionText(std::string& text) {
  struct utsname name;
  if (::uname(&name) != 0) return false;
  text = name.release;
  return true;
}

bool HasFileCreationMask() noexcept { return true; }

std::uint32_t SetFileCreationMask(std::uint32_t mask) noexcept {
  return static_cast<std::uint32_t>(::umask(static_cast<mode_t>(mask & 0777)));
}

}  // namespace kiv::platform
