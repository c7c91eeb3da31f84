// The object model: one intrusive, thread-safe reference count per object, the untyped handle
// `Object`, the typed handle `Ref<T>`, lazily built process-wide singletons and readable class
// names.
//
// Every interface (`...Itf`) derives virtually from `RefCount`, so an object implementing several
// interfaces still carries exactly one count. Handles own one reference each; the object is
// finalised and deleted when the last one goes.
#ifndef KIV_OBJECT_H_
#define KIV_OBJECT_H_

#include <kiv/export.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <typeinfo>

namespace kiv {

// A signed 32-bit word whose read-modify-write operations are interlocked. Plain reads and writes
// are ordinary loads and stores.
class KIV_EXPORT AtomicCounter {
 public:
  AtomicCounter() noexcept : value_(0) {}
  AtomicCounter(std::int32_t value) noexcept : value_(value) {}  // NOLINT: implicit by design
  AtomicCounter(const AtomicCounter& other) noexcept : value_(other.value_) {}

  std::int32_t Get() const noexcept { return value_; }
  operator std::int32_t() const noexcept { return value_; }
  void Set(std::int32_t value) noexcept { value_ = value; }
  AtomicCounter& operator=(std::int32_t value) noexcept {
    value_ = value;
    return *this;
  }
  AtomicCounter& operator=(const AtomicCounter& other) noexcept {
    value_ = other.value_;
    return *this;
  }

  void Add(std::int32_t n) noexcept;
  AtomicCounter& operator+=(std::int32_t n) noexcept;
  AtomicCounter& operator+=(const AtomicCounter& n) noexcept;
  void Subtract(std::int32_t n) noexcept;
  AtomicCounter& operator-=(std::int32_t n) noexcept;
  AtomicCounter& operator-=(const AtomicCounter& n) noexcept;
  void Increment() noexcept;
  AtomicCounter& operator++() noexcept;
  // KEPT: the postfix forms return the counter itself, not the old value; callers rely on that.
  AtomicCounter& operator++(int) noexcept;
  void Decrement() noexcept;
  AtomicCounter& operator--() noexcept;
  AtomicCounter& operator--(int) noexcept;

  // Each returns 1 when the condition holds on the new value, else 0.
  int SubtractAndTestZero(std::int32_t n) noexcept;
  int DecrementAndTestZero() noexcept;
  int IncrementAndTestZero() noexcept;
  int AddAndTestNegative(std::int32_t n) noexcept;
  // Stores `new_value` when the word holds `expected`; returns 1 when it did.
  int TestAndSet(std::int32_t new_value, std::int32_t expected) noexcept;

  static void* operator new(std::size_t size);
  static void operator delete(void* p) noexcept;
  static void* operator new[](std::size_t size);
  static void operator delete[](void* p) noexcept;

 private:
  std::int32_t value_;
};

// Adds `delta` to `*word` atomically and returns the new value.
KIV_EXPORT std::int32_t AtomicAdd(std::int32_t* word, std::int32_t delta) noexcept;
// One atomic compare-exchange; returns the value the word held before.
KIV_EXPORT std::int32_t CompareAndSwap(std::int32_t* word, std::int32_t new_value,
                                       std::int32_t expected) noexcept;

// The counted base of every shared object.
//
// The count lives at `outer->count`: an aggregate points the `outer` of its inner parts at itself
// (SetOuter) so the whole shares one count. Copying a RefCount copies `outer` and `count` as they
// stand; derived classes that need a fresh count construct their base with RefCount().
class KIV_EXPORT RefCount {
 public:
  // Null is ignored.
  static void AddRef(const RefCount* p) noexcept;
  // Drops one reference. At zero the object is finalised under a guard reference; if Finalize
  // handed out a new reference the object survives ("revival"), otherwise it is deleted.
  static void Release(RefCount* p) noexcept;
  // Null-safe equality and ordering through the virtual Equals/Compare; never throw.
  static bool Equals(const RefCount* a, const RefCount* b) noexcept;
  static int Compare(const RefCount* a, const RefCount* b) noexcept;

  // Writes the short class name of the most derived type ("kiv::HashtableImpl") and returns the
  // characters written. KEPT: the 16-bit form takes and returns sizes in bytes (the name is
  // written as bytes and widened in place, each byte sign-extended).
  unsigned GetClassName(char* buffer, unsigned size) const noexcept;
  unsigned GetClassName(unsigned short* buffer, unsigned size) const noexcept;

  // Default: identity.
  virtual bool Equals(const RefCount& other) const;
  // Default: address difference, this minus other.
  virtual int Compare(const RefCount& other) const;
  virtual ~RefCount();

  static void* operator new(std::size_t size);
  static void operator delete(void* p) noexcept;
  static void* operator new[](std::size_t size);
  static void operator delete[](void* p) noexcept;

 protected:
  RefCount() noexcept : outer_(this), count_(0) {}
  explicit RefCount(std::int32_t initial) noexcept : outer_(this), count_(initial) {}
  // KEPT: a copy takes the source's outer link and count exactly as they stand; a derived class
  // that needs a fresh count starts one in its own copy constructor.
  RefCount(const RefCount& other) noexcept = default;
  RefCount& operator=(const RefCount& other) noexcept = default;

  // Called at the last release, before deletion. May take a new reference to keep the object.
  virtual void Finalize();
  // Hooks for derived classes; the library's own counting never calls them.
  virtual void ReferenceAdded() const;
  virtual void ReferenceReleased() const;

  // Makes this object share the count of `outer`'s final owner. Null changes nothing.
  void SetOuter(RefCount* outer) noexcept;
  // The current count (of the outer object); for diagnostics and tests.
  std::int32_t GetCount() const noexcept;

 private:
  RefCount* outer_;
  std::int32_t count_;
};

// Untyped counted handle. Assignment adds the new reference, swaps the slot atomically and then
// releases the old one, so self-assignment and concurrent assignment are safe.
class KIV_EXPORT Object {
 public:
  Object() noexcept : ptr_(nullptr) {}
  Object(const RefCount* p) noexcept : ptr_(const_cast<RefCount*>(p)) {  // NOLINT: implicit
    RefCount::AddRef(p);
  }
  Object(const RefCount& r) noexcept : Object(&r) {}  // NOLINT: implicit
  Object(const Object& other) noexcept : Object(other.ptr_) {}
  Object(Object&& other) noexcept : ptr_(other.ptr_) { other.ptr_ = nullptr; }
  ~Object() { RefCount::Release(ptr_); }

  Object& operator=(const RefCount* p) noexcept {
    RefCount::AddRef(p);
    RefCount::Release(static_cast<RefCount*>(SwapRef(&ptr_, p)));
    return *this;
  }
  Object& operator=(const RefCount& r) noexcept { return *this = &r; }
  Object& operator=(const Object& other) noexcept { return *this = other.ptr_; }
  Object& operator=(Object&& other) noexcept {
    if (this != &other) {
      RefCount::Release(static_cast<RefCount*>(SwapRef(&ptr_, other.ptr_)));
      other.ptr_ = nullptr;
    }
    return *this;
  }

  // Atomically stores `new_value` in the pointer slot `slot` and returns the old pointer.
  static void* SwapRef(void* slot, const void* new_value) noexcept;

  bool operator!() const noexcept { return ptr_ == nullptr; }
  explicit operator bool() const noexcept { return ptr_ != nullptr; }
  RefCount& operator*() noexcept { return *ptr_; }
  const RefCount& operator*() const noexcept { return *ptr_; }
  RefCount* operator->() {
    if (!ptr_) DereferencingNULLObj(typeid(RefCount*));
    return ptr_;
  }
  const RefCount* operator->() const {
    if (!ptr_) DereferencingNULLObj(typeid(RefCount*));
    return ptr_;
  }
  // The raw pointer, possibly null; no reference is added.
  RefCount* Get() const noexcept { return ptr_; }

  bool operator==(const RefCount* p) const noexcept { return RefCount::Equals(ptr_, p); }
  bool operator==(const Object& o) const noexcept { return RefCount::Equals(ptr_, o.ptr_); }
  bool operator!=(const RefCount* p) const noexcept { return !RefCount::Equals(ptr_, p); }
  bool operator!=(const Object& o) const noexcept { return !RefCount::Equals(ptr_, o.ptr_); }
  bool operator<(const Object& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) < 0; }
  bool operator<=(const Object& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) <= 0; }
  bool operator>(const Object& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) > 0; }
  bool operator>=(const Object& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) >= 0; }

  // Null handle: null. Otherwise the result of `cast`; a null result throws BadCastException.
  void* DynamicCast(void* (*cast)(RefCount*)) const;

  // Throw NullPointerException whose text is the short class name of `type_name`.
  [[noreturn]] static void DereferencingNULLObj(const char* type_name);
  // The same for a run-time type; the platform layer renders it readably first.
  [[noreturn]] static void DereferencingNULLObj(const std::type_info& type);

 private:
  RefCount* ptr_;
};

// Selects the handle constructors that take over a reference already counted instead of adding
// one: for an object made with a count of one (RefCount(1)) and handed to exactly one handle, so
// that making it costs no interlocked operation.
struct AdoptRef {
  explicit AdoptRef() = default;
};
inline constexpr AdoptRef kAdoptRef{};

// Typed counted handle over an interface T that derives virtually from RefCount.
template <class T>
class Ref {
 public:
  Ref() noexcept : ptr_(nullptr) {}
  Ref(const T* p) noexcept : ptr_(const_cast<T*>(p)) { RefCount::AddRef(p); }  // NOLINT
  Ref(T* p, AdoptRef) noexcept : ptr_(p) {}
  Ref(const T& r) noexcept : Ref(&r) {}  // NOLINT
  Ref(const Ref& other) noexcept : Ref(other.ptr_) {}
  Ref(Ref&& other) noexcept : ptr_(other.ptr_) { other.ptr_ = nullptr; }
  // Upcast from a handle of a derived interface.
  template <class U>
  requires(!std::is_same_v<U, T> && std::is_convertible_v<U*, T*>) Ref(const Ref<U>& other)
  noexcept : Ref(other.Get()) {}  // NOLINT
  // Checked down-cast: a null Object gives a null Ref; a non-T object throws BadCastException.
  Ref(const Object& o) : ptr_(static_cast<T*>(o.DynamicCast(&CastFunc))) {  // NOLINT
    RefCount::AddRef(ptr_);
  }
  ~Ref() { RefCount::Release(ptr_); }

  Ref& operator=(const T* p) noexcept {
    RefCount::AddRef(p);
    T* old = static_cast<T*>(Object::SwapRef(&ptr_, p));
    RefCount::Release(old);
    return *this;
  }
  Ref& operator=(const T& r) noexcept { return *this = &r; }
  Ref& operator=(const Ref& other) noexcept { return *this = other.ptr_; }
  Ref& operator=(Ref&& other) noexcept {
    if (this != &other) {
      T* old = static_cast<T*>(Object::SwapRef(&ptr_, other.ptr_));
      other.ptr_ = nullptr;
      RefCount::Release(old);
    }
    return *this;
  }
  Ref& operator=(const Object& o) { return *this = static_cast<T*>(o.DynamicCast(&CastFunc)); }

  operator Object() const noexcept { return Object(static_cast<const RefCount*>(ptr_)); }

  T* operator->() {
    if (!ptr_) Object::DereferencingNULLObj(typeid(T*));
    return ptr_;
  }
  const T* operator->() const {
    if (!ptr_) Object::DereferencingNULLObj(typeid(T*));
    return ptr_;
  }
  T& GetObjRef() { return *operator->(); }
  const T& GetObjRef() const { return *operator->(); }
  T& operator*() noexcept { return *ptr_; }
  const T& operator*() const noexcept { return *ptr_; }
  bool operator!() const noexcept { return ptr_ == nullptr; }
  explicit operator bool() const noexcept { return ptr_ != nullptr; }
  // The raw pointer, possibly null; no reference is added.
  T* Get() const noexcept { return ptr_; }

  bool operator==(const T* p) const noexcept { return RefCount::Equals(ptr_, p); }
  bool operator==(const Ref& o) const noexcept { return RefCount::Equals(ptr_, o.ptr_); }
  bool operator!=(const T* p) const noexcept { return !RefCount::Equals(ptr_, p); }
  bool operator!=(const Ref& o) const noexcept { return !RefCount::Equals(ptr_, o.ptr_); }
  bool operator<(const Ref& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) < 0; }
  bool operator<=(const Ref& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) <= 0; }
  bool operator>(const Ref& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) > 0; }
  bool operator>=(const Ref& o) const noexcept { return RefCount::Compare(ptr_, o.ptr_) >= 0; }

 protected:
  // Run-time checked down-cast from the counted base; null when the object is not a T.
  static void* CastFunc(RefCount* p) { return dynamic_cast<T*>(p); }

 private:
  T* ptr_;
};

// A counted object that refers to a T without owning a reference, so the referent may go away
// while the soft pointer is still held. Whoever owns the referent clears the soft pointer (Reset)
// before the referent dies; readers must guard Get() with the owner's lock.
template <class T>
class SoftPtr : public virtual RefCount {
 public:
  explicit SoftPtr(T* target = nullptr) noexcept : target_(target) {}
  T* Get() const noexcept { return target_; }
  void Reset(T* target = nullptr) noexcept { target_ = target; }

 private:
  T* target_;
};

// The counted handle of a soft pointer.
template <class T>
using SoftPtrRef = Ref<SoftPtr<T>>;

// Holder of a lazily built singleton. Derived holders (see StaticRef) supply the factory and the
// caster from the untyped slot to the counted base. Building takes no lock: two threads that race
// on first use may both run the factory; the first object published wins and the other is
// released. Once the holder is destroyed, every use throws std::logic_error naming it.
//
// Holders must live in static (zero-filled) storage: a holder that another static initialiser
// used before its own constructor ran keeps the object already built.
class KIV_EXPORT StaticRefBase {
 protected:
  StaticRefBase(bool fatal, void* (*factory)(), RefCount* (*caster)(void*),
                const std::type_info& holder_type);
  ~StaticRefBase();
  StaticRefBase(const StaticRefBase&) = delete;
  StaticRefBase& operator=(const StaticRefBase&) = delete;

  void* GetObject(bool fatal, void* (*factory)(), RefCount* (*caster)(void*));
  void AllocObject(bool fatal, bool rethrow, void* (*factory)(), RefCount* (*caster)(void*));
  void ReplaceObject(void* new_object, RefCount* (*caster)(void*));
  // Writes the short class name of the holder's own type and returns `buffer`.
  const char* GetClassName(char* buffer, unsigned size) const noexcept;

 private:
  void* object_;
  RefCount* (*caster_)(void*);
  bool destroyed_;
  // The holder's own type, for its diagnostics (the holder has no vtable to ask).
  const std::type_info* holder_type_;
};

// A singleton holder for an object of interface T. `Derived` is the concrete holder class and
// supplies `static T* Make()`; its name is the one that diagnostics show.
template <class T, class Derived>
class StaticRef : public StaticRefBase {
 public:
  explicit StaticRef(bool fatal = false)
      : StaticRefBase(fatal, &MakeErased, &Cast, typeid(Derived)), fatal_(fatal) {}

  // A new reference to the singleton, building it if needed.
  Ref<T> Get() { return Ref<T>(static_cast<T*>(GetObject(fatal_, &MakeErased, &Cast))); }
  void Replace(T* object) { ReplaceObject(object, &Cast); }

 private:
  static void* MakeErased() { return Derived::Make(); }
  static RefCount* Cast(void* p) { return static_cast<T*>(p); }
  bool fatal_;
};

// Declares a value handle `Name` over `Ref<Itf>`: the handle adds no state and no operations of
// its own beyond the interface it reaches through `->`.
#define KIV_DECLARE_HANDLE(Name, Itf)                                                          \
  class Name : public ::kiv::Ref<Itf> {                                                        \
   public:                                                                                     \
    using ::kiv::Ref<Itf>::Ref;                                                                \
    using ::kiv::Ref<Itf>::operator=;                                                          \
    Name() noexcept = default;                                                                 \
    Name(const ::kiv::Ref<Itf>& r) noexcept : ::kiv::Ref<Itf>(r) {}                            \
    Name(::kiv::Ref<Itf>&& r) noexcept : ::kiv::Ref<Itf>(static_cast<::kiv::Ref<Itf>&&>(r)) {} \
  }

// Copies the short class name out of a run-time type name such as "class kiv::RefCount *": the
// blank-separated word holding the first ':'. Returns the characters written (0 for a null buffer
// or size 0). KEPT: template names stop at their first blank ("kiv::Ref<struct").
KIV_EXPORT unsigned RTTI2ClassName(char* buffer, unsigned size, const char* type_name) noexcept;

// A failed-allocation handler with the original new-handler signature: throws MemoryException.
[[noreturn]] KIV_EXPORT int NewFailedHandler(unsigned size);
// The same for std::set_new_handler.
[[noreturn]] KIV_EXPORT void NewFailedNewHandler();

}  // namespace kiv

#endif  // KIV_OBJECT_H_
