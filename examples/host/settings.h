// The host's settings: a properties file published as the preferences over built-in defaults.
//
// Keys (defaults in brackets):
//   server/address [127.0.0.1]       server/port [8080; 0 picks a free port]
//   server/document-root [the site beside the sources; relative paths are taken from the
//                         directory of the properties file]
//   server/connection-limit [128]    connections held at once, served and waiting
//   server/workers [8]               threads that serve connections
//   server/read-timeout-ms [10000]   longest wait for a read, and for a whole request head
//   server/max-header-bytes [8192]   request line and headers together
//   server/max-body-bytes [1048576]  body of a POST /upper
//   server/shutdown-grace-ms [5000]  time running requests get to finish on SIGTERM
//   server/mime-types [the table beside the sources]
//   logs/application/file [empty: the standard error stream; relative as the document root]
//   logs/application/level [info]
#ifndef KIV_HOST_SETTINGS_H_
#define KIV_HOST_SETTINGS_H_

#include <cstdint>
#include <string>

namespace kiv_host {

struct Settings {
  std::string address;
  int port = 0;
  std::string document_root;  // absolute, symbolic links resolved
  unsigned connection_limit = 0;
  unsigned workers = 0;
  std::int64_t read_timeout_ms = 0;
  unsigned max_header_bytes = 0;
  std::uint64_t max_body_bytes = 0;
  std::int64_t shutdown_grace_ms = 0;
  std::string mime_types;
  std::string log_file;
};

// Loads `config_path` over the built-in defaults and publishes it as the preferences (which tells
// the log its level); the first call also fixes the defaults for later ones. ResourceOSException
// when the file cannot be read; nothing is published then.
void PublishPreferences(const std::string& config_path);

// The settings as the published preferences give them now. A value that does not read as its
// kind keeps the default, with a warning in the log. Throws std::runtime_error when the document
// root does not exist.
Settings ReadSettings(const std::string& config_path);

}  // namespace kiv_host

#endif  // KIV_HOST_SETTINGS_H_
