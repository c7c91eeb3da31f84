// The list container, the interfaces' homes and the Cons cell.
#include <cstdint>

#include "collections/list_impl.h"
#include "kiv/exception.h"

namespace kiv {

EnumerationItf::~EnumerationItf() = default;
IteratorItf::~IteratorItf() = default;
ConstContainerItf::~ConstContainerItf() = default;
ContainerItf::~ContainerItf() = default;
Cons::~Cons() = default;

Container ContainerExp::MakeList() { return Container(new ListImpl()); }

// ---------------------------------------------------------------------------------------------
// ListImpl

ListImpl::~ListImpl() { RemoveAll(); }

Ref<EnumerationItf> ListImpl::Elements() const {
  return Ref<EnumerationItf>(new ListEnumeration(this, first_));
}

Cons* ListImpl::CellAt(std::int32_t index) const {
  if (index == 0 && count_ == 0) throw NoSuchElementException();
  if (index < 0 || index >= count_) throw BoundsException(static_cast<std::int64_t>(index));
  Cons* cell = first_;
  while (index-- > 0) cell = cell->next;
  return cell;
}

Object& ListImpl::ElementAt(std::int32_t index) { return CellAt(index)->element; }

Object ListImpl::GetElement(std::int32_t index) const { return CellAt(index)->element; }

Ref<IteratorItf> ListImpl::IteratorAt(std::int32_t index) {
  if (index < 0) return Ref<IteratorItf>(new ListIterator(this, nullptr, index, true));
  if (index == 0) return Ref<IteratorItf>(new ListIterator(this, first_, 0, true));
  if (index >= count_) {
    return Ref<IteratorItf>(new ListIterator(this, nullptr, index - count_ + 1, true));
  }
  Cons* cell = first_;
  for (std::int32_t i = 0; i < index; ++i) cell = cell->next;
  return Ref<IteratorItf>(new ListIterator(this, cell, 0, true));
}

Ref<IteratorItf> ListImpl::IteratorAtFirst() {
  return Ref<IteratorItf>(new ListIterator(this, first_, 0, true));
}

Ref<IteratorItf> ListImpl::IteratorAtLast() {
  return Ref<IteratorItf>(new ListIterator(this, last_, 0, true));
}

Object ListImpl::First() const {
  if (first_ == nullptr) throw NoSuchElementException();
  return first_->element;
}

Object ListImpl::Last() const {
  if (last_ == nullptr) throw NoSuchElementException();
  return last_->element;
}

bool ListImpl::AddFirst(const Object& element) {
  Cons* cell = new Cons(element);
  RefCount::AddRef(cell);
  cell->next = first_;
  if (first_ != nullptr) {
    first_->previous = cell;
  } else {
    last_ = cell;
  }
  first_ = cell;
  ++count_;
  return true;
}

bool ListImpl::AddLast(const Object& element) {
  Cons* cell = new Cons(element);
  RefCount::AddRef(cell);
  cell->previous = last_;
  if (last_ != nullptr) {
    last_->next = cell;
  } else {
    first_ = cell;
  }
  last_ = cell;
  ++count_;
  return true;
}

void ListImpl::LinkBetween(Cons* before, Cons* after, const Object& element) {
  Cons* cell = new Cons(element);
  RefCount::AddRef(cell);
  cell->previous = before;
  cell->next = after;
  before->next = cell;
  after->previous = cell;
  ++count_;
}

bool ListImpl::IsLinked(const Cons* cell) const noexcept {
  return (cell->previous != nullptr ? cell->previous->next == cell : first_ == cell) &&
         (cell->next != nullptr ? cell->next->previous == cell : last_ == cell);
}

Object ListImpl::Unlink(Cons* cell) {
  if (cell->previous != nullptr) {
    cell->previous->next = cell->next;
  } else {
    first_ = cell->next;
  }
  if (cell->next != nullptr) {
    cell->next->previous = cell->previous;
  } else {
    last_ = cell->previous;
  }
  --count_;
  Object element = cell->element;
  RefCount::Release(cell);
  return element;
}

Object ListImpl::RemoveFirst() {
  if (first_ == nullptr) throw NoSuchElementException();
  return Unlink(first_);
}

Object ListImpl::RemoveLast() {
  if (last_ == nullptr) throw NoSuchElementException();
  return Unlink(last_);
}

void ListImpl::RemoveAll() {
  Cons* cell = first_;
  first_ = nullptr;
  last_ = nullptr;
  count_ = 0;
  while (cell != nullptr) {
    Cons* next = cell->next;
    // Unlike a single removal, every neighbour goes too: a cell that an iterator or enumeration
    // still holds must not keep pointers to cells that are about to be freed.
    cell->previous = nullptr;
    cell->next = nullptr;
    RefCount::Release(cell);
    cell = next;
  }
}

// ---------------------------------------------------------------------------------------------
// ListEnumeration

bool ListEnumeration::HasMoreElements() const {
  if (!current_) return false;
  if (not_started_) return true;
  return current_->next != nullptr;
}

Object ListEnumeration::NextElement() {
  if (!current_) throw NoSuchElementException();
  if (!not_started_) current_ = current_->next;
  not_started_ = false;
  // Past the last element the cell handle is now null, and this fails as a null handle does.
  return current_->element;
}

// ---------------------------------------------------------------------------------------------
// ListIterator

Cons* ListIterator::Step(Cons* cell, bool ahead) const noexcept {
  return ahead == forward_ ? cell->next : cell->previous;
}

Cons* ListIterator::Entry(bool ahead) const noexcept {
  return ahead == forward_ ? list_->FirstCell() : list_->LastCell();
}

void ListIterator::Forward(std::int32_t n) {
  if (n < 0) {
    Move(-static_cast<std::int64_t>(n), false);
  } else {
    Move(n, true);
  }
}

void ListIterator::Back(std::int32_t n) {
  if (n < 0) {
    Move(-static_cast<std::int64_t>(n), true);
  } else {
    Move(n, false);
  }
}

// Forward (ahead) and Back mirror each other: `sign` turns the overshoot into "steps before the
// start of this move's direction" (negative) or "steps beyond its end" (positive).
void ListIterator::Move(std::int64_t n, bool ahead) {
  const std::int64_t sign = ahead ? 1 : -1;
  const std::int64_t before = sign * overshoot_;
  if (before <= 0 && before + n >= 0) {
    std::int64_t steps = n + before;
    Cons* cell = current_.Get();
    if (overshoot_ != 0) {
      overshoot_ = 0;
      cell = Entry(ahead);
    }
    while (steps > 0 && cell != nullptr) {
      Cons* next = Step(cell, ahead);
      --steps;
      if (next == nullptr) {
        overshoot_ = static_cast<std::int32_t>(sign * (1 + steps));
        cell = nullptr;
        break;
      }
      cell = next;
    }
    current_ = cell;
  } else {
    overshoot_ = static_cast<std::int32_t>(overshoot_ + sign * n);
  }
}

Ref<IteratorItf> ListIterator::Clone() const {
  return Ref<IteratorItf>(new ListIterator(list_.Get(), current_.Get(), overshoot_, forward_));
}

bool ListIterator::SetForward(bool forward) {
  bool old = forward_;
  forward_ = forward;
  return old;
}

// KEPT: beyond the end the exception carries overshoot + count (not overshoot + count - 1),
// before the start the negative overshoot; callers read positions from these payloads.
void ListIterator::CheckValid() const {
  if (overshoot_ > 0) {
    throw BoundsException(static_cast<std::int64_t>(overshoot_) + list_->Count());
  }
  if (overshoot_ < 0) throw BoundsException(static_cast<std::int64_t>(overshoot_));
  if (!current_) throw NoSuchElementException();
}

Object ListIterator::Current() const {
  CheckValid();
  return current_->element;
}

Object& ListIterator::CurrentRef() {
  CheckValid();
  return current_->element;
}

Object ListIterator::Remove(bool forward) {
  CheckValid();
  Ref<Cons> held = current_;
  // The cell may have been removed through another path since the iterator reached it; it then
  // keeps its old links, and unlinking it again would corrupt its former neighbours and the count.
  if (!list_->IsLinked(held.Get())) throw NoSuchElementException();
  if (forward) {
    Forward(1);
  } else {
    Back(1);
  }
  return list_->Unlink(held.Get());
}

// Before and after are the list's own order here, whatever the direction of travel.
bool ListIterator::InsertBefore(const Object& element) {
  if (overshoot_ != 0) CheckValid();
  Cons* cell = current_.Get();
  if (cell != nullptr && cell->previous != nullptr) {
    list_->LinkBetween(cell->previous, cell, element);
    return true;
  }
  return list_->AddFirst(element);
}

bool ListIterator::InsertAfter(const Object& element) {
  if (overshoot_ != 0) CheckValid();
  Cons* cell = current_.Get();
  if (cell != nullptr && cell->next != nullptr) {
    list_->LinkBetween(cell, cell->next, element);
    return true;
  }
  return list_->AddLast(element);
}

}  // namespace kiv
