// Hierarchical hashtables: trees of nodes addressed by separator-delimited paths ("a/b/c").
//
// Every node is at once a container of unnamed elements (the node's value or values) and a flat
// table of named entries whose values are normally child nodes. Paths are always relative to the
// node they are given to: "." names the node itself, ".." would name its parent, which a node never
// knows, so any ".." component is refused. A value stored in a tree by path lives as the element of
// the node at that path; the dumps show each node with its first element.
//
// The adapters turn flat tables into trees and back, and modifiable trees into read-only ones.
// Trees are not locked: owners of shared trees guard them.
#ifndef KIV_HIERHASHTABLE_H_
#define KIV_HIERHASHTABLE_H_

#include <kiv/containers.h>
#include <kiv/exception.h>
#include <kiv/export.h>
#include <kiv/hashtable.h>
#include <kiv/object.h>
#include <kiv/string.h>

#include <cstdint>

namespace kiv {

class ConstHierHashtable;
class HierHashtable;
class Writer;

// A tree node. The container operations act on the node's elements.
//
// Path operations fail alike: InvalidKeyException for an empty path or one with a leading,
// doubled or trailing separator; KeyOutOfBoundsException for any ".." component;
// NoSuchNamedElementException when a name on the way is missing (Get, Remove). ContainsKey
// answers false instead of throwing InvalidKeyException.
//
// A path is walked one name at a time: a node hands the rest of the path to the child it names
// through the child's own operation of the same kind, so a child of another class (a directory,
// an adapter, a two-level preferences node) judges the rest by its own rules. MakePath and Put
// make each missing node as they reach it, so a path that fails further on (a doubled or
// trailing separator, a "..", a "." that Put cannot replace) keeps the nodes made before the
// failing name.
struct KIV_EXPORT HierHashtableItf : public ContainerItf {
  ~HierHashtableItf() override;

  // The case rule of the node's own table.
  virtual bool IsCaseInsensitive() const = 0;
  // No node of this library gives it an effect; adapters forward it.
  virtual void Reserved(std::int32_t value) = 0;
  // The names of the node's entries in first-insertion order.
  virtual Ref<EnumerationItf> Keys() const = 0;
  virtual bool ContainsKey(const String& path) const = 0;
  // The node at `path` ("." is the node itself). A value found that is not a node fails the
  // checked cast (BadCastException).
  virtual HierHashtable Get(const String& path) const = 0;
  // The node at `path`, creating every missing node on the way; an entry on the way that holds
  // something other than a node is replaced by a new node. `mode` is the access mode for nodes
  // that file-system trees create (the library passes 0x1FF); `extra` is handed down unchanged.
  virtual HierHashtable MakePath(const String& path, std::uint32_t mode, std::int32_t extra) = 0;
  // Attaches `node` at `path` (creating missing inner nodes) and returns the node that was there,
  // or an empty handle. KeyIsIdentityException when the path names the node itself.
  virtual HierHashtable Put(const String& path, const HierHashtable& node) = 0;
  // Detaches the entry at `path` and returns it as a node, or an empty handle when it was absent
  // or not a node. `extra` is handed down unchanged. KeyIsIdentityException for ".".
  virtual HierHashtable Remove(const String& path, std::int32_t extra) = 0;
  virtual bool IsCloneable() const = 0;
  // A copy of the node. With `shallow` false every cloneable child node is cloned too (the whole
  // tree is copied); with true the children are shared. Elements are always shared.
  // HTNotCloneableException when IsCloneable() is false.
  virtual Ref<HierHashtableItf> Clone(bool shallow) const = 0;
};

// A read-only tree node.
struct KIV_EXPORT ConstHierHashtableItf : public ConstContainerItf {
  ~ConstHierHashtableItf() override;

  virtual Object GetElement(std::int32_t index) const = 0;
  virtual bool IsCaseInsensitive() const = 0;
  virtual Ref<EnumerationItf> Keys() const = 0;
  virtual bool ContainsKey(const String& path) const = 0;
  virtual ConstHierHashtable Get(const String& path) const = 0;
  virtual bool IsCloneable() const = 0;
  // A read-only view of a copy of the node (see HierHashtableItf::Clone).
  virtual Ref<ConstHierHashtableItf> Clone(bool shallow) const = 0;
};

KIV_DECLARE_HANDLE(HierHashtable, HierHashtableItf);
KIV_DECLARE_HANDLE(ConstHierHashtable, ConstHierHashtableItf);

// The base of every node class: it keeps the elements container given to it and forwards the
// container operations to it. Everything else is left to the subclass.
class KIV_EXPORT HierHashtableBase : public HierHashtableItf {
 public:
  ~HierHashtableBase() override;

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

 protected:
  explicit HierHashtableBase(const Container& elements);

  Container& ElementContainer() noexcept { return elements_; }
  const Container& ElementContainer() const noexcept { return elements_; }

 private:
  Container elements_;
};

// A name that a path lookup did not find, with the deepest node the path reached (an empty
// handle when that was not a node). Offered to lookups that report how far a path matched; the
// trees of this library never throw it themselves. Its text is the class name, " - ", the name
// not found, and, when a node was reached, " (partial match)".
class KIV_EXPORT PartialMatchException : public NoSuchNamedElementException {
 public:
  PartialMatchException(const String& name, const HierHashtable& last_match, bool report = false);
  HierHashtable LastMatch() const;
  String ToString() const override;
  KIV_EXCEPTION_MEMBERS(PartialMatchException)

 private:
  HierHashtable last_match_;
};

struct KIV_EXPORT HierHashtableExp {
  // A node with a new list of elements and a new case-sensitive table of one bucket, separator
  // "/", and case-sensitive intermediate nodes.
  static HierHashtable Make();
  // A node over the given elements and table with separator "/"; `child_case_insensitive` makes
  // the nodes that this node creates on a path case-insensitive.
  static HierHashtable Make(const Container& elements, const Hashtable& table,
                            bool child_case_insensitive);
  // The same with the separator character given by its code.
  static HierHashtable Make(const Container& elements, const Hashtable& table,
                            std::uint32_t separator, bool child_case_insensitive);
  // A one-character separator is used as a character, a longer one as a separator string.
  // InvalidKeyException for an empty separator.
  static HierHashtable Make(const Container& elements, const Hashtable& table,
                            const String& separator, bool child_case_insensitive);
  // A tree of one level over a flat table: every key is one name, and a value read by path comes
  // back wrapped in a new node that holds it as its only element; Put stores the first element of
  // the node it is given. MakePath of a missing name would create a node and throws
  // AccessException; so does a change that the table refuses.
  static HierHashtable Make(const Hashtable& table);
  // A modifiable face of a read-only tree that refuses every change with AccessException.
  static HierHashtable Make(const ConstHierHashtable& tree);
  // The one-level tree over a read-only flat table.
  static HierHashtable Make(const ConstHashtable& table);
  // The tree dump (see ConstHierHashtableExp::Dump).
  static void Dump(Writer& writer, const HierHashtable& tree, const String& name,
                   std::uint32_t indent);
  // The dump with the name "/" and indent 0.
  static void Dump(Writer& writer, const HierHashtable& tree);
};

struct KIV_EXPORT ConstHierHashtableExp {
  // A read-only view of a tree.
  static ConstHierHashtable Make(const HierHashtable& tree);
  // One line per node, depth first in key order, each child indented one space more than its
  // parent: `indent` spaces, the name, " [ ", the element count, " ]", then for a node with
  // elements ": " and the first element (NULL for an empty handle; a string quoted, cut to its
  // first 29 characters and "..." when longer than 32; else the class name), and ", ..." when
  // there is more than one element.
  static void Dump(Writer& writer, const ConstHierHashtable& tree, const String& name,
                   std::uint32_t indent);
  // The dump with the name "/".
  static void Dump(Writer& writer, const ConstHierHashtable& tree, std::uint32_t indent);
};

}  // namespace kiv

#endif  // KIV_HIERHASHTABLE_H_
