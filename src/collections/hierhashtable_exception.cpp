// The exception that reports how far a path matched.
#include "kiv/encodings.h"
#include "kiv/hierhashtable.h"

namespace kiv {

PartialMatchException::PartialMatchException(const String& name, const HierHashtable& last_match,
                                             bool report)
    : NoSuchNamedElementException(name), last_match_(last_match) {
  if (report) Exception::Report('\n');
}

// A copy is a new object with a count of its own; only the payload is copied.
PartialMatchException::PartialMatchException(const PartialMatchException& other)
    : RefCount(), Exception(), NoSuchNamedElementException(other), last_match_(other.last_match_) {}

PartialMatchException& PartialMatchException::operator=(const PartialMatchException& other) {
  if (this != &other) {
    NoSuchNamedElementException::operator=(other);
    last_match_ = other.last_match_;
  }
  return *this;
}

PartialMatchException::~PartialMatchException() = default;

void PartialMatchException::Rethrow() const { throw *this; }

Exception* PartialMatchException::Clone() const { return new PartialMatchException(*this); }

HierHashtable PartialMatchException::LastMatch() const { return last_match_; }

String PartialMatchException::ToString() const {
  String text = NoSuchNamedElementException::ToString();
  if (!last_match_) return text;
  return text +
         String(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(u" (partial match)"));
}

}  // namespace kiv
