#include "kiv/version.h"

namespace kiv {

Version GetVersion() noexcept { return {KIV_VERSION_MAJOR, KIV_VERSION_MINOR, KIV_VERSION_PATCH}; }

const char* GetVersionString() noexcept { return KIV_VERSION_STRING; }

}  // namespace kiv
