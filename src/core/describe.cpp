// Describing an exception of any kind, and the terminate handler that uses it.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <typeinfo>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "platform/type_name.h"

namespace kiv {

namespace {

std::string Utf8(const String& text) {
  String utf8 = text->Encode(TextEncodingExp::MakeUTF8());
  return std::string(static_cast<const char*>(utf8->GetData()), utf8->ByteLength());
}

std::string TypeName(const std::type_info& type) {
  char name[512];
  const char* readable = platform::ReadableTypeName(type, name, sizeof name);
  return readable != nullptr ? readable : type.name();
}

std::string Describe() {
  try {
    throw;
  } catch (const Exception& e) {
    return Utf8(e.ToString());
  } catch (const AssertException& e) {
    return std::string("kiv::AssertException: \"") + (e.What() ? e.What() : "") + "\" at " +
           (e.File() ? e.File() : "?") + ":" + std::to_string(e.Line());
  } catch (const std::exception& e) {
    return TypeName(typeid(e)) + ": " + e.what();
  } catch (...) {
    return "unknown exception";
  }
}

[[noreturn]] void TerminateWithDescription() {
  if (std::current_exception()) {
    std::fprintf(stderr, "terminate called after throwing %s\n",
                 DescribeCurrentException().c_str());
  } else {
    std::fputs("terminate called without an active exception\n", stderr);
  }
  std::abort();
}

}  // namespace

std::string DescribeCurrentException() noexcept {
  if (!std::current_exception()) return "no exception";
  try {
    return Describe();
  } catch (...) {
    // Out of memory while describing: a text that needs no allocation of its own.
    return "unknown exception";
  }
}

void InstallTerminateHandler() noexcept { std::set_terminate(&TerminateWithDescription); }

}  // namespace kiv
