// The system's version text and the file-creation mask.
#include <cstdio>
#include <string>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/system.h"
#include "platform/system_info.h"

namespace kiv {

UMaskItf::~UMaskItf() = default;

namespace {

String Ascii(const char* text) {
  return String(TextEncodingExp::MakeAscii(), static_cast<const void*>(text));
}

// Reads the decimal number at `pos`; false when there is no digit there or it does not fit.
bool ReadNumber(const std::string& text, std::size_t& pos, unsigned& value) {
  const std::size_t start = pos;
  value = 0;
  while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
    if (value > (0xFFFFFFFFu - 9) / 10) return false;
    value = value * 10 + static_cast<unsigned>(text[pos] - '0');
    ++pos;
  }
  return pos > start;
}

}  // namespace

String SystemVersionStringExp::Make() {
  std::string release;
  if (!platform::SystemVersionText(release)) {
    throw InternalError(Ascii("cannot determine system version"), true);
  }
  std::size_t pos = 0;
  unsigned major = 0;
  unsigned minor = 0;
  bool recognized = ReadNumber(release, pos, major) && pos < release.size() && release[pos] == '.';
  if (recognized) recognized = ReadNumber(release, ++pos, minor);
  if (!recognized) throw InternalError(Ascii("unrecognized system version"), true);
  char text[32];
  std::snprintf(text, sizeof text, "%u.%u", major, minor);
  return String(TextEncodingExp::MakeAscii(), static_cast<void*>(text));
}

// Set makes the mask and keeps what it replaced; Restore puts that back. Without a mask on the
// system both do nothing.
class UMaskImpl final : public UMaskItf {
 public:
  ~UMaskImpl() override = default;

  void Set(std::uint32_t mask) override {
    if (!platform::HasFileCreationMask()) return;
    previous_ = platform::SetFileCreationMask(mask);
    saved_ = true;
  }

  void Restore() override {
    if (!saved_) return;
    platform::SetFileCreationMask(previous_);
    saved_ = false;
  }

 private:
  std::uint32_t previous_ = 0;
  bool saved_ = false;
};

Ref<UMaskItf> UMaskExp::Make() { return Ref<UMaskItf>(new UMaskImpl()); }

}  // namespace kiv
