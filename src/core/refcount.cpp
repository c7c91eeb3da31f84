#include <cstring>
#include <exception>
#include <new>
#include <typeinfo>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/object.h"
#include "kiv/string.h"
#include "platform/interlocked.h"
#include "platform/type_name.h"

namespace kiv {

void RefCount::AddRef(const RefCount* p) noexcept {
  if (p != nullptr) platform::InterlockedIncrement(&p->outer_->count_);
}

void RefCount::Release(RefCount* p) noexcept {
  if (p == nullptr) return;
  RefCount* owner = p->outer_;
  // A count of 1 is the caller's own reference: no other holder is left to copy one from, so
  // nobody can raise the count any more, and the last reference goes without an interlocked
  // operation. That 1 then serves as the guard below. The load acquires the decrements of the
  // holders that went before (each one a releasing read-modify-write, so the 1 read here comes at
  // the end of their release sequence), as the decrement to zero would have.
  if (platform::InterlockedLoad(&owner->count_) != 1) {
    if (platform::InterlockedDecrement(&owner->count_) != 0) return;
    // A guard reference keeps handles taken inside Finalize from deleting the object under us.
    // Nobody else holds a reference now, so a plain releasing store is enough.
    platform::InterlockedStore(&owner->count_, 1);
  }
  try {
    p->Finalize();
  } catch (...) {
  }
  // Without a revival the guard is the only reference left, and nobody else can take a new one
  // (references are only made from references), so the object goes without a second interlocked
  // decrement. A reference handed out by Finalize and already dropped again also leaves 1: its
  // decrement was a releasing one, and this load acquires it.
  if (platform::InterlockedLoad(&owner->count_) == 1 ||
      platform::InterlockedDecrement(&owner->count_) == 0) {
    delete p;
  }
}

bool RefCount::Equals(const RefCount* a, const RefCount* b) noexcept {
  if (a == b) return true;
  if (a == nullptr || b == nullptr) return false;
  try {
    return a->Equals(*b);
  } catch (...) {
    return false;
  }
}

int RefCount::Compare(const RefCount* a, const RefCount* b) noexcept {
  if (a == b) return 0;
  if (a == nullptr) return -1;
  if (b == nullptr) return 1;
  try {
    return a->Compare(*b);
  } catch (...) {
    return static_cast<int>(reinterpret_cast<const char*>(a) - reinterpret_cast<const char*>(b));
  }
}

bool RefCount::Equals(const RefCount& other) const { return &other == this; }

int RefCount::Compare(const RefCount& other) const {
  // The address difference narrowed to int, as the original 32-bit build produced it.
  return static_cast<int>(reinterpret_cast<std::intptr_t>(this) -
                          reinterpret_cast<std::intptr_t>(&other));
}

RefCount::~RefCount() = default;
void RefCount::Finalize() {}
void RefCount::ReferenceAdded() const {}
void RefCount::ReferenceReleased() const {}

void RefCount::SetOuter(RefCount* outer) noexcept {
  if (outer != nullptr) outer_ = outer->outer_;
}

std::int32_t RefCount::GetCount() const noexcept {
  return platform::InterlockedLoad(&outer_->count_);
}

void* RefCount::operator new(std::size_t size) { return ::operator new(size); }
void RefCount::operator delete(void* p) noexcept { ::operator delete(p); }
void* RefCount::operator new[](std::size_t size) { return ::operator new[](size); }
void RefCount::operator delete[](void* p) noexcept { ::operator delete[](p); }

namespace {

unsigned CopyFixedText(char* buffer, unsigned size, const char* text) noexcept {
  unsigned n = static_cast<unsigned>(std::strlen(text));
  if (n > size - 1) n = size - 1;
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
  return n;
}

}  // namespace

unsigned RefCount::GetClassName(char* buffer, unsigned size) const noexcept {
  if (buffer == nullptr || size == 0) return 0;
  const char* fixed = nullptr;
  try {
    const std::type_info& type = typeid(*this);
    char readable[platform::kTypeNameRoom];
    const char* name = platform::ReadableTypeName(type, readable, sizeof readable);
    if (name != nullptr) return RTTI2ClassName(buffer, size, name);
    fixed = "<unknown>";
  } catch (const std::bad_typeid&) {
    fixed = "Bad typeid";
  } catch (const std::exception&) {
    fixed = "std exception error";
  } catch (...) {
    fixed = "unknown exception error";
  }
  return CopyFixedText(buffer, size, fixed);
}

unsigned RefCount::GetClassName(unsigned short* buffer, unsigned size) const noexcept {
  if (buffer == nullptr || size < 2) return 0;
  // The 8-bit name goes into the front half of the same storage and is then widened in place from
  // the end backwards, so no second buffer is needed. Sizes are in bytes on both sides.
  char* narrow = reinterpret_cast<char*>(buffer);
  unsigned n = GetClassName(narrow, size / 2);
  for (unsigned i = n + 1; i-- > 0;) {
    buffer[i] =
        static_cast<unsigned short>(static_cast<short>(static_cast<signed char>(narrow[i])));
  }
  return 2 * n;
}

unsigned RTTI2ClassName(char* buffer, unsigned size, const char* type_name) noexcept {
  if (buffer == nullptr || size == 0) return 0;
  if (type_name == nullptr) {
    buffer[0] = '\0';
    return 0;
  }
  const char* colon = std::strchr(type_name, ':');
  // A name without a namespace is never produced by the library's own classes; take its last
  // blank-separated word, which turns "class Foo *" into "Foo" as a reader would expect.
  const char* anchor = colon != nullptr ? colon : type_name;
  const char* start = anchor;
  if (colon == nullptr) {
    const char* end_of_text = type_name + std::strlen(type_name);
    const char* word_end = end_of_text;
    while (word_end > type_name && (word_end[-1] == ' ' || word_end[-1] == '*')) --word_end;
    start = word_end;
    while (start > type_name && start[-1] != ' ') --start;
    anchor = start;
  } else {
    while (start > type_name && start[-1] != ' ') --start;
  }
  const char* end = std::strchr(anchor, ' ');
  if (end == nullptr) end = anchor + std::strlen(anchor);
  unsigned n = static_cast<unsigned>(end - start);
  if (n > size - 1) n = size - 1;
  std::memcpy(buffer, start, n);
  buffer[n] = '\0';
  return n;
}

void* Object::SwapRef(void* slot, const void* new_value) noexcept {
  // One interlocked exchange: the same result as a compare-exchange loop that rereads the slot
  // until it succeeds, without the retries under contention.
  return platform::InterlockedExchangePointer(static_cast<void**>(slot),
                                              const_cast<void*>(new_value));
}

void* Object::DynamicCast(void* (*cast)(RefCount*)) const {
  if (ptr_ == nullptr) return nullptr;
  void* result = cast(ptr_);
  if (result == nullptr) throw BadCastException(true);
  return result;
}

void Object::DereferencingNULLObj(const char* type_name) {
  char name[platform::kTypeNameRoom];
  RTTI2ClassName(name, sizeof name, type_name);
  throw NullPointerException(String(TextEncodingExp::MakeAscii(), static_cast<void*>(name)), true);
}

void Object::DereferencingNULLObj(const std::type_info& type) {
  char readable[platform::kTypeNameRoom];
  const char* name = platform::ReadableTypeName(type, readable, sizeof readable);
  DereferencingNULLObj(name != nullptr ? name : "<unknown>");
}

int NewFailedHandler(unsigned) { throw MemoryException(true); }
void NewFailedNewHandler() { NewFailedHandler(0); }

}  // namespace kiv
