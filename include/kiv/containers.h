// Ordered sequences of counted objects: a doubly linked list and a growable array (the vector),
// both behind one interface pair and handed out as `Container`. They are walked with a one-way
// `EnumerationItf` or with a two-way, repositionable `IteratorItf` that can also remove and
// insert.
//
// A container holds one reference to each element. Containers, enumerations and iterators take
// no lock: a container shared between threads must be guarded by its users.
//
// Containers and enumerations (a table's keys among them) work with range-for:
//
//   for (const kiv::Object& element : container) { ... }
//   for (kiv::String key : table->Keys()) { ... }  // each key cast to a String
#ifndef KIV_CONTAINERS_H_
#define KIV_CONTAINERS_H_

#include <kiv/export.h>
#include <kiv/object.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

namespace kiv {

struct EnumerationItf;
struct IteratorItf;

// One-way walk over a sequence.
struct KIV_EXPORT EnumerationItf : public virtual RefCount {
  ~EnumerationItf() override;
  virtual bool HasMoreElements() const = 0;
  // The next element; NoSuchElementException (or BoundsException for a vector) past the end.
  virtual Object NextElement() = 0;
};

KIV_DECLARE_HANDLE(Enumeration, EnumerationItf);

// Two-way walk that can stand outside the sequence and can change it.
//
// The direction of travel is the natural order (first to last) by default; Forward and Back move
// with and against it. Iterators hold counted references to their container, so they stay safe
// to call after the caller's container handle is gone.
struct KIV_EXPORT IteratorItf : public virtual RefCount {
  ~IteratorItf() override;
  // n steps against the direction of travel (a negative n moves the other way).
  virtual void Back(std::int32_t n) = 0;
  // n steps in the direction of travel (a negative n moves the other way).
  virtual void Forward(std::int32_t n) = 0;
  // A new iterator on the same container, at the same position, with the same direction.
  virtual Ref<IteratorItf> Clone() const = 0;
  // Sets the direction (true = natural order) and returns the previous setting.
  virtual bool SetForward(bool forward) = 0;
  // True when the iterator stands on an element.
  virtual bool IsValid() const = 0;
  // A copy of the current element; BoundsException or NoSuchElementException when not valid.
  virtual Object Current() const = 0;
  // The stored handle of the current element.
  virtual Object& CurrentRef() = 0;
  // Removes the current element and returns it; the iterator first moves one step, forward (true)
  // or back (false).
  virtual Object Remove(bool forward) = 0;
  // Insert next to the current element. KEPT: a list means its own order here, whatever the
  // direction; a vector follows the direction of travel. False only when a vector cannot grow.
  virtual bool InsertBefore(const Object& element) = 0;
  virtual bool InsertAfter(const Object& element) = 0;
};

// Read side of a container.
struct KIV_EXPORT ConstContainerItf : public virtual RefCount {
  ~ConstContainerItf() override;
  [[nodiscard]] virtual std::int32_t Count() const = 0;
  // A new enumeration from the first element to the last.
  [[nodiscard]] virtual Ref<EnumerationItf> Elements() const = 0;
};

// Read and write side of a container. Index access throws NoSuchElementException for index 0 of
// an empty container and BoundsException (carrying the index) for any other index out of range.
struct KIV_EXPORT ContainerItf : public ConstContainerItf {
  ~ContainerItf() override;
  // The stored handle itself.
  virtual Object& ElementAt(std::int32_t index) = 0;
  // A copy of the stored handle.
  virtual Object GetElement(std::int32_t index) const = 0;
  // An iterator at `index`; it need not be valid there.
  virtual Ref<IteratorItf> IteratorAt(std::int32_t index) = 0;
  virtual Ref<IteratorItf> IteratorAtFirst() = 0;
  virtual Ref<IteratorItf> IteratorAtLast() = 0;
  // NoSuchElementException when empty.
  virtual Object First() const = 0;
  virtual Object Last() const = 0;
  // False only when a vector cannot grow; the container is then unchanged.
  virtual bool AddFirst(const Object& element) = 0;
  virtual bool AddLast(const Object& element) = 0;
  // NoSuchElementException when empty.
  virtual Object RemoveFirst() = 0;
  virtual Object RemoveLast() = 0;
  virtual void RemoveAll() = 0;
};

KIV_DECLARE_HANDLE(Container, ContainerItf);

// A counted cell holding one element: the cell of the list, and the base of hashtable buckets
// and queue nodes. Whoever links a cell owns one reference to it. The links are plain pointers;
// a cell unlinked from a list keeps its links.
class KIV_EXPORT Cons : public virtual RefCount {
 public:
  explicit Cons(const Object& element = Object())
      : previous(nullptr), next(nullptr), element(element) {}
  ~Cons() override;

  Cons* previous;  // towards the first element; null at the first
  Cons* next;      // towards the last element; null at the last
  Object element;
};

struct KIV_EXPORT ContainerExp {
  // An empty vector with room for 64 elements.
  [[nodiscard]] static Container MakeVector();
  // An empty vector with exactly `capacity` slots (0 is allowed: the first insertion grows it).
  [[nodiscard]] static Container MakeVector(std::uint32_t capacity);
  // An empty list.
  [[nodiscard]] static Container MakeList();
};

// The input iterator of range-for over an enumeration: one pass, one NextElement per step, so
// changing a container during the walk has the same effect as on its enumeration. A null
// enumeration or container throws NullPointerException at the start of the walk.
class ElementIterator {
 public:
  using value_type = Object;
  using difference_type = std::ptrdiff_t;
  using iterator_concept = std::input_iterator_tag;

  ElementIterator() = default;
  explicit ElementIterator(Ref<EnumerationItf> elements) : elements_(std::move(elements)) {
    Next();
  }

  const Object& operator*() const noexcept { return current_; }
  ElementIterator& operator++() {
    Next();
    return *this;
  }
  void operator++(int) { Next(); }
  friend bool operator==(const ElementIterator& it, std::default_sentinel_t) noexcept {
    return it.done_;
  }

 private:
  void Next() {
    if (elements_->HasMoreElements()) {
      current_ = elements_->NextElement();
    } else {
      current_ = Object();
      done_ = true;
    }
  }

  Ref<EnumerationItf> elements_;
  Object current_;
  bool done_ = false;
};

inline ElementIterator begin(const Ref<EnumerationItf>& elements) {
  return ElementIterator(elements);
}
inline std::default_sentinel_t end(const Ref<EnumerationItf>&) noexcept { return {}; }
inline ElementIterator begin(const Container& container) {
  return ElementIterator(container->Elements());
}
inline std::default_sentinel_t end(const Container&) noexcept { return {}; }

}  // namespace kiv

#endif  // KIV_CONTAINERS_H_
