#include "platform/environment.h"

#include <stdlib.h>

#include "platform/win32/windows_names.h"

namespace kiv::platform {

// The runtime's wide environment (_wgetenv, _wputenv) is the table; it keeps the system's own
// environment block in step, which is what lists the names.
//
// The runtime reads "NAME=" as "remove NAME", so an empty value cannot be stored: setting one
// removes the variable.

namespace {

bool ValidName(const std::u16string& name) noexcept {
  return !name.empty() && name.find(u'=') == std::u16string::npos &&
         name.find(u'\0') == std::u16string::npos;
}

bool Put(const std::u16string& name, const std::u16string& value) {
  if (!ValidName(name) || value.find(u'\0') != std::u16string::npos) return false;
  const std::wstring entry = Wide(name) + L"=" + Wide(value);
  return ::_wputenv(entry.c_str()) == 0;
}

}  // namespace

bool GetEnvironmentVariable(const std::u16string& name, std::u16string& value) {
  if (!ValidName(name)) return false;
  const wchar_t* found = ::_wgetenv(Wide(name).c_str());
  if (found == nullptr) return false;
  value = Units(found, ::wcslen(found));
  return true;
}

bool SetEnvironmentVariable(const std::u16string& name, const std::u16string& value) {
  return Put(name, value);
}

bool UnsetEnvironmentVariable(const std::u16string& name) { return Put(name, u""); }

std::vector<std::u16string> EnvironmentVariableNames() {
  std::vector<std::u16string> names;
  wchar_t* block = ::GetEnvironmentStringsW();
  if (block == nullptr) return names;
  try {
    // The block is "NAME=value\0" entries ending with an empty one. Entries whose name starts
    // with '=' are the system's hidden per-drive directories, not variables.
    for (const wchar_t* entry = block; *entry != L'\0'; entry += ::wcslen(entry) + 1) {
      if (*entry == L'=') continue;
      const wchar_t* equals = ::wcschr(entry, L'=');
      const std::size_t length =
          equals != nullptr ? static_cast<std::size_t>(equals - entry) : ::wcslen(entry);
      names.push_back(Units(entry, length));
    }
  } catch (...) {
    ::FreeEnvironmentStringsW(block);
    throw;
  }
  ::FreeEnvironmentStringsW(block);
  return names;
}

}  // namespace kiv::platform
