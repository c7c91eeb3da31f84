#include "kiv/exception.h"

#include "kiv/buffer.h"
#include "kiv/encodings.h"
#include "kiv/numbers.h"
#include "platform/type_name.h"

namespace kiv {

Exception::~Exception() = default;

String Exception::ToString() const {
  try {
    unsigned short name[platform::kTypeNameRoom];
    unsigned bytes = GetClassName(name, sizeof name);
    return String(TextEncodingExp::MakeAppDefault(), static_cast<void*>(name), bytes);
  } catch (...) {
    static const char kInternal[] = "Error - Exception::ToString() internal error";
    return String(TextEncodingExp::MakeAscii(), static_cast<const void*>(kInternal));
  }
}

IOException::~IOException() = default;
HashException::~HashException() = default;
DataConverterException::~DataConverterException() = default;
TextEncodingException::~TextEncodingException() = default;
ResourceException::~ResourceException() = default;
DateException::~DateException() = default;

namespace {

// prefix + " - " + payload, built in one buffer sized for both texts in 16-bit units.
String JoinPayload(const String& prefix, const String& payload) {
  if (payload->Length() == 0) return prefix;
  unsigned size = (prefix->Length() + payload->Length()) * 2 + 6;
  StringBuffer text(prefix->GetEncoding(), BufferExp::Make(size));
  text += prefix;
  static const char kDash[] = " - ";
  text += String(TextEncodingExp::MakeAscii(), static_cast<const void*>(kDash));
  text += payload;
  return text.ToString();
}

}  // namespace

String StringWhat::ToString(const String& prefix) const { return JoinPayload(prefix, what_); }

String IntWhat::ToString(const String& prefix) const {
  return JoinPayload(prefix, NumberConversion::ToString(what_));
}

ExceptionWhat::ExceptionWhat(const Exception* what) : what_(what ? what->Clone() : nullptr) {}
ExceptionWhat::ExceptionWhat(const ExceptionWhat& other)
    : what_(other.what_ ? other.what_->Clone() : nullptr) {}
ExceptionWhat& ExceptionWhat::operator=(const Exception* what) {
  // Clone first, so that assigning the held exception to itself keeps a valid copy.
  const Exception* copy = what ? what->Clone() : nullptr;
  delete what_;
  what_ = copy;
  return *this;
}
ExceptionWhat& ExceptionWhat::operator=(const ExceptionWhat& other) { return *this = other.what_; }
ExceptionWhat::~ExceptionWhat() { delete what_; }

String ExceptionWhat::ToString(const String& prefix) const {
  // Every thrower passes a real exception; a missing one leaves the class name alone.
  if (what_ == nullptr) return prefix;
  return JoinPayload(prefix, what_->ToString());
}

}  // namespace kiv
