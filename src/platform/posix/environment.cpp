#include "platform/environment.h"

#include "platform/posix/utf8_names.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace kiv::platform {

bool GetEnvironmentVariable(const std::u16string& name, std::u16string& value) {
  const char* found = std::getenv(ToUtf8(name).c_str());
  if (found == nullptr) return false;
  value = FromUtf8(found, std::strlen(found));
  return true;
}

bool SetEnvironmentVariable(const std::u16string& name, const std::u16string& value) {
  return ::setenv(ToUtf8(name).c_str(), ToUtf8(value).c_str(), 1) == 0;
}

bool UnsetEnvironmentVariable(const std::u16string& name) {
  return ::unsetenv(ToUtf8(name).c_str()) == 0;
}

std::vector<std::u16string> EnvironmentVariableNames() {
  std::vector<std::u16string> names;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const char* text = *entry;
    const char* equals = std::strchr(text, '=');
    std::size_t length =
        equals != nullptr ? static_cast<std::size_t>(equals - text) : std::strlen(text);
    names.push_back(FromUtf8(text, length));
  }
  return names;
}

}  // namespace kiv::platform
