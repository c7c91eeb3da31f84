#include "kiv/exception.h"

#include "kiv/encodings.h"
#include "kiv/numbers.h"
#include "platform/file.h"

#include <string>

namespace kiv {

// Copying an exception never copies its count: the copy is a new object (RefCount()), and only the
// payload base is copied. Assignment likewise copies the payload alone.
// The bases listed are the class's non-virtual bases: its payload mixin and its concrete parent.
#define KIV_COPY_1(a) a(other)
#define KIV_COPY_2(a, b) a(other), b(other)
#define KIV_ASSIGN_1(a) a::operator=(other);
#define KIV_ASSIGN_2(a, b) a::operator=(other), b::operator=(other);
#define KIV_PICK(_1, _2, NAME, ...) NAME
#define KIV_EXCEPTION_DEFINE(C, ...)                                                               \
  C::C(const C& other)                                                                             \
      : RefCount(),                                                                                \
        Exception() __VA_OPT__(, KIV_PICK(__VA_ARGS__, KIV_COPY_2, KIV_COPY_1)(__VA_ARGS__)) {     \
    static_cast<void>(other);                                                                      \
  }                                                                                                \
  C& C::operator=(const C& other) {                                                                \
    __VA_OPT__(if (this != &other) KIV_PICK(__VA_ARGS__, KIV_ASSIGN_2, KIV_ASSIGN_1)(__VA_ARGS__)) \
    static_cast<void>(other);                                                                      \
    return *this;                                                                                  \
  }                                                                                                \
  C::~C() = default;                                                                               \
  void C::Rethrow() const { throw *this; }                                                         \
  Exception* C::Clone() const { return new C(*this); }

KIV_EXCEPTION_DEFINE(AccessException, )
AccessException::AccessException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(BadCastException, )
BadCastException::BadCastException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(BoundsException, IntWhat)
BoundsException::BoundsException(std::int64_t value, bool report) : IntWhat(value) {
  if (report) Exception::Report('\n');
}

String BoundsException::ToString() const { return IntWhat::ToString(Exception::ToString()); }

KIV_EXCEPTION_DEFINE(BufferException, IntWhat)
BufferException::BufferException(std::int64_t value, bool report) : IntWhat(value) {
  if (report) Exception::Report('\n');
}

String BufferException::ToString() const { return IntWhat::ToString(Exception::ToString()); }

KIV_EXCEPTION_DEFINE(CannotCompleteException, )
CannotCompleteException::CannotCompleteException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(CannotConvertException, )
CannotConvertException::CannotConvertException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(CannotCreateTextEncodingException, StringWhat)
CannotCreateTextEncodingException::CannotCreateTextEncodingException(const String& what,
                                                                     bool report)
    : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String CannotCreateTextEncodingException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(ChunkedFormatException, StringWhat)
ChunkedFormatException::ChunkedFormatException(const String& what, bool report) : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String ChunkedFormatException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(ConfigurationError, StringWhat)
ConfigurationError::ConfigurationError(const String& what, bool report) : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String ConfigurationError::ToString() const { return StringWhat::ToString(Exception::ToString()); }

KIV_EXCEPTION_DEFINE(DataConverterBufferException, CannotConvertException, IntWhat)
DataConverterBufferException::DataConverterBufferException(std::int64_t needed, bool report)
    : IntWhat(needed) {
  if (report) Exception::Report('\n');
}

String DataConverterBufferException::ToString() const {
  return IntWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(EndOfMediaIOException, )
EndOfMediaIOException::EndOfMediaIOException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NoSuchElementException, )
NoSuchElementException::NoSuchElementException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(EntryMismatchException, NoSuchElementException, StringWhat)
EntryMismatchException::EntryMismatchException(const String& what, bool report) : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String EntryMismatchException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(GeneralIOException, StringWhat)
GeneralIOException::GeneralIOException(const String& what, bool report) : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String GeneralIOException::ToString() const { return StringWhat::ToString(Exception::ToString()); }

KIV_EXCEPTION_DEFINE(HTNotCloneableException, )
HTNotCloneableException::HTNotCloneableException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(IOCanceledException, )
IOCanceledException::IOCanceledException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(IODeadlockException, ExceptionWhat)
IODeadlockException::IODeadlockException(const Exception* nested, bool report)
    : ExceptionWhat(nested) {
  if (report) Exception::Report('\n');
}

String IODeadlockException::ToString() const {
  return ExceptionWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(IOPermException, )
IOPermException::IOPermException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(IOScheduleException, ExceptionWhat)
IOScheduleException::IOScheduleException(const Exception* nested, bool report)
    : ExceptionWhat(nested) {
  if (report) Exception::Report('\n');
}

String IOScheduleException::ToString() const {
  return ExceptionWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(IOTimeoutException, )
IOTimeoutException::IOTimeoutException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(IOUnconvertedDataException, )
IOUnconvertedDataException::IOUnconvertedDataException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NotSupportedException, )
NotSupportedException::NotSupportedException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(IOUnsupportedException, NotSupportedException, StringWhat)
IOUnsupportedException::IOUnsupportedException(const String& what, bool report) : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String IOUnsupportedException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(InternalError, StringWhat)
InternalError::InternalError(const String& what, bool report) : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String InternalError::ToString() const { return StringWhat::ToString(Exception::ToString()); }

KIV_EXCEPTION_DEFINE(InvalidKeyException, NoSuchElementException)
InvalidKeyException::InvalidKeyException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(KeyIsIdentityException, NoSuchElementException)
KeyIsIdentityException::KeyIsIdentityException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(KeyOutOfBoundsException, NoSuchElementException, StringWhat)
KeyOutOfBoundsException::KeyOutOfBoundsException(const String& what, bool report)
    : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String KeyOutOfBoundsException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(MemoryException, )
MemoryException::MemoryException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NoDefaultTextEncodingException, )
NoDefaultTextEncodingException::NoDefaultTextEncodingException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NoMacTextEncodingException, )
NoMacTextEncodingException::NoMacTextEncodingException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NoSuchNamedElementException, NoSuchElementException, StringWhat)
NoSuchNamedElementException::NoSuchNamedElementException(const String& what, bool report)
    : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String NoSuchNamedElementException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(NoUnicodeConverterException, CannotConvertException)
NoUnicodeConverterException::NoUnicodeConverterException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NotAsynchronousException, )
NotAsynchronousException::NotAsynchronousException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NotRandomAccessException, )
NotRandomAccessException::NotRandomAccessException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NotResourceException, )
NotResourceException::NotResourceException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NotSynchronousException, )
NotSynchronousException::NotSynchronousException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(NullPointerException, StringWhat)
NullPointerException::NullPointerException(const String& what, bool report) : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String NullPointerException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(OpenFailedException, )
OpenFailedException::OpenFailedException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(TimeoutException, )
TimeoutException::TimeoutException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(UnexpectedEOFException, )
UnexpectedEOFException::UnexpectedEOFException(bool report) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(Unimplemented, InternalError)
Unimplemented::Unimplemented(const String& what, bool report) : InternalError(what) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(UnknownException, InternalError)
UnknownException::UnknownException(const String& what, bool report) : InternalError(what) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(UnknownDataConverterException, UnknownException)
UnknownDataConverterException::UnknownDataConverterException(const String& what, bool report)
    : UnknownException(what) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(UnknownIOException, UnknownException)
UnknownIOException::UnknownIOException(const String& what, bool report) : UnknownException(what) {
  if (report) Exception::Report('\n');
}

KIV_EXCEPTION_DEFINE(UnknownTextEncodingException, StringWhat)
UnknownTextEncodingException::UnknownTextEncodingException(const String& what, bool report)
    : StringWhat(what) {
  if (report) Exception::Report('\n');
}

String UnknownTextEncodingException::ToString() const {
  return StringWhat::ToString(Exception::ToString());
}

KIV_EXCEPTION_DEFINE(UnrepresentableYearException, BoundsException)
UnrepresentableYearException::UnrepresentableYearException(std::int64_t year, bool report)
    : BoundsException(year) {
  if (report) Exception::Report('\n');
}

const char* MemoryException::what() const noexcept { return "bad allocation"; }
String MemoryException::ToString() const {
  static const char kText[] = "kiv::MemoryException";
  return String(TextEncodingExp::MakeAscii(), static_cast<const void*>(kText));
}

const char* BadCastException::what() const noexcept { return "bad cast"; }
String BadCastException::ToString() const {
  static const char kText[] = "kiv::BadCastException";
  return String(TextEncodingExp::MakeAscii(), static_cast<const void*>(kText));
}

// The resource layer's own text: the description, then the system's text for the error code and
// the code itself, when there is one
// ("kiv::ResourceOSException - cannot open x.txt: No such file or directory (2)").
ResourceOSException::ResourceOSException(const String& what, std::int32_t error, bool report)
    : StringWhat(what), FSErr(error) {
  if (report) Exception::Report('\n');
}
ResourceOSException::ResourceOSException(const ResourceOSException& other)
    : RefCount(), Exception(), StringWhat(other), FSErr(other) {}
ResourceOSException& ResourceOSException::operator=(const ResourceOSException& other) {
  StringWhat::operator=(other);
  FSErr::operator=(other);
  return *this;
}
ResourceOSException::~ResourceOSException() = default;
void ResourceOSException::Rethrow() const { throw *this; }
Exception* ResourceOSException::Clone() const { return new ResourceOSException(*this); }
String ResourceOSException::ToString() const {
  String text = StringWhat::ToString(Exception::ToString());
  if (Error() == 0) return text;
  std::string detail = ": " + platform::ErrorText(Error()) + " (" + std::to_string(Error()) + ")";
  return text + String(TextEncodingExp::MakeUTF8(), static_cast<void*>(detail.data()),
                       static_cast<unsigned>(detail.size()));
}

}  // namespace kiv
