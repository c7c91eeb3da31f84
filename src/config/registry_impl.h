// The registry's root singleton and the environment table.
#ifndef KIV_SRC_CONFIG_REGISTRY_IMPL_H_
#define KIV_SRC_CONFIG_REGISTRY_IMPL_H_

#include <cstdint>

#include "kiv/hashtable.h"
#include "kiv/hierhashtable.h"
#include "kiv/registry.h"

namespace kiv {

// The root of the registry: the static entry with the empty path, one bucket and the
// case-sensitive rule, so it attaches itself nowhere.
class GlobalRegistry final : public StaticRegistryFactory {
 public:
  GlobalRegistry();
  ~GlobalRegistry() override;
};

// The process environment seen as a flat table. It holds nothing itself: every operation goes to
// the runtime's environment. It answers as case-insensitive, as the environment it was made for
// does; lookups still pass the name as given to the runtime, whose own rule decides.
class ShellEnvRegistryImpl final : public HashtableItf {
 public:
  ShellEnvRegistryImpl();
  ~ShellEnvRegistryImpl() override;

  bool IsCaseInsensitive() const override { return true; }
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& name) const override;
  Object Get(const String& name) const override;
  bool Put(const String& name, const Object& value) override;
  Object& Lookup(const String& name) override;
  Object Remove(const String& name) override;
  void RemoveAll() override;
  bool IsCloneable() const override { return false; }
  Ref<HashtableItf> Clone() const override;
};

// Makes sure the environment table exists and is registered at "shell/env".
void EnsureShellEnvRegistered();

// The object registered under `name` in a registry node: the first element of the node at that
// name (an empty handle when it has none). A name that is not registered fails as the node's Get
// does (NoSuchNamedElementException, a NoSuchElementException).
Object RegistryValue(const HierHashtable& registry, const String& name);

}  // namespace kiv

#endif  // KIV_SRC_CONFIG_REGISTRY_IMPL_H_
