// Definitions of the exception classes listed in kiv/exceptions.def.
#include "kiv/exception.h"

#include "kiv/encodings.h"
#include "platform/file.h"

#include <string>

namespace kiv {

// Copying an exception never copies its count: the copy is a new object (RefCount()), and only the
// non-virtual bases (the payload mixin, the concrete parent) are copied. Assignment likewise
// copies those alone.
#define KIV_EXC_COPY_1(a) , a(other)
#define KIV_EXC_COPY_2(a, b) , a(other), b(other)
#define KIV_EXC_COPY_3(a, b, c) , a(other), b(other), c(other)
#define KIV_EXC_ASSIGN_1(a) a::operator=(other);
#define KIV_EXC_ASSIGN_2(a, b) a::operator=(other), b::operator=(other);
#define KIV_EXC_ASSIGN_3(a, b, c) a::operator=(other), b::operator=(other), c::operator=(other);
#define KIV_EXC_COPY_MEMBERS(C, ...)                                                         \
  C::C(const C& other) : RefCount(), Exception() KIV_EXC_APPLY(KIV_EXC_COPY_, __VA_ARGS__) { \
    static_cast<void>(other);                                                                \
  }                                                                                          \
  C& C::operator=(const C& other) {                                                          \
    __VA_OPT__(if (this != &other) KIV_EXC_APPLY(KIV_EXC_ASSIGN_, __VA_ARGS__))              \
    static_cast<void>(other);                                                                \
    return *this;                                                                            \
  }                                                                                          \
  C::~C() = default;                                                                         \
  void C::Rethrow() const { throw *this; }                                                   \
  Exception* C::Clone() const { return new C(*this); }

// The payload goes to the last base listed: the payload mixin, or a parent that carries one.
#define KIV_EXC_LAST_1(a) a
#define KIV_EXC_LAST_2(a, b) b
#define KIV_EXC_LAST_3(a, b, c) c
#define KIV_EXC_INIT_None(last)
#define KIV_EXC_INIT_String(last) : last(what)
#define KIV_EXC_INIT_Int(last) : last(what)
#define KIV_EXC_INIT_Nested(last) : last(what)
#define KIV_EXC_INIT_OSError(last) : StringWhat(what), FSErr(error)

#define KIV_EXC_DEFINE_TEXT_Name(C, last)
#define KIV_EXC_DEFINE_TEXT_WithPayload(C, last) \
  String C::ToString() const { return last::ToString(Exception::ToString()); }
#define KIV_EXC_DEFINE_TEXT_Inherited(C, last)
#define KIV_EXC_DEFINE_TEXT_Own(C, last)

#define KIV_EXCEPTION(C, Family, Payload, Text, ...)                      \
  C::C(KIV_EXC_PARAMS_##Payload)                                          \
      KIV_EXC_INIT_##Payload(KIV_EXC_APPLY(KIV_EXC_LAST_, __VA_ARGS__)) { \
    if (report) Exception::Report('\n');                                  \
  }                                                                       \
  KIV_EXC_COPY_MEMBERS(C, __VA_ARGS__)                                    \
  KIV_EXC_DEFINE_TEXT_##Text(C, KIV_EXC_APPLY(KIV_EXC_LAST_, __VA_ARGS__))
#define KIV_STD_EXCEPTION(C, StdBase)                                             \
  C::C(bool report) {                                                             \
    if (report) Exception::Report('\n');                                          \
  }                                                                               \
  KIV_EXC_COPY_MEMBERS(C)                                                         \
  String C::ToString() const {                                                    \
    static const char kText[] = "kiv::" #C;                                       \
    return String(TextEncodingExp::MakeAscii(), static_cast<const void*>(kText)); \
  }
#include "kiv/exceptions.def"

const char* BadCastException::what() const noexcept { return "bad cast"; }
const char* MemoryException::what() const noexcept { return "bad allocation"; }

String ResourceOSException::ToString() const {
  String text = StringWhat::ToString(Exception::ToString());
  if (Error() == 0) return text;
  std::string detail = ": " + platform::ErrorText(Error()) + " (" + std::to_string(Error()) + ")";
  return text + String(TextEncodingExp::MakeUTF8(), static_cast<void*>(detail.data()),
                       static_cast<unsigned>(detail.size()));
}

}  // namespace kiv
