// The general tree node, the factory singleton that makes nodes, and the adapters between flat
// and hierarchical, modifiable and read-only tables.
#ifndef KIV_SRC_COLLECTIONS_HIERHASHTABLE_IMPL_H_
#define KIV_SRC_COLLECTIONS_HIERHASHTABLE_IMPL_H_

#include <cstdint>

#include "kiv/containers.h"
#include "kiv/hashtable.h"
#include "kiv/hierhashtable.h"
#include "kiv/string.h"

namespace kiv {

class HashtableImpl;

// A path as 16-bit units: the caller's own text when it is 16-bit text, else a re-encoded copy.
class WidePath {
 public:
  // `path` must not be a null handle.
  explicit WidePath(const String& path);

  const unsigned short* Units() const noexcept { return units_; }
  std::uint32_t Count() const noexcept { return count_; }
  // The units [begin, end) as a new string of their own.
  String Part(std::uint32_t begin, std::uint32_t end) const;

 private:
  String wide_;
  const unsigned short* units_;
  std::uint32_t count_;
};

// The general node: elements in a container, named entries in a flat table, and the separator
// that splits its paths.
class HierHashtableImpl final : public HierHashtableBase {
 public:
  // `separator` is the separator character, or 0 when `separator_string` is used.
  HierHashtableImpl(const Container& elements, const Hashtable& table, const String& self_name,
                    const String& parent_name, const String& separator_string,
                    unsigned short separator, bool child_case_insensitive);
  ~HierHashtableImpl() override;

  void RemoveAll() override;
  bool IsCaseInsensitive() const override;
  void Reserved(std::int32_t value) override;
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& path) const override;
  HierHashtable Get(const String& path) const override;
  HierHashtable MakePath(const String& path, std::uint32_t mode, std::int32_t extra) override;
  HierHashtable Put(const String& path, const HierHashtable& node) override;
  HierHashtable Remove(const String& path, std::int32_t extra) override;
  bool IsCloneable() const override { return true; }
  Ref<HierHashtableItf> Clone(bool shallow) const override;

 private:
  // One step of a path walk over units [begin, end).
  struct Step {
    enum Kind {
      kEmpty,        // nothing left: the path (or the rest after a separator) is empty
      kLeading,      // a separator at the start
      kLastSelf,     // "." as the last name
      kLastParent,   // ".." as the last name
      kLastName,     // any other last name: [name, name_end)
      kInnerSelf,    // "." followed by a separator; the walk goes on at `rest`
      kInnerParent,  // ".." followed by a separator
      kInnerName,    // a name followed by a separator
    };
    Kind kind;
    std::uint32_t name;
    std::uint32_t name_end;
    std::uint32_t rest;
  };
  // What each path operation does at the points where they differ; defined beside Walk.
  struct Found;
  struct ContainsWalk;
  struct GetWalk;
  struct MakePathWalk;
  struct PutWalk;
  struct RemoveWalk;

  // The walk every path operation shares: split off one name at a time, refuse "..", stay on
  // ".", and hand the rest of the path to the child named, through the child's own operation
  // (`op.Call`) so that a child of another class applies its own rules. A creating operation
  // makes each missing node as it reaches it, so a path that fails further on leaves the nodes
  // made before the failing name in place.
  template <class Op>
  static typename Op::Result Walk(typename Op::Node* start, const String& path, Op op);

  Step Split(const unsigned short* units, std::uint32_t begin, std::uint32_t end) const;
  // The stored entry for a name, or null when the table has none. `holder` keeps an entry that
  // had to be copied out of a table of another class.
  const Object* FindEntry(const unsigned short* name, std::uint32_t count, Object& holder) const;
  // The entry for a name, made (empty) when absent.
  Object& LookupEntry(const WidePath& path, std::uint32_t name, std::uint32_t name_end);
  // The node at a name, made by MakeChild when the entry is absent or holds no node.
  HierHashtableItf* ChildMade(const WidePath& path, std::uint32_t name, std::uint32_t name_end);
  // A new node that this node creates on a path.
  HierHashtable MakeChild() const;
  // `node` itself when it is a general node (of exactly this class), else null. A walk goes on
  // through such a child in place, which behaves as calling the child with the rest of the path
  // but needs no string for the rest; a child of any other class is called with the rest.
  static HierHashtableImpl* AsImpl(HierHashtableItf* node) noexcept;

  Hashtable table_;
  // The table itself when it is this library's flat table, for lookups by units that need no
  // key string.
  HashtableImpl* fast_table_;
  String self_name_;
  String parent_name_;
  String separator_string_;
  unsigned short separator_;
  bool child_case_insensitive_;
  // The units of the separator string (empty when the separator is a character).
  const unsigned short* separator_units_;
  std::uint32_t separator_count_;
};

// Keeps the shared strings ".", ".." and "" and makes the general nodes.
class HierHashtableFactory : public virtual RefCount {
 public:
  HierHashtableFactory();
  ~HierHashtableFactory() override;

  HierHashtable Make(const Container& elements, const Hashtable& table,
                     const String& separator_string, unsigned short separator,
                     bool child_case_insensitive) const;
  const String& Empty() const noexcept { return empty_; }

 private:
  String self_;
  String parent_;
  String empty_;
};

// The factory singleton, made on first use.
Ref<HierHashtableFactory> GetHierHashtableFactory();

// A flat view of a tree: keys are paths, values are nodes.
class HierToFlatHashtableAdapter final : public HashtableItf {
 public:
  explicit HierToFlatHashtableAdapter(const HierHashtable& tree);
  ~HierToFlatHashtableAdapter() override;

  bool IsCaseInsensitive() const override;
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& key) const override;
  Object Get(const String& key) const override;
  bool Put(const String& key, const Object& value) override;
  Object& Lookup(const String& key) override;
  Object Remove(const String& key) override;
  void RemoveAll() override;
  bool IsCloneable() const override;
  Ref<HashtableItf> Clone() const override;

 private:
  HierHashtable tree_;
};

// A read-only view of a tree; the nodes it hands out are read-only views too.
class HierToConstHierHashtableAdapter final : public ConstHierHashtableItf {
 public:
  explicit HierToConstHierHashtableAdapter(const HierHashtable& tree);
  ~HierToConstHierHashtableAdapter() override;

  std::int32_t Count() const override;
  Ref<EnumerationItf> Elements() const override;
  Object GetElement(std::int32_t index) const override;
  bool IsCaseInsensitive() const override;
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& path) const override;
  ConstHierHashtable Get(const String& path) const override;
  bool IsCloneable() const override;
  Ref<ConstHierHashtableItf> Clone(bool shallow) const override;

 private:
  HierHashtable tree_;
};

// A modifiable face of a read-only flat table that refuses every change.
class ConstToModifiableHashtableAdapter final : public HashtableItf {
 public:
  explicit ConstToModifiableHashtableAdapter(const ConstHashtable& table);
  ~ConstToModifiableHashtableAdapter() override;

  bool IsCaseInsensitive() const override;
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& key) const override;
  Object Get(const String& key) const override;
  bool Put(const String& key, const Object& value) override;
  Object& Lookup(const String& key) override;
  Object Remove(const String& key) override;
  void RemoveAll() override;
  bool IsCloneable() const override { return false; }
  Ref<HashtableItf> Clone() const override;

 private:
  ConstHashtable table_;
};

// A one-level tree over a flat table: each key is one name, and values come back wrapped in new
// nodes.
class FlatToHierHashtableAdapter final : public HierHashtableBase {
 public:
  explicit FlatToHierHashtableAdapter(const Hashtable& table);
  ~FlatToHierHashtableAdapter() override;

  void RemoveAll() override;
  bool IsCaseInsensitive() const override;
  void Reserved(std::int32_t value) override;
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& path) const override;
  HierHashtable Get(const String& path) const override;
  HierHashtable MakePath(const String& path, std::uint32_t mode, std::int32_t extra) override;
  HierHashtable Put(const String& path, const HierHashtable& node) override;
  HierHashtable Remove(const String& path, std::int32_t extra) override;
  bool IsCloneable() const override;
  Ref<HierHashtableItf> Clone(bool shallow) const override;

 private:
  // Classifies a name: 0 an ordinary key, 1 ".", 2 "..". InvalidKeyException when empty.
  static int Classify(const String& name);
  static HierHashtable Wrap(const Object& value);

  Hashtable table_;
};

// A modifiable face of a read-only tree that refuses every change, the element and iterator
// operations included.
class ConstToHierHashtableAdapter final : public HierHashtableItf {
 public:
  explicit ConstToHierHashtableAdapter(const ConstHierHashtable& tree);
  ~ConstToHierHashtableAdapter() override;

  std::int32_t Count() const override;
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
  bool IsCaseInsensitive() const override;
  void Reserved(std::int32_t value) override;
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& path) const override;
  HierHashtable Get(const String& path) const override;
  HierHashtable MakePath(const String& path, std::uint32_t mode, std::int32_t extra) override;
  HierHashtable Put(const String& path, const HierHashtable& node) override;
  HierHashtable Remove(const String& path, std::int32_t extra) override;
  bool IsCloneable() const override;
  Ref<HierHashtableItf> Clone(bool shallow) const override;

 private:
  ConstHierHashtable tree_;
};

}  // namespace kiv

#endif  // KIV_SRC_COLLECTIONS_HIERHASHTABLE_IMPL_H_
