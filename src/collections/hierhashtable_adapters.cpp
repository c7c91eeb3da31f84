// The adapters between flat and hierarchical tables and between modifiable and read-only ones,
// and the factories that make them.
#include "collections/hierhashtable_impl.h"
#include "kiv/exception.h"

namespace kiv {

// ---- HierToFlatHashtableAdapter ----

HierToFlatHashtableAdapter::HierToFlatHashtableAdapter(const HierHashtable& tree) : tree_(tree) {
  tree_.operator->();
}
HierToFlatHashtableAdapter::~HierToFlatHashtableAdapter() = default;

bool HierToFlatHashtableAdapter::IsCaseInsensitive() const { return tree_->IsCaseInsensitive(); }
Ref<EnumerationItf> HierToFlatHashtableAdapter::Keys() const { return tree_->Keys(); }
bool HierToFlatHashtableAdapter::ContainsKey(const String& key) const {
  return tree_->ContainsKey(key);
}
Object HierToFlatHashtableAdapter::Get(const String& key) const { return tree_->Get(key); }

bool HierToFlatHashtableAdapter::Put(const String& key, const Object& value) {
  HierHashtable node(value);  // BadCastException for anything but a node
  tree_->Put(key, node);
  return true;
}

// A tree hands out no references into its tables.
Object& HierToFlatHashtableAdapter::Lookup(const String&) { throw NotSupportedException(); }

Object HierToFlatHashtableAdapter::Remove(const String& key) { return tree_->Remove(key, 0); }
void HierToFlatHashtableAdapter::RemoveAll() { tree_->RemoveAll(); }
bool HierToFlatHashtableAdapter::IsCloneable() const { return tree_->IsCloneable(); }

Ref<HashtableItf> HierToFlatHashtableAdapter::Clone() const {
  if (!tree_->IsCloneable()) throw HTNotCloneableException();
  return Ref<HashtableItf>(new HierToFlatHashtableAdapter(HierHashtable(tree_->Clone(false))));
}

// ---- HierToConstHierHashtableAdapter ----

namespace {

ConstHierHashtable ReadOnly(const HierHashtable& node) {
  if (!node) return ConstHierHashtable();
  return ConstHierHashtable(new HierToConstHierHashtableAdapter(node));
}

}  // namespace

HierToConstHierHashtableAdapter::HierToConstHierHashtableAdapter(const HierHashtable& tree)
    : tree_(tree) {
  tree_.operator->();
}
HierToConstHierHashtableAdapter::~HierToConstHierHashtableAdapter() = default;

std::int32_t HierToConstHierHashtableAdapter::Count() const { return tree_->Count(); }
Ref<EnumerationItf> HierToConstHierHashtableAdapter::Elements() const { return tree_->Elements(); }
Object HierToConstHierHashtableAdapter::GetElement(std::int32_t index) const {
  return tree_->GetElement(index);
}
bool HierToConstHierHashtableAdapter::IsCaseInsensitive() const {
  return tree_->IsCaseInsensitive();
}
Ref<EnumerationItf> HierToConstHierHashtableAdapter::Keys() const { return tree_->Keys(); }
bool HierToConstHierHashtableAdapter::ContainsKey(const String& path) const {
  return tree_->ContainsKey(path);
}
ConstHierHashtable HierToConstHierHashtableAdapter::Get(const String& path) const {
  return ReadOnly(tree_->Get(path));
}
bool HierToConstHierHashtableAdapter::IsCloneable() const { return tree_->IsCloneable(); }
Ref<ConstHierHashtableItf> HierToConstHierHashtableAdapter::Clone(bool shallow) const {
  return ReadOnly(HierHashtable(tree_->Clone(shallow)));
}

// ---- ConstToModifiableHashtableAdapter ----

ConstToModifiableHashtableAdapter::ConstToModifiableHashtableAdapter(const ConstHashtable& table)
    : table_(table) {
  table_.operator->();
}
ConstToModifiableHashtableAdapter::~ConstToModifiableHashtableAdapter() = default;

bool ConstToModifiableHashtableAdapter::IsCaseInsensitive() const {
  return table_->IsCaseInsensitive();
}
Ref<EnumerationItf> ConstToModifiableHashtableAdapter::Keys() const { return table_->Keys(); }
bool ConstToModifiableHashtableAdapter::ContainsKey(const String& key) const {
  return table_->ContainsKey(key);
}
Object ConstToModifiableHashtableAdapter::Get(const String& key) const { return table_->Get(key); }
bool ConstToModifiableHashtableAdapter::Put(const String&, const Object&) { return false; }
Object& ConstToModifiableHashtableAdapter::Lookup(const String&) { throw AccessException(); }
Object ConstToModifiableHashtableAdapter::Remove(const String&) { throw AccessException(); }
void ConstToModifiableHashtableAdapter::RemoveAll() { throw AccessException(); }
Ref<HashtableItf> ConstToModifiableHashtableAdapter::Clone() const {
  throw HTNotCloneableException();
}

// ---- FlatToHierHashtableAdapter ----

FlatToHierHashtableAdapter::FlatToHierHashtableAdapter(const Hashtable& table)
    : HierHashtableBase(ContainerExp::MakeList()), table_(table) {
  table_.operator->();
}
FlatToHierHashtableAdapter::~FlatToHierHashtableAdapter() = default;

int FlatToHierHashtableAdapter::Classify(const String& name) {
  if (!name || name->ByteLength() == 0) throw InvalidKeyException();
  if (name->Length() == 1 && name->CharAt(0) == '.') return 1;
  if (name->Length() == 2 && name->CharAt(0) == '.' && name->CharAt(1) == '.') return 2;
  return 0;
}

HierHashtable FlatToHierHashtableAdapter::Wrap(const Object& value) {
  HierHashtable node = HierHashtableExp::Make();
  node->AddLast(value);
  return node;
}

void FlatToHierHashtableAdapter::RemoveAll() {
  HierHashtableBase::RemoveAll();
  table_->RemoveAll();
}
bool FlatToHierHashtableAdapter::IsCaseInsensitive() const { return table_->IsCaseInsensitive(); }
void FlatToHierHashtableAdapter::Reserved(std::int32_t) {}
Ref<EnumerationItf> FlatToHierHashtableAdapter::Keys() const { return table_->Keys(); }

bool FlatToHierHashtableAdapter::ContainsKey(const String& path) const {
  if (!path || path->ByteLength() == 0) return false;
  switch (Classify(path)) {
    case 1:
      return true;
    case 2:
      throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
    default:
      return table_->ContainsKey(path);
  }
}

HierHashtable FlatToHierHashtableAdapter::Get(const String& path) const {
  switch (Classify(path)) {
    case 1:
      return HierHashtable(this);
    case 2:
      throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
    default:
      return Wrap(table_->Get(path));
  }
}

// Only an existing name can be reached: a missing one would need a node of its own.
HierHashtable FlatToHierHashtableAdapter::MakePath(const String& path, std::uint32_t,
                                                   std::int32_t) {
  switch (Classify(path)) {
    case 1:
      return HierHashtable(this);
    case 2:
      throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
    default:
      if (!table_->ContainsKey(path)) throw AccessException();
      return Wrap(table_->Get(path));
  }
}

// The inverse of Get, which wraps values in nodes: the node's first element becomes the value of
// the key (an empty handle for a node without elements), and the value that was there comes back
// wrapped. A table that refuses the change makes it an AccessException.
HierHashtable FlatToHierHashtableAdapter::Put(const String& path, const HierHashtable& node) {
  switch (Classify(path)) {
    case 1:
      throw KeyIsIdentityException();
    case 2:
      throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
    default:
      break;
  }
  HierHashtable old;
  if (table_->ContainsKey(path)) old = Wrap(table_->Get(path));
  Object value = !node || node->Count() == 0 ? Object() : node->GetElement(0);
  if (!table_->Put(path, value)) throw AccessException();
  return old;
}

HierHashtable FlatToHierHashtableAdapter::Remove(const String& path, std::int32_t) {
  switch (Classify(path)) {
    case 1:
      throw KeyIsIdentityException();
    case 2:
      throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
    default:
      break;
  }
  bool present = table_->ContainsKey(path);
  Object removed = table_->Remove(path);
  return present ? Wrap(removed) : HierHashtable();
}

bool FlatToHierHashtableAdapter::IsCloneable() const { return table_->IsCloneable(); }

Ref<HierHashtableItf> FlatToHierHashtableAdapter::Clone(bool) const {
  if (!table_->IsCloneable()) throw HTNotCloneableException();
  return Ref<HierHashtableItf>(new FlatToHierHashtableAdapter(Hashtable(table_->Clone())));
}

// ---- ConstToHierHashtableAdapter ----

ConstToHierHashtableAdapter::ConstToHierHashtableAdapter(const ConstHierHashtable& tree)
    : tree_(tree) {
  tree_.operator->();
}
ConstToHierHashtableAdapter::~ConstToHierHashtableAdapter() = default;

namespace {

HierHashtable Refusing(const ConstHierHashtable& node) {
  if (!node) return HierHashtable();
  return HierHashtable(new ConstToHierHashtableAdapter(node));
}

}  // namespace

std::int32_t ConstToHierHashtableAdapter::Count() const { return tree_->Count(); }
Ref<EnumerationItf> ConstToHierHashtableAdapter::Elements() const { return tree_->Elements(); }
Object& ConstToHierHashtableAdapter::ElementAt(std::int32_t) { throw AccessException(); }
Object ConstToHierHashtableAdapter::GetElement(std::int32_t index) const {
  return tree_->GetElement(index);
}
Ref<IteratorItf> ConstToHierHashtableAdapter::IteratorAt(std::int32_t) { throw AccessException(); }
Ref<IteratorItf> ConstToHierHashtableAdapter::IteratorAtFirst() { throw AccessException(); }
Ref<IteratorItf> ConstToHierHashtableAdapter::IteratorAtLast() { throw AccessException(); }
// First and Last only read: they go through the read-only element access.
Object ConstToHierHashtableAdapter::First() const {
  if (tree_->Count() == 0) throw NoSuchElementException();
  return tree_->GetElement(0);
}
Object ConstToHierHashtableAdapter::Last() const {
  std::int32_t count = tree_->Count();
  if (count == 0) throw NoSuchElementException();
  return tree_->GetElement(count - 1);
}
bool ConstToHierHashtableAdapter::AddFirst(const Object&) { throw AccessException(); }
bool ConstToHierHashtableAdapter::AddLast(const Object&) { throw AccessException(); }
Object ConstToHierHashtableAdapter::RemoveFirst() { throw AccessException(); }
Object ConstToHierHashtableAdapter::RemoveLast() { throw AccessException(); }
void ConstToHierHashtableAdapter::RemoveAll() { throw AccessException(); }
bool ConstToHierHashtableAdapter::IsCaseInsensitive() const { return tree_->IsCaseInsensitive(); }
// The read-only interface has no such operation to pass it to.
void ConstToHierHashtableAdapter::Reserved(std::int32_t) {}
Ref<EnumerationItf> ConstToHierHashtableAdapter::Keys() const { return tree_->Keys(); }
bool ConstToHierHashtableAdapter::ContainsKey(const String& path) const {
  return tree_->ContainsKey(path);
}
HierHashtable ConstToHierHashtableAdapter::Get(const String& path) const {
  return Refusing(tree_->Get(path));
}
HierHashtable ConstToHierHashtableAdapter::MakePath(const String&, std::uint32_t, std::int32_t) {
  throw AccessException();
}
HierHashtable ConstToHierHashtableAdapter::Put(const String&, const HierHashtable&) {
  throw AccessException();
}
HierHashtable ConstToHierHashtableAdapter::Remove(const String&, std::int32_t) {
  throw AccessException();
}
bool ConstToHierHashtableAdapter::IsCloneable() const { return tree_->IsCloneable(); }
Ref<HierHashtableItf> ConstToHierHashtableAdapter::Clone(bool shallow) const {
  return Refusing(ConstHierHashtable(tree_->Clone(shallow)));
}

// ---- factories ----

Hashtable HashtableExp::Make(const HierHashtable& tree) {
  return Hashtable(new HierToFlatHashtableAdapter(tree));
}

Hashtable HashtableExp::Make(const ConstHashtable& table) {
  return Hashtable(new ConstToModifiableHashtableAdapter(table));
}

ConstHashtable ConstHashtableExp::Make(const HierHashtable& tree) {
  return ConstHashtable(new HierToFlatHashtableAdapter(tree));
}

HierHashtable HierHashtableExp::Make(const Hashtable& table) {
  return HierHashtable(new FlatToHierHashtableAdapter(table));
}

HierHashtable HierHashtableExp::Make(const ConstHierHashtable& tree) {
  return HierHashtable(new ConstToHierHashtableAdapter(tree));
}

HierHashtable HierHashtableExp::Make(const ConstHashtable& table) {
  return Make(HashtableExp::Make(table));
}

ConstHierHashtable ConstHierHashtableExp::Make(const HierHashtable& tree) {
  return ConstHierHashtable(new HierToConstHierHashtableAdapter(tree));
}

}  // namespace kiv
