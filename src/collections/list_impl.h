// The doubly linked list container, its enumeration and its iterator.
#ifndef KIV_SRC_COLLECTIONS_LIST_IMPL_H_
#define KIV_SRC_COLLECTIONS_LIST_IMPL_H_

#include <cstdint>

#include "kiv/containers.h"

namespace kiv {

// A chain of counted Cons cells. The list owns one reference to each linked cell; enumerations
// and iterators hold their own references to the cell they stand on.
class ListImpl final : public ContainerItf {
 public:
  ListImpl() noexcept : first_(nullptr), last_(nullptr), count_(0) {}
  ~ListImpl() override;

  std::int32_t Count() const override { return count_; }
  Ref<EnumerationItf> Elements() const override;
  Object& ElementAt(std::int32_t index) override;
  Object GetElement(std::int32_t index) const override;
  Ref<IteratorItf> IteratorAt(std::int32_t index) override;
  Ref<IteratorItf> IteratorAtFirst() override;
  Ref<IteratorItf> IteratorAtLast() override;
  Object First() const override;
  Object Last() const override;
  bool AddFirst(const Object& element) override;
  bool AddLast(const Object& element) override;
  Object RemoveFirst() override;
  Object RemoveLast() override;
  void RemoveAll() override;

  Cons* FirstCell() const noexcept { return first_; }
  Cons* LastCell() const noexcept { return last_; }
  // Links a new cell holding `element` between two neighbouring cells (both non-null).
  void LinkBetween(Cons* before, Cons* after, const Object& element);
  // Unlinks `cell` (which must be linked here; it keeps its own links), drops the list's reference
  // to it and returns its element.
  Object Unlink(Cons* cell);
  // Whether `cell` is still linked here. It reads the cell's neighbours, so it is only meaningful
  // while they are alive (a removed cell's old neighbours may since have been freed).
  bool IsLinked(const Cons* cell) const noexcept;

 private:
  // The cell at a checked index.
  Cons* CellAt(std::int32_t index) const;

  Cons* first_;
  Cons* last_;
  std::int32_t count_;
};

class ListEnumeration final : public EnumerationItf {
 public:
  ListEnumeration(const ListImpl* list, Cons* first) noexcept
      : list_(list), current_(first), not_started_(true) {}
  bool HasMoreElements() const override;
  Object NextElement() override;

 private:
  Ref<ListImpl> list_;
  Ref<Cons> current_;
  bool not_started_;
};

// Stands on a cell, or outside the list: `overshoot_` is negative that many steps before the
// start of the direction of travel and positive that many steps beyond its end.
class ListIterator final : public IteratorItf {
 public:
  ListIterator(ListImpl* list, Cons* cell, std::int32_t overshoot, bool forward) noexcept
      : list_(list), current_(cell), overshoot_(overshoot), forward_(forward) {}

  void Back(std::int32_t n) override;
  void Forward(std::int32_t n) override;
  Ref<IteratorItf> Clone() const override;
  bool SetForward(bool forward) override;
  bool IsValid() const override { return overshoot_ == 0 && !!current_; }
  Object Current() const override;
  Object& CurrentRef() override;
  Object Remove(bool forward) override;
  bool InsertBefore(const Object& element) override;
  bool InsertAfter(const Object& element) override;

 private:
  // Moves with (ahead) or against the direction of travel.
  void Move(std::int64_t n, bool ahead);
  Cons* Step(Cons* cell, bool ahead) const noexcept;
  // The cell a walk starts from when it comes back into the list from outside.
  Cons* Entry(bool ahead) const noexcept;
  // Throws unless the iterator stands on a cell.
  void CheckValid() const;

  Ref<ListImpl> list_;
  Ref<Cons> current_;
  std::int32_t overshoot_;
  bool forward_;
};

}  // namespace kiv

#endif  // KIV_SRC_COLLECTIONS_LIST_IMPL_H_
