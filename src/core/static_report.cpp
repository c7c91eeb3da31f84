#include <cstdio>
#include <exception>

#include "kiv/encodings.h"
#include "kiv/exception.h"

namespace kiv {

namespace {

constexpr const char kConstructionFile[] = "static_const_errs.txt";
constexpr const char kDestructionFile[] = "static_destr_errs.txt";

// Opens, writes and closes the file for every record; an unopenable file loses the record.
template <class... Args>
void Append(const char* path, const char* format, Args... args) {
  std::FILE* f = std::fopen(path, "a");
  if (f == nullptr) return;
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
#endif
  std::fprintf(f, format, args...);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
  std::fclose(f);
}

void AppendAssertion(const char* path, const char* heading, const char* name,
                     const AssertException& e) {
  Append(path, heading, name, e.What() ? e.What() : "");
  Append(path, "\tline: %u, file: \"%s\"\n", static_cast<unsigned>(e.Line()),
         e.File() ? e.File() : "");
}

// The exception's text as narrow 8-bit text (UTF-8, the system encoding here).
void AppendException(const char* path, const char* heading, const char* name, const Exception& e) {
  try {
    CString text(e.ToString()->Encode(TextEncodingExp::MakeSystemDefault()));
    Append(path, heading, name, text.c_str());
  } catch (...) {
    Append(path, heading, name, "Error - Exception::ToString() internal error");
  }
}

}  // namespace

void StaticConstructionException(const char* name, const AssertException& e, bool fatal,
                                 bool rethrow) {
  AppendAssertion(kConstructionFile, "static construction assertion failed within %s: %s\n", name,
                  e);
  if (fatal) std::terminate();
  if (rethrow) e.Rethrow();
}

void StaticConstructionException(const char* name, const Exception& e, bool fatal, bool rethrow) {
  AppendException(kConstructionFile, "static construction exception within %s: %s\n", name, e);
  if (fatal) std::terminate();
  if (rethrow) e.Rethrow();
}

// KEPT: the construction record of an unknown exception ends "type unknown." with a full stop and
// the destruction record "type unknown" without one; readers of these files match both texts.
void StaticConstructionException(const char* name, bool fatal) {
  Append(kConstructionFile, "static construction exception within %s: type unknown.\n", name);
  if (fatal) std::terminate();
}

void StaticDestructionException(const char* name, const AssertException& e) {
  AppendAssertion(kDestructionFile, "static destruction assertion failed within %s: %s\n", name, e);
}

void StaticDestructionException(const char* name, const Exception& e) {
  AppendException(kDestructionFile, "static destruction exception within %s: %s\n", name, e);
}

void StaticDestructionException(const char* name) {
  Append(kDestructionFile, "static destruction exception within %s: type unknown\n", name);
}

}  // namespace kiv
