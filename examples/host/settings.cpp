#include "settings.h"

#include "host_util.h"

#include <kiv/hierhashtable.h>
#include <kiv/preferences.h>
#include <kiv/resource.h>

#include <sys/stat.h>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <stdexcept>

namespace kiv_host {

namespace {

// The built-in defaults, under every published preferences tree.
kiv::ConstHierHashtable Defaults() {
  static const kiv::ConstHierHashtable defaults = [] {
    kiv::HierHashtable tree = kiv::HierHashtableExp::Make();
    auto put = [&](const char* path, const char* value) {
      tree->MakePath(Utf8(path), 0x1FF, 0)->AddLast(Utf8(value));
    };
    put("server/address", "127.0.0.1");
    put("server/port", "8080");
    put("server/document-root", KIV_HOST_SITE);
    put("server/connection-limit", "128");
    put("server/workers", "8");
    put("server/read-timeout-ms", "10000");
    put("server/max-header-bytes", "8192");
    put("server/max-body-bytes", "1048576");
    put("server/shutdown-grace-ms", "5000");
    put("server/mime-types", KIV_HOST_MIME_TYPES);
    put("logs/application/file", "");
    put("logs/application/level", "info");
    return kiv::ConstHierHashtableExp::Make(tree);
  }();
  return defaults;
}

std::string GetText(const char* path) {
  return ToStd(kiv::PreferencesExp::GetString(Utf8(path), Utf8("")));
}

// The number at `path` when it is a decimal in [low, high]; otherwise `fallback`, with a warning.
std::uint64_t GetNumber(const char* path, std::uint64_t low, std::uint64_t high,
                        std::uint64_t fallback) {
  const std::string text = GetText(path);
  std::uint64_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc() && end == text.data() + text.size() && value >= low && value <= high) {
    return value;
  }
  Log(kiv::LogWarn, std::string(path) + ": \"" + text + "\" is no number from " +
                        std::to_string(low) + " to " + std::to_string(high) + ", using " +
                        std::to_string(fallback));
  return fallback;
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

}  // namespace

void PublishPreferences(const std::string& config_path) {
  kiv::PreferencesExp::MakePrefs(Defaults(), kiv::SyncResourceExp::Make(Utf8(config_path)),
                                 kiv::TextEncodingExp::MakeUTF8());
}

Settings ReadSettings(const std::string& config_path) {
  Settings s;
  s.address = GetText("server/address");
  s.port = static_cast<int>(GetNumber("server/port", 0, 65535, 8080));
  s.connection_limit = static_cast<unsigned>(GetNumber("server/connection-limit", 1, 65536, 128));
  s.workers = static_cast<unsigned>(GetNumber("server/workers", 1, 1024, 8));
  s.read_timeout_ms =
      static_cast<std::int64_t>(GetNumber("server/read-timeout-ms", 1, 3600000, 10000));
  s.max_header_bytes =
      static_cast<unsigned>(GetNumber("server/max-header-bytes", 256, 1 << 20, 8192));
  s.max_body_bytes = GetNumber("server/max-body-bytes", 0, 1u << 30, 1 << 20);
  s.shutdown_grace_ms =
      static_cast<std::int64_t>(GetNumber("server/shutdown-grace-ms", 0, 600000, 5000));
  s.mime_types = GetText("server/mime-types");
  s.log_file = GetText("logs/application/file");
  if (!s.log_file.empty() && s.log_file.front() != '/') {
    s.log_file = DirectoryOf(config_path) + s.log_file;
  }

  std::string root = GetText("server/document-root");
  if (!root.empty() && root.front() != '/') root = DirectoryOf(config_path) + root;
  char resolved[PATH_MAX];
  struct stat info {};
  if (realpath(root.c_str(), resolved) == nullptr || stat(resolved, &info) != 0 ||
      !S_ISDIR(info.st_mode)) {
    throw std::runtime_error("document root " + root + " is no directory");
  }
  s.document_root = resolved;
  return s;
}

}  // namespace kiv_host
