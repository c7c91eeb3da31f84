#include <stdexcept>

#include "kiv/exception.h"
#include "kiv/object.h"
#include "platform/interlocked.h"
#include "platform/type_name.h"

namespace kiv {

// `object_` and `destroyed_` are not given initialisers here: a holder with static storage is
// zero-filled before any constructor runs, and another static initialiser may already have built
// the singleton through it. The constructor must not undo that.
StaticRefBase::StaticRefBase(bool fatal, void* (*factory)(), RefCount* (*caster)(void*),
                             const std::type_info& holder_type)
    : caster_(caster), holder_type_(&holder_type) {
  if (platform::InterlockedLoadPointer(&object_) != nullptr) return;
  AllocObject(fatal, true, factory, caster);
}

StaticRefBase::~StaticRefBase() {
  destroyed_ = true;
  void* seen = platform::InterlockedLoadPointer(&object_);
  if (seen == nullptr) return;
  char name[platform::kTypeNameRoom];
  GetClassName(name, sizeof name);
  try {
    RefCount* counted = caster_(seen);
    object_ = nullptr;
    RefCount::Release(counted);
  } catch (const Exception& e) {
    StaticDestructionException(name, e);
  } catch (const AssertException& e) {
    StaticDestructionException(name, e);
  } catch (...) {
    StaticDestructionException(name);
  }
}

void* StaticRefBase::GetObject(bool fatal, void* (*factory)(), RefCount* (*caster)(void*)) {
  void* seen = platform::InterlockedLoadPointer(&object_);
  if (seen != nullptr) return seen;
  AllocObject(fatal, true, factory, caster);
  return platform::InterlockedLoadPointer(&object_);
}

void StaticRefBase::AllocObject(bool fatal, bool rethrow, void* (*factory)(),
                                RefCount* (*caster)(void*)) {
  char name[platform::kTypeNameRoom];
  if (destroyed_) {
    GetClassName(name, sizeof name);
    throw std::logic_error(name);
  }
  try {
    void* made = factory();
    RefCount::AddRef(caster(made));
    // Two threads may race through first use and both build; the first to publish wins and the
    // other drops its copy, so nothing leaks and every caller sees one object.
    if (platform::InterlockedCompareExchangePointer(&object_, made, nullptr) != nullptr) {
      RefCount::Release(caster(made));
    }
  } catch (const Exception& e) {
    GetClassName(name, sizeof name);
    StaticConstructionException(name, e, fatal, rethrow);
  } catch (const AssertException& e) {
    GetClassName(name, sizeof name);
    StaticConstructionException(name, e, fatal, rethrow);
  } catch (...) {
    GetClassName(name, sizeof name);
    StaticConstructionException(name, fatal);
    if (rethrow) throw;
  }
}

void StaticRefBase::ReplaceObject(void* new_object, RefCount* (*caster)(void*)) {
  void* seen = platform::InterlockedLoadPointer(&object_);
  for (;;) {
    void* found = platform::InterlockedCompareExchangePointer(&object_, new_object, seen);
    if (found == seen) break;
    seen = found;
  }
  if (new_object != nullptr) RefCount::AddRef(caster(new_object));
  if (seen != nullptr) RefCount::Release(caster(seen));
}

const char* StaticRefBase::GetClassName(char* buffer, unsigned size) const noexcept {
  if (buffer == nullptr || size == 0) return buffer;
  char readable[platform::kTypeNameRoom];
  const char* name = platform::ReadableTypeName(*holder_type_, readable, sizeof readable);
  RTTI2ClassName(buffer, size, name != nullptr ? name : "kiv::StaticRefBase");
  return buffer;
}

}  // namespace kiv
