// The vector container (a growable array of cells), its enumeration and its iterator.
#ifndef KIV_SRC_COLLECTIONS_VECTOR_IMPL_H_
#define KIV_SRC_COLLECTIONS_VECTOR_IMPL_H_

#include <cstdint>

#include "kiv/containers.h"

namespace kiv {

// Slots 0 to count - 1 hold one owned reference each to a Cons cell (whose links are unused).
// The array grows linearly, 64 slots at a time; a growth that cannot get memory fails the
// insertion (false) and leaves the vector as it was.
class VectorImpl final : public ContainerItf {
 public:
  static constexpr std::uint32_t kGrowth = 64;

  explicit VectorImpl(std::uint32_t capacity);
  ~VectorImpl() override;

  std::int32_t Count() const override { return static_cast<std::int32_t>(count_); }
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

  std::uint32_t Capacity() const noexcept { return capacity_; }
  // Inserts at `index` (0 <= index <= count), moving the slots from there up by one.
  bool InsertAt(std::uint32_t index, const Object& element);
  // Removes the element at `index` (< count), moving the following slots down by one.
  Object RemoveAt(std::uint32_t index);

 private:
  // Checked index to slot.
  Cons* CellAt(std::int32_t index) const;
  // Adds kGrowth slots; false (and nothing changed) when the memory cannot be had.
  bool Grow() noexcept;

  Cons** slots_;
  std::uint32_t capacity_;
  std::uint32_t count_;
};

class VectorEnumeration final : public EnumerationItf {
 public:
  explicit VectorEnumeration(const VectorImpl* vector) noexcept : vector_(vector), index_(-1) {}
  bool HasMoreElements() const override;
  Object NextElement() override;

 private:
  Ref<VectorImpl> vector_;
  std::int32_t index_;
};

// Plain index arithmetic: moves are unchecked, and the iterator is valid while the index is in
// range. `step_` is +1 in natural order and -1 reversed.
class VectorIterator final : public IteratorItf {
 public:
  VectorIterator(VectorImpl* vector, std::int32_t index, std::int32_t step) noexcept
      : vector_(vector), index_(index), step_(step) {}

  void Back(std::int32_t n) override;
  void Forward(std::int32_t n) override;
  Ref<IteratorItf> Clone() const override;
  bool SetForward(bool forward) override;
  bool IsValid() const override;
  Object Current() const override;
  Object& CurrentRef() override;
  Object Remove(bool forward) override;
  bool InsertBefore(const Object& element) override;
  bool InsertAfter(const Object& element) override;

 private:
  // Inserts at index (below the current element) or index + 1 (above it).
  bool Insert(bool above, const Object& element);

  Ref<VectorImpl> vector_;
  std::int32_t index_;
  std::int32_t step_;
};

}  // namespace kiv

#endif  // KIV_SRC_COLLECTIONS_VECTOR_IMPL_H_
