// Flat hashtables: string keys mapped to counted objects.
//
// Keys are `String`s, copied into 16-bit text (the application default encoding) before use. A
// table is case-sensitive or case-insensitive, chosen when it is made; a case-insensitive table
// hashes and compares the lower-case copy of each key but keeps the spelling of the first
// insertion for enumeration and dumps. Keys enumerate in the order of their first insertion.
//
// The bucket array doubles while the load passes 1.5 entries per bucket, up to 2048 buckets;
// beyond that the chains simply lengthen. Tables are not locked: owners of shared tables guard
// them.
#ifndef KIV_HASHTABLE_H_
#define KIV_HASHTABLE_H_

#include <kiv/containers.h>
#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/string.h>

#include <cstdint>

namespace kiv {

class HierHashtable;
class Writer;

// The read side of a flat table.
struct KIV_EXPORT ConstHashtableItf : public virtual RefCount {
  ~ConstHashtableItf() override;

  [[nodiscard]] virtual bool IsCaseInsensitive() const = 0;
  // The keys (as `String` objects) in the order of their first insertion; range-for walks them
  // (`for (String key : table->Keys())`).
  [[nodiscard]] virtual Ref<EnumerationItf> Keys() const = 0;
  // KEPT: false for an empty handle or an empty string, never InvalidKeyException as the other
  // key operations give.
  [[nodiscard]] virtual bool ContainsKey(const String& key) const = 0;
  // A copy of the stored handle. InvalidKeyException for an empty key,
  // NoSuchNamedElementException (carrying the key) when the key is absent.
  virtual Object Get(const String& key) const = 0;
};

// A modifiable flat table.
struct KIV_EXPORT HashtableItf : public ConstHashtableItf {
  ~HashtableItf() override;

  // Inserts or replaces. A replaced entry keeps its first spelling and its place in the key
  // order. True when stored, false when the table refuses changes.
  virtual bool Put(const String& key, const Object& value) = 0;
  // The stored handle itself, so that the caller may assign through it; a new key gets an entry
  // holding an empty handle first. The reference is valid until the entry is removed.
  virtual Object& Lookup(const String& key) = 0;
  // Removes the entry and returns its element; an empty handle when the key was absent.
  virtual Object Remove(const String& key) = 0;
  virtual void RemoveAll() = 0;
  virtual bool IsCloneable() const = 0;
  // An independent table with the same case rule, entries and key order; the elements are shared.
  // HTNotCloneableException when IsCloneable() is false.
  virtual Ref<HashtableItf> Clone() const = 0;
};

KIV_DECLARE_HANDLE(ConstHashtable, ConstHashtableItf);
KIV_DECLARE_HANDLE(Hashtable, HashtableItf);

struct KIV_EXPORT HashtableExp {
  // A case-sensitive table with one bucket.
  [[nodiscard]] static Hashtable Make();
  // `initial_size` rounded up to a power of two (0 and 1 give 1, at most 2048) is the initial
  // bucket count; `case_insensitive` selects the case rule.
  [[nodiscard]] static Hashtable Make(std::uint32_t initial_size, bool case_insensitive);
  // A flat view of a tree whose keys are paths. Its values are the nodes of the tree: Get and
  // Remove return nodes, Put stores a node (BadCastException for any other object), Lookup is
  // not supported (NotSupportedException).
  [[nodiscard]] static Hashtable Make(const HierHashtable& tree);
  // A modifiable face of a read-only table that refuses every change: Put returns false;
  // Lookup, Remove and RemoveAll throw AccessException; Clone throws HTNotCloneableException.
  [[nodiscard]] static Hashtable Make(const ConstHashtable& table);
};

struct KIV_EXPORT ConstHashtableExp {
  // The flat view of a tree (as HashtableExp::Make(const HierHashtable&)), read-only.
  [[nodiscard]] static ConstHashtable Make(const HierHashtable& tree);
  // Writes one line per key, in key order: `indent` spaces, the key, ": ", then the value: NULL
  // for an empty handle, a string quoted (cut to its first 17 characters and "..." when longer
  // than 20), or the class name of any other object.
  static void Dump(Writer& writer, const ConstHashtable& table, std::uint32_t indent);
  // A title line (`indent` spaces and the title), then the table with `indent` + 1.
  static void Dump(Writer& writer, const ConstHashtable& table, const String& title,
                   std::uint32_t indent);
};

}  // namespace kiv

#endif  // KIV_HASHTABLE_H_
