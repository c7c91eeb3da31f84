// The general tree node, its factory singleton and the node factories.
#include <typeinfo>
#include <utility>

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

// A missing entry, or one holding something other than a node, gets a new node. KEPT: a value
// stored there is overwritten without notice.
HierHashtableItf* HierHashtableImpl::ChildMade(const WidePath& path, std::uint32_t name,
                                               std::uint32_t name_end) {
  Object& slot = LookupEntry(path, name, name_end);
  if (HierHashtableItf* child = NodeOrNull(slot)) return child;
  HierHashtable made = MakeChild();
  slot = made;
  return made.Get();
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

// ---- the path walk ----

template <class Op>
typename Op::Result HierHashtableImpl::Walk(typename Op::Node* node, const String& path, Op op) {
  if (!IsUsablePath(path)) return op.Malformed();
  const WidePath wp(path);
  const unsigned short* u = wp.Units();
  const std::uint32_t end = wp.Count();
  std::uint32_t begin = 0;
  for (;;) {
    const Step s = node->Split(u, begin, end);
    switch (s.kind) {
      case Step::kEmpty:
      case Step::kLeading:
        return op.Malformed();
      case Step::kLastParent:
        throw KeyOutOfBoundsException(GetHierHashtableFactory()->Empty());
      case Step::kInnerParent:
        throw KeyOutOfBoundsException(wp.Part(begin, end));
      case Step::kLastSelf:
        return op.Self(node);
      case Step::kInnerSelf:
        if (s.rest == end) return op.Self(node);
        break;
      case Step::kLastName:
        return op.Last(node, wp, s);
      case Step::kInnerName: {
        HierHashtableItf* child = op.Child(node, wp, s);
        // Only ContainsKey finds no child without throwing; its answer is then false.
        if (child == nullptr) return typename Op::Result();
        HierHashtableImpl* general = AsImpl(child);
        if (general == nullptr) return op.Call(*child, wp.Part(s.rest, end));
        node = general;
        break;
      }
    }
    begin = s.rest;
  }
}

// What a reading walk finds. A table of another class hands out copies of its entries, which may
// be the only reference to the node found: `holder` keeps the entry just found and `reached` the
// node the walk has gone on to, so each lives as long as the walk uses it.
struct HierHashtableImpl::Found {
  const Object* Entry(const HierHashtableImpl* node, const WidePath& wp, const Step& s) {
    return node->FindEntry(wp.Units() + s.name, s.name_end - s.name, holder);
  }
  HierHashtableItf* Reached(HierHashtableItf* child) {
    reached = std::move(holder);
    return child;
  }

  Object holder;
  Object reached;
};

struct HierHashtableImpl::ContainsWalk : Found {
  using Node = const HierHashtableImpl;
  using Result = bool;

  static bool Malformed() { return false; }
  static bool Self(Node*) { return true; }
  bool Last(Node* node, const WidePath& wp, const Step& s) { return Entry(node, wp, s) != nullptr; }
  // Null for a missing name or one that holds no node.
  HierHashtableItf* Child(Node* node, const WidePath& wp, const Step& s) {
    const Object* entry = Entry(node, wp, s);
    return entry != nullptr ? Reached(NodeOrNull(*entry)) : nullptr;
  }
  static bool Call(const HierHashtableItf& child, const String& rest) {
    return child.ContainsKey(rest);
  }
};

// Get, and the descent of Remove: a missing name is NoSuchNamedElementException, an entry that
// holds something other than a node fails the checked cast.
struct HierHashtableImpl::GetWalk : Found {
  using Node = const HierHashtableImpl;
  using Result = HierHashtable;

  [[noreturn]] static HierHashtable Malformed() { throw InvalidKeyException(); }
  static HierHashtable Self(Node* node) { return HierHashtable(node); }
  HierHashtable Last(Node* node, const WidePath& wp, const Step& s) {
    return HierHashtable(NodeOf(Present(node, wp, s)));
  }
  HierHashtableItf* Child(Node* node, const WidePath& wp, const Step& s) {
    HierHashtableItf* child = NodeOf(Present(node, wp, s));
    // An entry that holds an empty handle has no node to descend into.
    if (child == nullptr) throw NoSuchNamedElementException(wp.Part(s.name, s.name_end));
    return Reached(child);
  }
  static HierHashtable Call(const HierHashtableItf& child, const String& rest) {
    return child.Get(rest);
  }

  const Object& Present(Node* node, const WidePath& wp, const Step& s) {
    const Object* entry = Entry(node, wp, s);
    if (entry == nullptr) throw NoSuchNamedElementException(wp.Part(s.name, s.name_end));
    return *entry;
  }
};

struct HierHashtableImpl::MakePathWalk {
  using Node = HierHashtableImpl;
  using Result = HierHashtable;

  [[noreturn]] static HierHashtable Malformed() { throw InvalidKeyException(); }
  static HierHashtable Self(Node* node) { return HierHashtable(node); }
  static HierHashtable Last(Node* node, const WidePath& wp, const Step& s) {
    return HierHashtable(Child(node, wp, s));
  }
  static HierHashtableItf* Child(Node* node, const WidePath& wp, const Step& s) {
    return node->ChildMade(wp, s.name, s.name_end);
  }
  HierHashtable Call(HierHashtableItf& child, const String& rest) const {
    return child.MakePath(rest, mode, extra);
  }

  std::uint32_t mode;
  std::int32_t extra;
};

// Inner names are walked as MakePath walks them; the last name's entry is replaced.
struct HierHashtableImpl::PutWalk {
  using Node = HierHashtableImpl;
  using Result = HierHashtable;

  [[noreturn]] static HierHashtable Malformed() { throw InvalidKeyException(); }
  [[noreturn]] static HierHashtable Self(Node*) { throw KeyIsIdentityException(); }
  HierHashtable Last(Node* node, const WidePath& wp, const Step& s) const {
    Object& slot = node->LookupEntry(wp, s.name, s.name_end);
    HierHashtable old(NodeOrNull(slot));
    slot = value;
    return old;
  }
  static HierHashtableItf* Child(Node* node, const WidePath& wp, const Step& s) {
    return MakePathWalk::Child(node, wp, s);
  }
  HierHashtable Call(HierHashtableItf& child, const String& rest) const {
    return child.Put(rest, value);
  }

  const HierHashtable& value;
};

// Inner names are walked as Get walks them; the last name's entry is taken out of the table.
struct HierHashtableImpl::RemoveWalk {
  using Node = HierHashtableImpl;
  using Result = HierHashtable;

  [[noreturn]] static HierHashtable Malformed() { throw InvalidKeyException(); }
  [[noreturn]] static HierHashtable Self(Node*) { throw KeyIsIdentityException(); }
  static HierHashtable Last(Node* node, const WidePath& wp, const Step& s) {
    Object removed = node->table_->Remove(wp.Part(s.name, s.name_end));
    return HierHashtable(NodeOrNull(removed));
  }
  HierHashtableItf* Child(Node* node, const WidePath& wp, const Step& s) {
    return descent.Child(node, wp, s);
  }
  HierHashtable Call(HierHashtableItf& child, const String& rest) const {
    return child.Remove(rest, extra);
  }

  std::int32_t extra;
  GetWalk descent;
};

bool HierHashtableImpl::ContainsKey(const String& path) const {
  return Walk(this, path, ContainsWalk{});
}

HierHashtable HierHashtableImpl::Get(const String& path) const {
  return Walk(this, path, GetWalk{});
}

HierHashtable HierHashtableImpl::MakePath(const String& path, std::uint32_t mode,
                                          std::int32_t extra) {
  return Walk(this, path, MakePathWalk{mode, extra});
}

HierHashtable HierHashtableImpl::Put(const String& path, const HierHashtable& node) {
  return Walk(this, path, PutWalk{node});
}

HierHashtable HierHashtableImpl::Remove(const String& path, std::int32_t extra) {
  return Walk(this, path, RemoveWalk{extra, {}});
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
