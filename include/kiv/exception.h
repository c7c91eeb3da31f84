// Failures: the counted exception hierarchy, its payload mixins and category tags, the light
// assertion family, trace output and the reporters for failures of static singletons.
//
// Library exceptions are thrown by value and caught by reference. They are counted objects, so a
// handler may keep one alive in a handle (`Ref<Exception>(e.Clone())`). `ToString()` gives the
// short class name, followed by " - " and the payload for exceptions that carry one:
// "kiv::BoundsException - 42".
#ifndef KIV_EXCEPTION_H_
#define KIV_EXCEPTION_H_

#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/string.h>

#include <cstdint>
#include <new>
#include <string>
#include <typeinfo>

namespace kiv {

// Base of every library exception.
class KIV_EXPORT Exception : public virtual RefCount {
 public:
  ~Exception() override;
  // The short class name ("kiv::IOTimeoutException"); never throws.
  virtual String ToString() const;
  // Throws a copy of the most derived object by value.
  virtual void Rethrow() const = 0;
  // A heap copy of the most derived object, with a fresh count of 0.
  virtual Exception* Clone() const = 0;

 protected:
  Exception() noexcept : RefCount() {}
  Exception(const Exception&) noexcept : RefCount() {}
  Exception& operator=(const Exception&) noexcept { return *this; }
  // Hook called by constructors asked to report; does nothing in the library.
  void Report(char) const noexcept {}
};

// Payload: a string.
class KIV_EXPORT StringWhat {
 public:
  explicit StringWhat(const String& what) : what_(what) {}
  String What() const { return what_; }
  StringWhat& operator=(const String& what) {
    what_ = what;
    return *this;
  }
  void Report(char) const noexcept {}

 protected:
  // `prefix`, then " - " and the payload when the payload is not empty.
  String ToString(const String& prefix) const;

 private:
  String what_;
};

// Payload: a signed 64-bit integer.
class KIV_EXPORT IntWhat {
 public:
  explicit IntWhat(std::int64_t what) noexcept : what_(what) {}
  std::int64_t What() const noexcept { return what_; }
  IntWhat& operator=(std::int64_t what) noexcept {
    what_ = what;
    return *this;
  }
  void Report(char) const noexcept {}

 protected:
  String ToString(const String& prefix) const;

 private:
  std::int64_t what_;
};

// Payload: a nested exception. The mixin owns a private clone of what it was given (never shared)
// and deletes it directly, not through the count.
class KIV_EXPORT ExceptionWhat {
 public:
  explicit ExceptionWhat(const Exception* what);
  ExceptionWhat(const ExceptionWhat& other);
  ExceptionWhat& operator=(const Exception* what);
  ExceptionWhat& operator=(const ExceptionWhat& other);
  ~ExceptionWhat();
  const Exception* What() const noexcept { return what_; }
  void Report(char) const noexcept {}

 protected:
  // The nested exception's own text as payload; `prefix` alone when there is none.
  String ToString(const String& prefix) const;

 private:
  const Exception* what_;
};

// Payload: an operating-system error code.
class KIV_EXPORT FSErr {
 public:
  explicit FSErr(std::int32_t error) noexcept : error_(error) {}
  std::int32_t Error() const noexcept { return error_; }

 private:
  std::int32_t error_;
};

// Category tags: catch one of these to catch a whole family.
struct KIV_EXPORT IOException : public virtual Exception {
  ~IOException() override;
};
struct KIV_EXPORT HashException : public virtual Exception {
  ~HashException() override;
};
struct KIV_EXPORT DataConverterException : public virtual Exception {
  ~DataConverterException() override;
};
struct KIV_EXPORT TextEncodingException : public virtual DataConverterException {
  ~TextEncodingException() override;
};
struct KIV_EXPORT ResourceException : public virtual IOException {
  ~ResourceException() override;
};
struct KIV_EXPORT DateException : public virtual Exception {
  ~DateException() override;
};

// The members every concrete exception class has; their definitions are generated in one place.
#define KIV_EXCEPTION_MEMBERS(C) \
 public:                         \
  C(const C& other);             \
  C& operator=(const C& other);  \
  ~C() override;                 \
  void Rethrow() const override; \
  Exception* Clone() const override;

// Access to a resource or operation was refused.
class KIV_EXPORT AccessException : public virtual Exception {
 public:
  explicit AccessException(bool report = false);
  KIV_EXCEPTION_MEMBERS(AccessException)
};

// A checked cast to an interface the object does not implement. Also a std::bad_cast.
class KIV_EXPORT BadCastException : public std::bad_cast, public virtual Exception {
 public:
  explicit BadCastException(bool report = false);
  const char* what() const noexcept override;
  // A fixed text that needs no run-time type lookup, so it works when memory is short.
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(BadCastException)
};

// An index or position out of range; carries it.
class KIV_EXPORT BoundsException : public virtual Exception, public IntWhat {
 public:
  explicit BoundsException(std::int64_t value, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(BoundsException)
};

// A buffer of the wrong size; carries the size.
class KIV_EXPORT BufferException : public virtual Exception, public IntWhat {
 public:
  explicit BufferException(std::int64_t value, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(BufferException)
};

// An operation could not be completed.
class KIV_EXPORT CannotCompleteException : public virtual Exception {
 public:
  explicit CannotCompleteException(bool report = false);
  KIV_EXCEPTION_MEMBERS(CannotCompleteException)
};

// Input that a converter cannot convert (invalid UTF-8, a value UTF-16 cannot hold).
class KIV_EXPORT CannotConvertException : public virtual DataConverterException {
 public:
  explicit CannotConvertException(bool report = false);
  KIV_EXCEPTION_MEMBERS(CannotConvertException)
};

// A text encoding could not be made; carries its name.
class KIV_EXPORT CannotCreateTextEncodingException : public virtual TextEncodingException,
                                                     public StringWhat {
 public:
  explicit CannotCreateTextEncodingException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(CannotCreateTextEncodingException)
};

// Malformed HTTP/1.1 chunked framing, or framing beyond a decoder's limits; carries the fault
// and the offset of the offending byte in the coded body ("bad chunk size at byte 17").
class KIV_EXPORT ChunkedFormatException : public virtual IOException, public StringWhat {
 public:
  explicit ChunkedFormatException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(ChunkedFormatException)
};

// Bad configuration; carries a description.
class KIV_EXPORT ConfigurationError : public virtual Exception, public StringWhat {
 public:
  explicit ConfigurationError(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(ConfigurationError)
};

// A converter still wants more room after its buffer was grown; carries the size it asked for.
class KIV_EXPORT DataConverterBufferException : public CannotConvertException, public IntWhat {
 public:
  explicit DataConverterBufferException(std::int64_t needed, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(DataConverterBufferException)
};

// The end of a device's medium was reached.
class KIV_EXPORT EndOfMediaIOException : public virtual IOException {
 public:
  explicit EndOfMediaIOException(bool report = false);
  KIV_EXCEPTION_MEMBERS(EndOfMediaIOException)
};

// An element that is not there: an empty container or queue, a missing key.
class KIV_EXPORT NoSuchElementException : public virtual Exception {
 public:
  explicit NoSuchElementException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NoSuchElementException)
};

// A table entry is not of the expected kind; carries the key.
class KIV_EXPORT EntryMismatchException : public virtual HashException,
                                          public NoSuchElementException,
                                          public StringWhat {
 public:
  explicit EntryMismatchException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(EntryMismatchException)
};

// An I/O failure described by text.
class KIV_EXPORT GeneralIOException : public virtual IOException, public StringWhat {
 public:
  explicit GeneralIOException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(GeneralIOException)
};

// A table holds a value that cannot be cloned.
class KIV_EXPORT HTNotCloneableException : public virtual HashException {
 public:
  explicit HTNotCloneableException(bool report = false);
  KIV_EXCEPTION_MEMBERS(HTNotCloneableException)
};

// An I/O request was canceled.
class KIV_EXPORT IOCanceledException : public virtual IOException {
 public:
  explicit IOCanceledException(bool report = false);
  KIV_EXCEPTION_MEMBERS(IOCanceledException)
};

// Waiting for I/O would deadlock; carries the cause.
class KIV_EXPORT IODeadlockException : public virtual IOException, public ExceptionWhat {
 public:
  explicit IODeadlockException(const Exception* nested, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(IODeadlockException)
};

// I/O was refused for lack of permission.
class KIV_EXPORT IOPermException : public virtual IOException {
 public:
  explicit IOPermException(bool report = false);
  KIV_EXCEPTION_MEMBERS(IOPermException)
};

// An I/O request could not be scheduled; carries the cause.
class KIV_EXPORT IOScheduleException : public virtual IOException, public ExceptionWhat {
 public:
  explicit IOScheduleException(const Exception* nested, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(IOScheduleException)
};

// An I/O operation ran out of time.
class KIV_EXPORT IOTimeoutException : public virtual IOException {
 public:
  explicit IOTimeoutException(bool report = false);
  KIV_EXCEPTION_MEMBERS(IOTimeoutException)
};

// Data was left that could not be converted.
class KIV_EXPORT IOUnconvertedDataException : public virtual IOException {
 public:
  explicit IOUnconvertedDataException(bool report = false);
  KIV_EXCEPTION_MEMBERS(IOUnconvertedDataException)
};

// An operation the object does not support.
class KIV_EXPORT NotSupportedException : public virtual Exception {
 public:
  explicit NotSupportedException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NotSupportedException)
};

// An I/O operation the stream does not support; carries its name.
class KIV_EXPORT IOUnsupportedException : public virtual IOException,
                                          public NotSupportedException,
                                          public StringWhat {
 public:
  explicit IOUnsupportedException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(IOUnsupportedException)
};

// A broken internal invariant; carries a description.
class KIV_EXPORT InternalError : public virtual Exception, public StringWhat {
 public:
  explicit InternalError(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(InternalError)
};

// A key that cannot be used (empty, malformed).
class KIV_EXPORT InvalidKeyException : public virtual HashException, public NoSuchElementException {
 public:
  explicit InvalidKeyException(bool report = false);
  KIV_EXCEPTION_MEMBERS(InvalidKeyException)
};

// A path that names the node itself where a child is needed.
class KIV_EXPORT KeyIsIdentityException : public virtual HashException,
                                          public NoSuchElementException {
 public:
  explicit KeyIsIdentityException(bool report = false);
  KIV_EXCEPTION_MEMBERS(KeyIsIdentityException)
};

// A path that leaves the table; carries it.
class KIV_EXPORT KeyOutOfBoundsException : public virtual HashException,
                                           public NoSuchElementException,
                                           public StringWhat {
 public:
  explicit KeyOutOfBoundsException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(KeyOutOfBoundsException)
};

// Memory is exhausted. Also a std::bad_alloc.
class KIV_EXPORT MemoryException : public std::bad_alloc, public virtual Exception {
 public:
  explicit MemoryException(bool report = false);
  const char* what() const noexcept override;
  // A fixed text that needs no run-time type lookup, so it works when memory is short.
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(MemoryException)
};

// No default text encoding is available.
class KIV_EXPORT NoDefaultTextEncodingException : public virtual TextEncodingException {
 public:
  explicit NoDefaultTextEncodingException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NoDefaultTextEncodingException)
};

// No Macintosh text encoding is available on this platform.
class KIV_EXPORT NoMacTextEncodingException : public virtual TextEncodingException {
 public:
  explicit NoMacTextEncodingException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NoMacTextEncodingException)
};

// A named element that is not there; carries the name.
class KIV_EXPORT NoSuchNamedElementException : public virtual HashException,
                                               public NoSuchElementException,
                                               public StringWhat {
 public:
  explicit NoSuchNamedElementException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(NoSuchNamedElementException)
};

// No converter to or from wide text exists for an encoding.
class KIV_EXPORT NoUnicodeConverterException : public virtual TextEncodingException,
                                               public CannotConvertException {
 public:
  explicit NoUnicodeConverterException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NoUnicodeConverterException)
};

// A resource that cannot be opened asynchronously.
class KIV_EXPORT NotAsynchronousException : public virtual ResourceException {
 public:
  explicit NotAsynchronousException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NotAsynchronousException)
};

// A stream without a position was asked for one.
class KIV_EXPORT NotRandomAccessException : public virtual IOException {
 public:
  explicit NotRandomAccessException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NotRandomAccessException)
};

// A name that is not a resource.
class KIV_EXPORT NotResourceException : public virtual ResourceException {
 public:
  explicit NotResourceException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NotResourceException)
};

// A resource that cannot be opened synchronously.
class KIV_EXPORT NotSynchronousException : public virtual ResourceException {
 public:
  explicit NotSynchronousException(bool report = false);
  KIV_EXCEPTION_MEMBERS(NotSynchronousException)
};

// A call through a null handle; carries the interface's short name.
class KIV_EXPORT NullPointerException : public virtual Exception, public StringWhat {
 public:
  explicit NullPointerException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(NullPointerException)
};

// A resource could not be opened.
class KIV_EXPORT OpenFailedException : public virtual ResourceException {
 public:
  explicit OpenFailedException(bool report = false);
  KIV_EXCEPTION_MEMBERS(OpenFailedException)
};

// An operating-system failure on a resource; carries a description and the OS error code.
class KIV_EXPORT ResourceOSException : public virtual ResourceException,
                                       public StringWhat,
                                       public FSErr {
 public:
  explicit ResourceOSException(const String& what, std::int32_t error, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(ResourceOSException)
};

// A wait ran out of time.
class KIV_EXPORT TimeoutException : public virtual Exception {
 public:
  explicit TimeoutException(bool report = false);
  KIV_EXCEPTION_MEMBERS(TimeoutException)
};

// Data ended where more was required.
class KIV_EXPORT UnexpectedEOFException : public virtual IOException {
 public:
  explicit UnexpectedEOFException(bool report = false);
  KIV_EXCEPTION_MEMBERS(UnexpectedEOFException)
};

// An operation that is not implemented; carries its name.
class KIV_EXPORT Unimplemented : public InternalError {
 public:
  explicit Unimplemented(const String& what, bool report = false);
  KIV_EXCEPTION_MEMBERS(Unimplemented)
};

// A failure of unknown kind; carries a description.
class KIV_EXPORT UnknownException : public InternalError {
 public:
  explicit UnknownException(const String& what, bool report = false);
  KIV_EXCEPTION_MEMBERS(UnknownException)
};

// A converter name that is not registered; carries it.
class KIV_EXPORT UnknownDataConverterException : public virtual DataConverterException,
                                                 public UnknownException {
 public:
  explicit UnknownDataConverterException(const String& what, bool report = false);
  KIV_EXCEPTION_MEMBERS(UnknownDataConverterException)
};

// An I/O failure of unknown kind; carries a description.
class KIV_EXPORT UnknownIOException : public virtual IOException, public UnknownException {
 public:
  explicit UnknownIOException(const String& what, bool report = false);
  KIV_EXCEPTION_MEMBERS(UnknownIOException)
};

// An encoding name that is not known; carries it.
class KIV_EXPORT UnknownTextEncodingException : public virtual TextEncodingException,
                                                public StringWhat {
 public:
  explicit UnknownTextEncodingException(const String& what, bool report = false);
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(UnknownTextEncodingException)
};

// A year that a date cannot represent; carries it.
class KIV_EXPORT UnrepresentableYearException : public virtual DateException,
                                                public BoundsException {
 public:
  explicit UnrepresentableYearException(std::int64_t year, bool report = false);
  KIV_EXCEPTION_MEMBERS(UnrepresentableYearException)
};
// The light assertion family: not counted, and printed to the standard error stream when made
// ("kiv::AssertException " followed by the AssertPrint record), whoever catches it.
class KIV_EXPORT AssertException {
 public:
  AssertException(const char* expression, const char* file, std::uint32_t line);
  // Copies (as made by throw) do not print again.
  AssertException(const AssertException& other) noexcept = default;
  AssertException& operator=(const AssertException& other) noexcept = default;
  virtual void Rethrow() const;
  virtual ~AssertException();

  const char* What() const noexcept { return expression_; }
  const char* File() const noexcept { return file_; }
  std::uint32_t Line() const noexcept { return line_; }

 protected:
  const char* expression_;
  const char* file_;
  std::uint32_t line_;
};

// A null pointer met where one was asserted not to be; the expression is the short class name of
// the run-time type name given, held in a heap copy of its own.
class KIV_EXPORT NullPointerAssertException : public AssertException {
 public:
  NullPointerAssertException(const char* type_name, const char* file, std::uint32_t line);
  NullPointerAssertException(const NullPointerAssertException& other);
  NullPointerAssertException& operator=(const NullPointerAssertException& other);
  void Rethrow() const override;
  ~NullPointerAssertException() override;
};

class KIV_EXPORT BoundsAssertException : public AssertException {
 public:
  BoundsAssertException(const char* expression, const char* file, std::uint32_t line);
  void Rethrow() const override;
  ~BoundsAssertException() override;
};

// Make the matching assertion (which prints itself) and throw it.
[[noreturn]] KIV_EXPORT void AssertionFailed(const char* expression, const char* file,
                                             std::uint32_t line);
[[noreturn]] KIV_EXPORT void NullPointerAssertion(const char* type_name, const char* file,
                                                  std::uint32_t line);
[[noreturn]] KIV_EXPORT void BoundsAssertion(const char* expression, const char* file,
                                             std::uint32_t line);
// Writes the assertion record to the standard error stream.
KIV_EXPORT void AssertPrint(const void* expression, const void* file, unsigned int line);

#define KIV_ASSERT(e) ((e) ? (void)0 : ::kiv::AssertionFailed(#e, __FILE__, __LINE__))

// Trace output to the standard error stream. TracePrintObj passes (text, class name, object) to
// the format, with "NULL" as the class name of a null object.
KIV_EXPORT int TracePrint(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
KIV_EXPORT int TracePrintObj(const char* format, const char* text, const RefCount* object);
KIV_EXPORT int TracePrintObj(const char* format, const char* text, const RefCount& object);
KIV_EXPORT void TraceFlush();

// Library exceptions do not derive from std::exception (two of them already derive from standard
// exceptions, and a second std::exception base would make such catches ambiguous), so a host's
// `catch (const std::exception&)` does not see them. For a `catch (...)` block: the text of the
// exception being handled, in UTF-8. A library exception gives its ToString() text
// ("kiv::BoundsException - 42"), an assertion its expression, file and line, a standard exception
// its type and what() ("std::out_of_range: vector"), anything else "unknown exception"; "no
// exception" outside a handler. Never throws.
[[nodiscard]] KIV_EXPORT std::string DescribeCurrentException() noexcept;
// Makes an exception that escapes a thread print "terminate called after throwing " and its
// DescribeCurrentException() text on the standard error stream before the process aborts.
KIV_EXPORT void InstallTerminateHandler() noexcept;

// Reporters for failures while a singleton is built ("static_const_errs.txt") or torn down
// ("static_destr_errs.txt"), appended in the current directory. `name` is the holder's short class
// name. Construction reporters end the process when `fatal`, else rethrow when `rethrow`.
KIV_EXPORT void StaticConstructionException(const char* name, const AssertException& e, bool fatal,
                                            bool rethrow);
KIV_EXPORT void StaticConstructionException(const char* name, const Exception& e, bool fatal,
                                            bool rethrow);
KIV_EXPORT void StaticConstructionException(const char* name, bool fatal);
KIV_EXPORT void StaticDestructionException(const char* name, const AssertException& e);
KIV_EXPORT void StaticDestructionException(const char* name, const Exception& e);
KIV_EXPORT void StaticDestructionException(const char* name);

}  // namespace kiv

#endif  // KIV_EXCEPTION_H_
