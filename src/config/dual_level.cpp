// Reading a first level over a second level of defaults.
#include "config/preferences_impl.h"
#include "kiv/exception.h"
#include "kiv/hashtable.h"

namespace kiv {

ModifiablePreferencesItf::~ModifiablePreferencesItf() = default;

DualLevelHierHashtableImpl::DualLevelHierHashtableImpl(const HierHashtable& first,
                                                       const ConstHierHashtable& second)
    : first_(first),
      second_(second ? second : ConstHierHashtableExp::Make(HierHashtableExp::Make())) {}

DualLevelHierHashtableImpl::~DualLevelHierHashtableImpl() = default;

// ---- elements: read from the first level when it has any, changed on the first level ----

std::int32_t DualLevelHierHashtableImpl::Count() const {
  const std::int32_t own = first_->Count();
  return own > 0 ? own : second_->Count();
}

Ref<EnumerationItf> DualLevelHierHashtableImpl::Elements() const {
  return FirstHasElements() ? first_->Elements() : second_->Elements();
}

Object& DualLevelHierHashtableImpl::ElementAt(std::int32_t index) {
  return first_->ElementAt(index);
}

Object DualLevelHierHashtableImpl::GetElement(std::int32_t index) const {
  return FirstHasElements() ? first_->GetElement(index) : second_->GetElement(index);
}

Ref<IteratorItf> DualLevelHierHashtableImpl::IteratorAt(std::int32_t index) {
  return first_->IteratorAt(index);
}

Ref<IteratorItf> DualLevelHierHashtableImpl::IteratorAtFirst() { return first_->IteratorAtFirst(); }

Ref<IteratorItf> DualLevelHierHashtableImpl::IteratorAtLast() { return first_->IteratorAtLast(); }

// The defaults have no First or Last of their own (a read-only tree reads by index); an empty
// level fails as an empty container does.
Object DualLevelHierHashtableImpl::First() const {
  if (FirstHasElements() || second_->Count() == 0) return first_->First();
  return second_->GetElement(0);
}

Object DualLevelHierHashtableImpl::Last() const {
  if (FirstHasElements() || second_->Count() == 0) return first_->Last();
  return second_->GetElement(second_->Count() - 1);
}

bool DualLevelHierHashtableImpl::AddFirst(const Object& element) {
  return first_->AddFirst(element);
}

bool DualLevelHierHashtableImpl::AddLast(const Object& element) { return first_->AddLast(element); }

Object DualLevelHierHashtableImpl::RemoveFirst() { return first_->RemoveFirst(); }

Object DualLevelHierHashtableImpl::RemoveLast() { return first_->RemoveLast(); }

void DualLevelHierHashtableImpl::RemoveAll() { first_->RemoveAll(); }

// ---- the tree ----

bool DualLevelHierHashtableImpl::IsCaseInsensitive() const { return first_->IsCaseInsensitive(); }

void DualLevelHierHashtableImpl::Reserved(std::int32_t) {}

Ref<EnumerationItf> DualLevelHierHashtableImpl::Keys() const {
  Container names = ContainerExp::MakeList();
  // The first level's names, kept by its own case rule, so that a default of the same name is
  // not listed again.
  Hashtable seen = HashtableExp::Make(16, first_->IsCaseInsensitive());
  for (Enumeration e = first_->Keys(); e->HasMoreElements();) {
    Object name = e->NextElement();
    seen->Put(String(name), name);
    names->AddLast(name);
  }
  for (Enumeration e = second_->Keys(); e->HasMoreElements();) {
    Object name = e->NextElement();
    if (!seen->ContainsKey(String(name))) names->AddLast(name);
  }
  return names->Elements();
}

bool DualLevelHierHashtableImpl::ContainsKey(const String& path) const {
  return first_->ContainsKey(path) || second_->ContainsKey(path);
}

HierHashtable DualLevelHierHashtableImpl::Combine(const HierHashtable& first,
                                                  const String& path) const {
  if (!second_->ContainsKey(path)) return first;
  ConstHierHashtable second = second_->Get(path);
  if (!first) return HierHashtableExp::Make(second);
  return HierHashtable(new DualLevelHierHashtableImpl(first, second));
}

HierHashtable DualLevelHierHashtableImpl::Get(const String& path) const {
  // A path only the defaults have is not an error; one that neither level has fails as the
  // first level's Get does.
  if (!first_->ContainsKey(path) && second_->ContainsKey(path)) {
    return HierHashtableExp::Make(second_->Get(path));
  }
  return Combine(first_->Get(path), path);
}

HierHashtable DualLevelHierHashtableImpl::MakePath(const String& path, std::uint32_t mode,
                                                   std::int32_t extra) {
  return Combine(first_->MakePath(path, mode, extra), path);
}

HierHashtable DualLevelHierHashtableImpl::Put(const String& path, const HierHashtable& node) {
  return Combine(first_->Put(path, node), path);
}

HierHashtable DualLevelHierHashtableImpl::Remove(const String& path, std::int32_t extra) {
  return first_->Remove(path, extra);
}

Ref<HierHashtableItf> DualLevelHierHashtableImpl::Clone(bool) const {
  throw HTNotCloneableException();
}

}  // namespace kiv
