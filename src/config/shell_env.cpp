// The process environment as a flat table, registered at "shell/env" on first use.
#include <string>

#include "config/registry_impl.h"
#include "kiv/containers.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "platform/environment.h"

namespace kiv {

namespace {

void CheckName(const String& name) {
  if (!name || name->ByteLength() == 0) throw InvalidKeyException();
}

// A name or value as 16-bit text (the key preparation of every table: a copy in the application
// default encoding).
std::u16string Units(const String& text) {
  String wide = text->Encode(TextEncodingExp::MakeAppDefault());
  return std::u16string(static_cast<const char16_t*>(wide->GetData()), wide->ByteLength() / 2);
}

String ToString(const std::u16string& text) {
  return String(TextEncodingExp::MakeAppDefault(), const_cast<char16_t*>(text.data()),
                static_cast<unsigned>(text.size() * 2), static_cast<std::uint32_t>(text.size()));
}

}  // namespace

ShellEnvRegistryImpl::ShellEnvRegistryImpl() = default;
ShellEnvRegistryImpl::~ShellEnvRegistryImpl() = default;

Ref<EnumerationItf> ShellEnvRegistryImpl::Keys() const {
  Container names = ContainerExp::MakeList();
  for (const std::u16string& name : platform::EnvironmentVariableNames()) {
    names->AddLast(ToString(name));
  }
  return names->Elements();
}

bool ShellEnvRegistryImpl::ContainsKey(const String& name) const {
  if (!name || name->ByteLength() == 0) return false;
  std::u16string value;
  return platform::GetEnvironmentVariable(Units(name), value);
}

Object ShellEnvRegistryImpl::Get(const String& name) const {
  CheckName(name);
  std::u16string value;
  if (!platform::GetEnvironmentVariable(Units(name), value)) {
    throw NoSuchNamedElementException(name);
  }
  return ToString(value);
}

// The value is taken as a string (BadCastException for any other object; an empty handle sets
// the empty string). False when the runtime refuses the name.
bool ShellEnvRegistryImpl::Put(const String& name, const Object& value) {
  CheckName(name);
  String text(value);
  std::u16string units = !text ? std::u16string() : Units(text);
  return platform::SetEnvironmentVariable(Units(name), units);
}

// The environment hands out no references to its values.
Object& ShellEnvRegistryImpl::Lookup(const String&) { throw NotSupportedException(); }

Object ShellEnvRegistryImpl::Remove(const String& name) {
  CheckName(name);
  std::u16string key = Units(name);
  std::u16string value;
  if (!platform::GetEnvironmentVariable(key, value)) return Object();
  platform::UnsetEnvironmentVariable(key);
  return ToString(value);
}

void ShellEnvRegistryImpl::RemoveAll() {
  for (const std::u16string& name : platform::EnvironmentVariableNames()) {
    platform::UnsetEnvironmentVariable(name);
  }
}

Ref<HashtableItf> ShellEnvRegistryImpl::Clone() const { throw HTNotCloneableException(); }

// The environment table is made once; making it wraps it in a one-level tree and attaches that
// at "shell/env", so the environment is registered exactly once, when first used.
class ShellEnvRegistryHolder : public StaticRef<HashtableItf, ShellEnvRegistryHolder> {
 public:
  static HashtableItf* Make() {
    Hashtable table(new ShellEnvRegistryImpl());
    RegistryExp::MakeRegistry()->Put(
        String(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(u"shell/env")),
        HierHashtableExp::Make(table));
    // The registry now holds a reference, so the object outlives `table`.
    return table.Get();
  }
};

void EnsureShellEnvRegistered() {
  static ShellEnvRegistryHolder holder;
  holder.Get();
}

}  // namespace kiv
