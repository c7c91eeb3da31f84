// The global registry: one process-wide tree through which the subsystems find one another by
// path. Well-known nodes hang under fixed top-level paths, each made by its owner on first use:
//
//   "dataconverters"            data converters by name
//   "blockconverters"           block converters by name
//   "textencodings"             text encodings by name
//   "shell/env"                 the process environment as a table
//   "preferences"               the preferences tree
//   "resource"                  the resource system
//   "parameters/resource-path"  set by the host
//
// A value registered by name lives as the only element of the node at that name, so that
// `Get(name)->First()` reads it and the tree dump shows it. The built-in text encodings and their
// converters are registered when the library is loaded. The tree is not locked: callers populate
// the well-known nodes before using them from several threads.
#ifndef KIV_REGISTRY_H_
#define KIV_REGISTRY_H_

#include <kiv/export.h>
#include <kiv/hierhashtable.h>
#include <kiv/object.h>

#include <cstdint>

namespace kiv {

// The base of static registry entries: an object that owns one registry node and, unless its
// path is empty, attaches that node to the global registry under its path when it is made.
class KIV_EXPORT StaticRegistryFactory : public virtual RefCount {
 public:
  ~StaticRegistryFactory() override;

  // The node this entry owns.
  HierHashtable GetNode() const;

 protected:
  // `path` is 8-bit text of `length` bytes (0: terminated); the node gets a new list, a table of
  // `initial_size` buckets with the given case rule, separator "/", and case-sensitive
  // intermediate nodes.
  StaticRegistryFactory(const char* path, unsigned length, std::uint32_t initial_size,
                        bool case_insensitive);

 private:
  HierHashtable node_;
};

struct KIV_EXPORT RegistryExp {
  // The root of the registry (case-sensitive), made on first use.
  static HierHashtable MakeRegistry();
  // The node "dataconverters", made empty on first use; the same node afterwards.
  static HierHashtable MakeDataConverterRegistry();
  // The node "blockconverters".
  static HierHashtable MakeBlockConverterRegistry();
  // The node "textencodings".
  static HierHashtable MakeTextEncodingRegistry();
  // The process environment as a one-level, case-insensitive tree at "shell/env" (registered on
  // first use). Get(name) returns a node holding the value as a String; Put(name, node) sets the
  // variable to the node's first element (a String); Remove(name, 0) unsets it.
  static HierHashtable MakeEnv();
};

}  // namespace kiv

#endif  // KIV_REGISTRY_H_
