// Small bridges between the host's std::string text (UTF-8) and the library's strings and log.
#ifndef KIV_HOST_HOST_UTIL_H_
#define KIV_HOST_HOST_UTIL_H_

#include <kiv/encodings.h>
#include <kiv/log.h>
#include <kiv/string.h>

#include <string>
#include <string_view>

namespace kiv_host {

// A library string holding a copy of the UTF-8 text `text`.
inline kiv::String Utf8(std::string_view text) {
  std::string copy(text);
  return kiv::String(kiv::TextEncodingExp::MakeUTF8(), static_cast<void*>(copy.data()),
                     static_cast<unsigned>(copy.size()));
}

// The UTF-8 bytes of a library string.
inline std::string ToStd(const kiv::String& s) {
  kiv::String u = s->Encode(kiv::TextEncodingExp::MakeUTF8());
  return std::string(static_cast<const char*>(u->GetData()), u->ByteLength());
}

// One log entry at `level`.
inline void Log(kiv::LogLevel level, std::string_view message) {
  kiv::Writer log = kiv::LogWriterExp::Make(level);
  log->Write(Utf8(message));
  log->NewLine();
}

}  // namespace kiv_host

#endif  // KIV_HOST_HOST_UTIL_H_
