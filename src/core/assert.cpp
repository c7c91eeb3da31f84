#include <cstdio>
#include <cstring>

#include "kiv/exception.h"
#include "platform/type_name.h"

namespace kiv {

void AssertPrint(const void* expression, const void* file, unsigned int line) {
  std::fprintf(stderr, "ASSERTION FAILED - \"%s\"\n file \"%s\"; line %u\n",
               expression ? static_cast<const char*>(expression) : "<null expression string>",
               file ? static_cast<const char*>(file) : "<null file name>", line);
}

AssertException::AssertException(const char* expression, const char* file, std::uint32_t line)
    : expression_(expression), file_(file), line_(line) {
  // Always the base class's name, also while a derived assertion is being made.
  std::fprintf(stderr, "%s ", "kiv::AssertException");
  AssertPrint(expression, file, line);
}
void AssertException::Rethrow() const { throw *this; }
AssertException::~AssertException() = default;

namespace {

char* ShortNameCopy(const char* type_name) {
  char name[platform::kTypeNameRoom];
  unsigned n = RTTI2ClassName(name, sizeof name, type_name);
  char* copy = new char[n + 1];
  std::memcpy(copy, name, n + 1);
  return copy;
}

char* TextCopy(const char* text) {
  if (text == nullptr) return nullptr;
  std::size_t n = std::strlen(text);
  char* copy = new char[n + 1];
  std::memcpy(copy, text, n + 1);
  return copy;
}

}  // namespace

NullPointerAssertException::NullPointerAssertException(const char* type_name, const char* file,
                                                       std::uint32_t line)
    : AssertException(ShortNameCopy(type_name), file, line) {}
NullPointerAssertException::NullPointerAssertException(const NullPointerAssertException& other)
    : AssertException(other) {
  expression_ = TextCopy(other.expression_);
}
NullPointerAssertException& NullPointerAssertException::operator=(
    const NullPointerAssertException& other) {
  if (this != &other) {
    char* copy = TextCopy(other.expression_);
    delete[] expression_;
    AssertException::operator=(other);
    expression_ = copy;
  }
  return *this;
}
void NullPointerAssertException::Rethrow() const { throw *this; }
NullPointerAssertException::~NullPointerAssertException() { delete[] expression_; }

BoundsAssertException::BoundsAssertException(const char* expression, const char* file,
                                             std::uint32_t line)
    : AssertException(expression, file, line) {}
void BoundsAssertException::Rethrow() const { throw *this; }
BoundsAssertException::~BoundsAssertException() = default;

void AssertionFailed(const char* expression, const char* file, std::uint32_t line) {
  throw AssertException(expression, file, line);
}
void NullPointerAssertion(const char* type_name, const char* file, std::uint32_t line) {
  throw NullPointerAssertException(type_name, file, line);
}
void BoundsAssertion(const char* expression, const char* file, std::uint32_t line) {
  throw BoundsAssertException(expression, file, line);
}

}  // namespace kiv
