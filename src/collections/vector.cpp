// The vector container.
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

#include "collections/vector_impl.h"
#include "kiv/exception.h"

namespace kiv {

Container ContainerExp::MakeVector() { return Container(new VectorImpl(VectorImpl::kGrowth)); }

Container ContainerExp::MakeVector(std::uint32_t capacity) {
  return Container(new VectorImpl(capacity));
}

// ---------------------------------------------------------------------------------------------
// VectorImpl

VectorImpl::VectorImpl(std::uint32_t capacity)
    : slots_(capacity == 0 ? nullptr : new Cons*[capacity]), capacity_(capacity), count_(0) {}

VectorImpl::~VectorImpl() {
  RemoveAll();
  delete[] slots_;
}

Ref<EnumerationItf> VectorImpl::Elements() const {
  return Ref<EnumerationItf>(new VectorEnumeration(this));
}

Cons* VectorImpl::CellAt(std::int32_t index) const {
  if (index == 0 && count_ == 0) throw NoSuchElementException();
  if (index < 0 || static_cast<std::uint32_t>(index) >= count_) {
    throw BoundsException(static_cast<std::int64_t>(index));
  }
  return slots_[index];
}

Object& VectorImpl::ElementAt(std::int32_t index) { return CellAt(index)->element; }

Object VectorImpl::GetElement(std::int32_t index) const { return CellAt(index)->element; }

Ref<IteratorItf> VectorImpl::IteratorAt(std::int32_t index) {
  return Ref<IteratorItf>(new VectorIterator(this, index, 1));
}

Ref<IteratorItf> VectorImpl::IteratorAtFirst() {
  return Ref<IteratorItf>(new VectorIterator(this, 0, 1));
}

Ref<IteratorItf> VectorImpl::IteratorAtLast() {
  std::int32_t last = count_ == 0 ? 0 : static_cast<std::int32_t>(count_ - 1);
  return Ref<IteratorItf>(new VectorIterator(this, last, 1));
}

Object VectorImpl::First() const {
  if (count_ == 0) throw NoSuchElementException();
  return slots_[0]->element;
}

Object VectorImpl::Last() const {
  if (count_ == 0) throw NoSuchElementException();
  return slots_[count_ - 1]->element;
}

bool VectorImpl::Grow() noexcept {
  if (capacity_ > std::numeric_limits<std::uint32_t>::max() - kGrowth) return false;
  std::uint32_t capacity = capacity_ + kGrowth;
  Cons** slots;
  try {
    slots = new Cons*[capacity];
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (count_ != 0) std::memcpy(slots, slots_, count_ * sizeof(Cons*));
  delete[] slots_;
  slots_ = slots;
  capacity_ = capacity;
  return true;
}

bool VectorImpl::InsertAt(std::uint32_t index, const Object& element) {
  if (count_ == capacity_ && !Grow()) return false;
  Cons* cell = new Cons(element);
  RefCount::AddRef(cell);
  if (index < count_)
    std::memmove(slots_ + index + 1, slots_ + index, (count_ - index) * sizeof(Cons*));
  slots_[index] = cell;
  ++count_;
  return true;
}

Object VectorImpl::RemoveAt(std::uint32_t index) {
  Cons* cell = slots_[index];
  --count_;
  if (index < count_)
    std::memmove(slots_ + index, slots_ + index + 1, (count_ - index) * sizeof(Cons*));
  slots_[count_] = nullptr;
  Object element = cell->element;
  RefCount::Release(cell);
  return element;
}

bool VectorImpl::AddFirst(const Object& element) { return InsertAt(0, element); }

bool VectorImpl::AddLast(const Object& element) { return InsertAt(count_, element); }

Object VectorImpl::RemoveFirst() {
  if (count_ == 0) throw NoSuchElementException();
  return RemoveAt(0);
}

Object VectorImpl::RemoveLast() {
  if (count_ == 0) throw NoSuchElementException();
  return RemoveAt(count_ - 1);
}

void VectorImpl::RemoveAll() {
  // The count drops first, so that an element whose destruction looks at this vector sees it
  // empty rather than half released.
  std::uint32_t count = count_;
  count_ = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    Cons* cell = slots_[i];
    slots_[i] = nullptr;
    RefCount::Release(cell);
  }
}

// ---------------------------------------------------------------------------------------------
// VectorEnumeration

bool VectorEnumeration::HasMoreElements() const {
  std::int64_t next = static_cast<std::int64_t>(index_) + 1;
  return next >= 0 && next < vector_->Count();
}

Object VectorEnumeration::NextElement() {
  ++index_;
  return vector_->GetElement(index_);
}

// ---------------------------------------------------------------------------------------------
// VectorIterator

// Index arithmetic wraps rather than overflowing: any value is allowed, only in-range ones are
// valid.
void VectorIterator::Back(std::int32_t n) {
  index_ =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(index_) -
                                static_cast<std::uint32_t>(step_) * static_cast<std::uint32_t>(n));
}

void VectorIterator::Forward(std::int32_t n) {
  index_ =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(index_) +
                                static_cast<std::uint32_t>(step_) * static_cast<std::uint32_t>(n));
}

Ref<IteratorItf> VectorIterator::Clone() const {
  return Ref<IteratorItf>(new VectorIterator(vector_.Get(), index_, step_));
}

bool VectorIterator::SetForward(bool forward) {
  bool old = step_ > 0;
  step_ = forward ? 1 : -1;
  return old;
}

bool VectorIterator::IsValid() const { return index_ >= 0 && index_ < vector_->Count(); }

Object VectorIterator::Current() const { return vector_->GetElement(index_); }

Object& VectorIterator::CurrentRef() { return vector_->ElementAt(index_); }

// The iterator ends on the neighbour in the requested direction of travel: the element that moves
// down into the gap is that neighbour when moving up the array, the one below when moving down.
Object VectorIterator::Remove(bool forward) {
  Object element = vector_->GetElement(index_);
  vector_->RemoveAt(static_cast<std::uint32_t>(index_));
  if ((step_ > 0 && !forward) || (step_ < 0 && forward)) --index_;
  return element;
}

bool VectorIterator::Insert(bool above, const Object& element) {
  if (!IsValid()) throw BoundsException(static_cast<std::int64_t>(index_));
  std::uint32_t at = static_cast<std::uint32_t>(index_) + (above ? 1 : 0);
  if (!vector_->InsertAt(at, element)) return false;
  // Keep standing on the same element when the new one landed below it.
  if (!above) ++index_;
  return true;
}

// Before and after follow the direction of travel.
bool VectorIterator::InsertBefore(const Object& element) { return Insert(step_ < 0, element); }

bool VectorIterator::InsertAfter(const Object& element) { return Insert(step_ > 0, element); }

}  // namespace kiv
