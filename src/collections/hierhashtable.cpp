// The general tree node, its factory singleton and the node factories.
#include <typeinfo>

#include "collections/hashtable_impl.h"
#include "collections/hierhashtable_impl.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"

namespace kiv {

HierHashtableItf::~HierHashtableItf() = default;
ConstHierHashtableItf::~ConstHierHashtableItf() = default;

namespace {

const unsigned short kSelfName[] = {'.', 0};
const unsigned short kParentName[] = {'.', '.', 0};
const unsigned short kEmptyName[] = {0};

bool IsUsablePath(const String& path) { return !!path && path->ByteLength() != 0; }

void CheckPath(const String& path) {
  if (!IsUsablePath(path)) throw InvalidKeyException();
}

// The node an entry holds, or null for an empty entry or one that holds something else. A general
// node is recognised by its exact type and reached through its most derived object, which needs
// no search of the class graph; other classes go through the full cast.
HierHashtableItf* NodeOrNull(const Object& entry) {
  RefCount* p = entry.Get();
  if (p == nullptr) return nullptr;
  if (typeid(*p) == typeid(HierHashtableImpl)) {
    return static_cast<HierHashtableImpl*>(dynamic_cast<void*>(p));
  }
  return dynamic_cast<HierHashtableItf*>(p);
}

// The node an entry holds, or null for an empty entry. An entry that holds something else fails
// the checked cast (BadCastException).
HierHashtableItf* NodeOf(const Object& entry) {
  HierHashtableItf* node = NodeOrNull(entry);
  if (node == nullptr && entry.Get() != nullptr) HierHashtable checked(entry);  // throws
  return node;
}

}  // namespace

// ---- WidePath ----

WidePath::WidePath(const String& path) {
  const StringItf* s = path.operator->();
  if (IsWideText(path)) {
    units_ = static_cast<const unsigned short*>(s->GetData());
    count_ = s->ByteLength() / 2;
  } else {
    wide_ = String(TextEncodingExp::MakeAppDefault(), *s);
    units_ = static_cast<const unsigned short*>(wide_->GetData());
    count_ = wide_->ByteLength() / 2;
  }
}

String WidePath::Part(std::uint32_t begin, std::uint32_t end) const {
  return String(TextEncodingExp::MakeAppDefault(), const_cast<unsigned short*>(units_ + begin),
                (end - begin) * 2, end - begin);
}

// ---- HierHashtableBase ----

HierHashtableBase::HierHashtableBase(const Container& elements) : elements_(elements) {}
HierHashtableBase::~HierHashtableBase() = default;

std::int32_t HierHashtableBase::Count() const { return elements_->Count(); }
Ref<EnumerationItf> HierHashtableBase::Elements() const { return elements_->Elements(); }
Object& HierHashtableBase::ElementAt(std::int32_t index) { return elements_->ElementAt(index); }
Object HierHashtableBase::GetElement(std::int32_t index) const {
  return elements_->GetElement(index);
}
Ref<IteratorItf> HierHashtableBase::IteratorAt(std::int32_t index) {
  return elements_->IteratorAt(index);
}
Ref<IteratorItf> HierHashtableBase::IteratorAtFirst() { return elements_->IteratorAtFirst(); }
Ref<IteratorItf> HierHashtableBase::IteratorAtLast() { return elements_->IteratorAtLast(); }
Object HierHashtableBase::First() const { return elements_->First(); }
Object HierHashtableBase::Last() const { return elements_->Last(); }
bool HierHashtableBase::AddFirst(const Object& element) { return elements_->AddFirst(element); }
bool HierHashtableBase::AddLast(const Object& element) { return elements_->AddLast(element); }
Object HierHashtableBase::RemoveFirst() { return elements_->RemoveFirst(); }
Object HierHashtableBase::RemoveLast() { return elements_->RemoveLast(); }
void HierHashtableBase::RemoveAll() { elements_->RemoveAll(); }

// ---- HierHashtableImpl ----

HierHashtableImpl::HierHashtableImpl(const Container& elements, const Hashtable& table,
                                     const String& self_name, const String& parent_name,
                                     const String& separator_string, unsigned short separator,
                                     bool child_case_insensitive)
    : HierHashtableBase(elements),
      table_(table),
      fast_table_(dynamic_cast<HashtableImpl*>(table.Get())),
      self_name_(self_name),
      parent_name_(parent_name),
      separator_string_(separator_string),
      separator_(separator),
      child_case_insensitive_(child_case_insensitive),
      separator_units_(static_cast<const unsigned short*>(separator_string->GetData())),
      separator_count_(separator != 0 ? 0 : separator_string->ByteLength() / 2) {}

HierHashtableImpl::~HierHashtableImpl() = default;

// The names "." and ".." are the factory's shared strings and never change, so steps compare
// units against them directly.
HierHashtableImpl::Step HierHashtableImpl::Split(const unsigned short* u, std::uint32_t begin,
                                                 std::uint32_t end) const {
  Step step{Step::kEmpty, begin, end, end};
  if (begin == end) return step;
  std::uint32_t at = end;
  std::uint32_t width = 1;
  if (separator_ != 0) {
    for (std::uint32_t i = begin; i < end; ++i) {
      if (u[i] == separator_) {
        at = i;
        break;
      }
    }
  } else {
    width = separator_count_;
    for (std::uint32_t i = begin; i + width <= end; ++i) {
      std::uint32_t k = 0;
      while (k < width && u[i + k] == separator_units_[k]) ++k;
      if (k == width) {
        at = i;
        break;
      }
    }
  }
  if (at == begin) {
    step.kind = Step::kLeading;
    return step;
  }
  std::uint32_t n = at - begin;
  bool self = n == 1 && u[begin] == '.';
  bool parent = n == 2 && u[begin] == '.' && u[begin + 1] == '.';
  step.name_end = at;
  if (at == end) {
    step.kind = self ? Step::kLastSelf : parent ? Step::kLastParent : Step::kLastName;
  } else {
    step.rest = at + width;
    step.kind = self ? Step::kInnerSelf : parent ? Step::kInnerParent : Step::kInnerName;
  }
  return step;
}

const Object* HierHashtableImpl::FindEntry(const unsigned short* name, std::uint32_t count,
                                           Object& holder) const {
  if (fast_table_ != nullptr) {
    Hashbucket* b = fast_table_->FindUnits(name, count);
    return b != nullptr ? &b->element : nullptr;
  }
  String key(TextEncodingExp::MakeAppDefault(), const_cast<unsigned short*>(name), count * 2,
             count);
  if (!table_->ContainsKey(key)) return nullptr;
  holder = table_->Get(key);
  return &holder;
}

Object& HierHashtableImpl::LookupEntry(const WidePath& path, std::uint32_t name,
                                       std::uint32_t name_end) {
  if (fast_table_ != nullptr) {
    Hashbucket* b = fast_table_->FindUnits(path.Units() + name, name_end - name);
    if (b != nullptr) return b->element;
  }
  return table_->Lookup(path.Part(name, name_end));
}

HierHashtableImpl* HierHashtableImpl::AsImpl(HierHashtableItf* node) noexcept {
  return typeid(*node) == typeid(HierHashtableImpl) ? static_cast<HierHashtableImpl*>(node)
                                                    : nullptr;
}

// Nodes made on a path get a one-bucket table with this node's child case rule, pass that rule
// on, and split paths with this node's separator, so a path keeps one syntax all the way down.
HierHashtable HierHashtableImpl::MakeChild() const {
  return GetHierHashtableFactory()->Make(ContainerExp::MakeList(),
                                         HashtableExp::Make(1, child_case_insensitive_),
                                         separator_string_, separator_, child_case_insensitive_);
}

void HierHashtableImpl::RemoveAll() {
  HierHashtableBase::RemoveAll();
  table_->RemoveAll();
}

bool HierHashtableImpl::IsCaseInsensitive() const { return table_->IsCaseInsensitive(); }

void HierHashtableImpl::Reserved(std::int32_t) {}

Ref<EnumerationItf> HierHashtableImpl::Keys() const { return table_->Keys(); }

bool HierHashtableImpl::ContainsKey(const String& path) const {
  if (!IsUsablePath(path)) return false;
  WidePath wp(path);
  const unsigned short* u = wp.Units();
  const std::uint32_t end = wp.Count();
  const HierHashtableImpl* node = this;
  std::uint32_t begin = 0;
  for (;;) {
    Step s = node->Split(u, begin, end);
    switch (s.kind) {
      case Step::kEmpty:
      case Step::kLeading:
        return false;
      case Step::kLastSelf:
        return true;
      case Step::kLastParent:
        throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
      case Step::kLastName: {
        Object holder;
        return node->FindEntry(u + s.name, s.name_end - s.name, holder) != nullptr;
      }
      case Step::kInnerParent:
        throw KeyOutOfBoundsException(wp.Part(begin, end));
      case Step::kInnerSelf:
        if (s.rest == end) return true;
        begin = s.rest;
        continue;
      case Step::kInnerName: {
        Object holder;
        const Object* entry = node->FindEntry(u + s.name, s.name_end - s.name, holder);
        HierHashtableItf* child = entry != nullptr ? NodeOrNull(*entry) : nullptr;
        if (child == nullptr) return false;
        if (HierHashtableImpl* impl = AsImpl(child)) {
          node = impl;
          begin = s.rest;
          continue;
        }
        return child->ContainsKey(wp.Part(s.rest, end));
      }
    }
  }
}

HierHashtable HierHashtableImpl::Get(const String& path) const {
  CheckPath(path);
  WidePath wp(path);
  const unsigned short* u = wp.Units();
  const std::uint32_t end = wp.Count();
  const HierHashtableImpl* node = this;
  std::uint32_t begin = 0;
  for (;;) {
    Step s = node->Split(u, begin, end);
    switch (s.kind) {
      case Step::kEmpty:
      case Step::kLeading:
        throw InvalidKeyException();
      case Step::kLastSelf:
        return HierHashtable(node);
      case Step::kLastParent:
        throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
      case Step::kInnerParent:
        throw KeyOutOfBoundsException(wp.Part(begin, end));
      case Step::kInnerSelf:
        if (s.rest == end) return HierHashtable(node);
        begin = s.rest;
        continue;
      case Step::kLastName:
      case Step::kInnerName: {
        Object holder;
        const Object* entry = node->FindEntry(u + s.name, s.name_end - s.name, holder);
        if (entry == nullptr) throw NoSuchNamedElementException(wp.Part(s.name, s.name_end));
        HierHashtableItf* child = NodeOf(*entry);
        if (s.kind == Step::kLastName) return HierHashtable(child);
        // An entry that holds an empty handle has no node to descend into.
        if (child == nullptr) throw NoSuchNamedElementException(wp.Part(s.name, s.name_end));
        if (HierHashtableImpl* impl = AsImpl(child)) {
          node = impl;
          begin = s.rest;
          continue;
        }
        return child->Get(wp.Part(s.rest, end));
      }
    }
  }
}

// The creating walks change the tree only after this dry run has passed, so a path that fails
// leaves the tree as it was. Nodes that the walk would create split with the separator of the
// node that creates them, so the dry run keeps that node's rules for the rest of the path; an
// existing child of another class applies rules of its own and checks its part itself.
void HierHashtableImpl::CheckCreatingWalk(const WidePath& wp, Walk walk) const {
  const unsigned short* u = wp.Units();
  const std::uint32_t end = wp.Count();
  const HierHashtableImpl* node = this;
  bool creating = false;
  std::uint32_t begin = 0;
  for (;;) {
    Step s = node->Split(u, begin, end);
    switch (s.kind) {
      case Step::kEmpty:
      case Step::kLeading:
        throw InvalidKeyException();
      case Step::kLastSelf:
        if (walk == Walk::kPut) throw KeyIsIdentityException();
        return;
      case Step::kLastParent:
        throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
      case Step::kLastName:
        return;
      case Step::kInnerParent:
        throw KeyOutOfBoundsException(wp.Part(begin, end));
      case Step::kInnerSelf:
        if (s.rest == end) {
          if (walk == Walk::kPut) throw KeyIsIdentityException();
          return;
        }
        begin = s.rest;
        continue;
      case Step::kInnerName:
        if (!creating) {
          Object holder;
          const Object* entry = node->FindEntry(u + s.name, s.name_end - s.name, holder);
          HierHashtableItf* child = entry != nullptr ? NodeOrNull(*entry) : nullptr;
          if (child == nullptr) {
            creating = true;
          } else if (HierHashtableImpl* impl = AsImpl(child)) {
            node = impl;
          } else {
            return;
          }
        }
        begin = s.rest;
        continue;
    }
  }
}

HierHashtable HierHashtableImpl::MakePath(const String& path, std::uint32_t mode,
                                          std::int32_t extra) {
  CheckPath(path);
  WidePath wp(path);
  CheckCreatingWalk(wp, Walk::kMakePath);
  const std::uint32_t end = wp.Count();
  HierHashtableImpl* node = this;
  std::uint32_t begin = 0;
  for (;;) {
    Step s = node->Split(wp.Units(), begin, end);
    switch (s.kind) {
      case Step::kLastSelf:
        return HierHashtable(node);
      case Step::kInnerSelf:
        if (s.rest == end) return HierHashtable(node);
        begin = s.rest;
        continue;
      case Step::kLastName:
      case Step::kInnerName: {
        Object& slot = node->LookupEntry(wp, s.name, s.name_end);
        HierHashtableItf* child = NodeOrNull(slot);
        if (child == nullptr) {
          // A missing entry, or one holding something other than a node, gets a new node; a
          // value stored there is overwritten on purpose.
          HierHashtable made = node->MakeChild();
          slot = made;
          child = made.Get();
        }
        if (s.kind == Step::kLastName) return HierHashtable(child);
        if (HierHashtableImpl* impl = AsImpl(child)) {
          node = impl;
          begin = s.rest;
          continue;
        }
        return child->MakePath(wp.Part(s.rest, end), mode, extra);
      }
      default:
        // The dry run has already raised every failure of the path's form.
        throw InvalidKeyException();
    }
  }
}

HierHashtable HierHashtableImpl::Put(const String& path, const HierHashtable& value) {
  CheckPath(path);
  WidePath wp(path);
  CheckCreatingWalk(wp, Walk::kPut);
  const std::uint32_t end = wp.Count();
  HierHashtableImpl* node = this;
  std::uint32_t begin = 0;
  for (;;) {
    Step s = node->Split(wp.Units(), begin, end);
    switch (s.kind) {
      case Step::kInnerSelf:
        begin = s.rest;
        continue;
      case Step::kLastName: {
        Object& slot = node->LookupEntry(wp, s.name, s.name_end);
        HierHashtable old(NodeOrNull(slot));
        slot = value;
        return old;
      }
      case Step::kInnerName: {
        Object& slot = node->LookupEntry(wp, s.name, s.name_end);
        HierHashtableItf* child = NodeOrNull(slot);
        if (child == nullptr) {
          HierHashtable made = node->MakeChild();
          slot = made;
          child = made.Get();
        }
        if (HierHashtableImpl* impl = AsImpl(child)) {
          node = impl;
          begin = s.rest;
          continue;
        }
        return child->Put(wp.Part(s.rest, end), value);
      }
      default:
        throw InvalidKeyException();
    }
  }
}

HierHashtable HierHashtableImpl::Remove(const String& path, std::int32_t extra) {
  CheckPath(path);
  WidePath wp(path);
  const unsigned short* u = wp.Units();
  const std::uint32_t end = wp.Count();
  HierHashtableImpl* node = this;
  std::uint32_t begin = 0;
  for (;;) {
    Step s = node->Split(u, begin, end);
    switch (s.kind) {
      case Step::kEmpty:
      case Step::kLeading:
        throw InvalidKeyException();
      case Step::kLastSelf:
        throw KeyIsIdentityException();
      case Step::kLastParent:
        throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
      case Step::kInnerParent:
        throw KeyOutOfBoundsException(wp.Part(begin, end));
      case Step::kInnerSelf:
        if (s.rest == end) throw KeyIsIdentityException();
        begin = s.rest;
        continue;
      case Step::kLastName: {
        Object removed = node->table_->Remove(wp.Part(s.name, s.name_end));
        return HierHashtable(NodeOrNull(removed));
      }
      case Step::kInnerName: {
        Object holder;
        const Object* entry = node->FindEntry(u + s.name, s.name_end - s.name, holder);
        if (entry == nullptr) throw NoSuchNamedElementException(wp.Part(s.name, s.name_end));
        HierHashtableItf* child = NodeOf(*entry);
        if (child == nullptr) throw NoSuchNamedElementException(wp.Part(s.name, s.name_end));
        if (HierHashtableImpl* impl = AsImpl(child)) {
          node = impl;
          begin = s.rest;
          continue;
        }
        return child->Remove(wp.Part(s.rest, end), extra);
      }
    }
  }
}

Ref<HierHashtableItf> HierHashtableImpl::Clone(bool shallow) const {
  Container elements = ContainerExp::MakeList();
  for (Ref<EnumerationItf> e = ElementContainer()->Elements(); e->HasMoreElements();) {
    elements->AddLast(e->NextElement());
  }
  Hashtable table(table_->Clone());
  if (!shallow) {
    for (Ref<EnumerationItf> k = table->Keys(); k->HasMoreElements();) {
      String key(k->NextElement());
      HierHashtableItf* child = NodeOrNull(table->Get(key));
      if (child != nullptr && child->IsCloneable()) {
        table->Put(key, HierHashtable(child->Clone(false)));
      }
    }
  }
  return Ref<HierHashtableItf>(new HierHashtableImpl(elements, table, self_name_, parent_name_,
                                                     separator_string_, separator_,
                                                     child_case_insensitive_));
}

// ---- the factory singleton ----

HierHashtableFactory::HierHashtableFactory()
    : self_(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(kSelfName)),
      parent_(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(kParentName)),
      empty_(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(kEmptyName)) {}

HierHashtableFactory::~HierHashtableFactory() = default;

HierHashtable HierHashtableFactory::Make(const Container& elements, const Hashtable& table,
                                         const String& separator_string, unsigned short separator,
                                         bool child_case_insensitive) const {
  elements.operator->();  // a null container or table fails here, not at first use
  table.operator->();
  return HierHashtable(new HierHashtableImpl(elements, table, self_, parent_,
                                             separator != 0 ? empty_ : separator_string, separator,
                                             child_case_insensitive));
}

class HierHashtableFactoryHolder
    : public StaticRef<HierHashtableFactory, HierHashtableFactoryHolder> {
 public:
  static HierHashtableFactory* Make() { return new HierHashtableFactory(); }
};

Ref<HierHashtableFactory> GetHierHashtableFactory() {
  static HierHashtableFactoryHolder holder;
  return holder.Get();
}

// ---- factories ----

HierHashtable HierHashtableExp::Make() {
  return Make(ContainerExp::MakeList(), HashtableExp::Make(1, false), false);
}

HierHashtable HierHashtableExp::Make(const Container& elements, const Hashtable& table,
                                     bool child_case_insensitive) {
  return Make(elements, table, std::uint32_t{'/'}, child_case_insensitive);
}

// A separator character of 0 (or one beyond 16 bits) could never occur in 16-bit paths; it is
// refused as an invalid key, as an empty separator string is.
HierHashtable HierHashtableExp::Make(const Container& elements, const Hashtable& table,
                                     std::uint32_t separator, bool child_case_insensitive) {
  if (separator == 0 || separator > 0xFFFF) throw InvalidKeyException();
  Ref<HierHashtableFactory> factory = GetHierHashtableFactory();
  return factory->Make(elements, table, factory->Empty(), static_cast<unsigned short>(separator),
                       child_case_insensitive);
}

HierHashtable HierHashtableExp::Make(const Container& elements, const Hashtable& table,
                                     const String& separator, bool child_case_insensitive) {
  if (!IsUsablePath(separator)) throw InvalidKeyException();
  WidePath wide(separator);
  if (wide.Count() == 1) return Make(elements, table, wide.Units()[0], child_case_insensitive);
  return GetHierHashtableFactory()->Make(elements, table, wide.Part(0, wide.Count()), 0,
                                         child_case_insensitive);
}

}  // namespace kiv
