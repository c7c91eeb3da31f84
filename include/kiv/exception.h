// Failures: the counted exception hierarchy, its payload mixins and category tags, the light
// assertion family, trace output and the reporters for failures of static singletons.
//
// The exception classes themselves are listed in kiv/exceptions.def, one line each with its base
// classes, payload and text, and declared here from that list.
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

// Payload: a nested exception. KEPT: the mixin owns a private clone of what it was given (never
// shared) and deletes it directly, not through the count.
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

// Helpers that expand the lines of kiv/exceptions.def. KIV_EXC_APPLY(M_, a, b) is M_2(a, b): the
// form of M_ for one, two or three arguments, or nothing for none.
// clang-format off
#define KIV_EXC_PICK(a1, a2, a3, chosen, ...) chosen
#define KIV_EXC_APPLY(m, ...) __VA_OPT__(KIV_EXC_PICK(__VA_ARGS__, m##3, m##2, m##1, )(__VA_ARGS__))
#define KIV_EXC_IF(text, ...) __VA_OPT__(text)
#define KIV_EXC_COMMA ,
#define KIV_EXC_PUBLIC_1(a) public a
#define KIV_EXC_PUBLIC_2(a, b) public a, public b
#define KIV_EXC_PUBLIC_3(a, b, c) public a, public b, public c
// `public virtual Family` (when there is one), then the other bases, each public.
#define KIV_EXC_BASES(family, ...)                                                 \
  KIV_EXC_IF(public virtual family KIV_EXC_IF(KIV_EXC_COMMA, __VA_ARGS__), family) \
  KIV_EXC_APPLY(KIV_EXC_PUBLIC_, __VA_ARGS__)
// The constructor's parameters for each kind of payload.
#define KIV_EXC_PARAMS_None bool report
#define KIV_EXC_PARAMS_String const String& what, bool report
#define KIV_EXC_PARAMS_Int std::int64_t what, bool report
#define KIV_EXC_PARAMS_Nested const Exception* what, bool report
#define KIV_EXC_PARAMS_OSError const String& what, std::int32_t error, bool report
// The ToString() override for each text form that has one.
#define KIV_EXC_DECLARE_TEXT_Name
#define KIV_EXC_DECLARE_TEXT_WithPayload String ToString() const override;
#define KIV_EXC_DECLARE_TEXT_Inherited
#define KIV_EXC_DECLARE_TEXT_Own String ToString() const override;

// Every exception class, read from the list in kiv/exceptions.def.
#define KIV_EXCEPTION(C, Family, Payload, Text, ...)              \
  class KIV_EXPORT C : KIV_EXC_BASES(Family, __VA_ARGS__) {       \
   public:                                                        \
    explicit C(KIV_EXC_PARAMS_##Payload = false);                 \
    KIV_EXC_DECLARE_TEXT_##Text                                   \
    KIV_EXCEPTION_MEMBERS(C)                                      \
  };
#define KIV_STD_EXCEPTION(C, StdBase)                             \
  class KIV_EXPORT C : public StdBase, public virtual Exception { \
   public:                                                        \
    explicit C(bool report = false);                              \
    const char* what() const noexcept override;                   \
    String ToString() const override;                             \
    KIV_EXCEPTION_MEMBERS(C)                                      \
  };
// clang-format on
#include <kiv/exceptions.def>

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
