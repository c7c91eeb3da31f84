// The global registry, its well-known nodes, the registration of the built-in encodings and
// converters, and the lookups of encodings and converters by name.
#include <cstring>

#include "config/registry_impl.h"
#include "kiv/containers.h"
#include "kiv/converters.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"

namespace kiv {

namespace {

String Wide(const char16_t* text) {
  return String(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(text));
}

// The node at a top-level name, made empty on first use and the same node afterwards.
HierHashtable WellKnownNode(const char16_t* name) {
  return RegistryExp::MakeRegistry()->MakePath(Wide(name), 0x1FF, 0);
}

}  // namespace

// ---- StaticRegistryFactory and the root ----

StaticRegistryFactory::StaticRegistryFactory(const char* path, unsigned length,
                                             std::uint32_t initial_size, bool case_insensitive)
    : node_(HierHashtableExp::Make(ContainerExp::MakeList(),
                                   HashtableExp::Make(initial_size, case_insensitive), false)) {
  if (path == nullptr) return;
  if (length == 0) length = static_cast<unsigned>(std::strlen(path));
  if (length == 0) return;
  String narrow(TextEncodingExp::MakeSystemDefault(), static_cast<const void*>(path), length);
  RegistryExp::MakeRegistry()->Put(String(TextEncodingExp::MakeAppDefault(), *narrow.operator->()),
                                   node_);
}

StaticRegistryFactory::~StaticRegistryFactory() = default;

HierHashtable StaticRegistryFactory::GetNode() const { return node_; }

GlobalRegistry::GlobalRegistry() : StaticRegistryFactory("", 0, 1, false) {}
GlobalRegistry::~GlobalRegistry() = default;

class GlobalRegistryHolder : public StaticRef<GlobalRegistry, GlobalRegistryHolder> {
 public:
  static GlobalRegistry* Make() { return new GlobalRegistry(); }
};

HierHashtable RegistryExp::MakeRegistry() {
  static GlobalRegistryHolder holder;
  return holder.Get()->GetNode();
}

HierHashtable RegistryExp::MakeDataConverterRegistry() { return WellKnownNode(u"dataconverters"); }

HierHashtable RegistryExp::MakeBlockConverterRegistry() {
  return WellKnownNode(u"blockconverters");
}

HierHashtable RegistryExp::MakeTextEncodingRegistry() { return WellKnownNode(u"textencodings"); }

HierHashtable RegistryExp::MakeEnv() {
  EnsureShellEnvRegistered();
  return MakeRegistry()->Get(Wide(u"shell/env"));
}

// ---- lookups by name ----

Object RegistryValue(const HierHashtable& registry, const String& name) {
  HierHashtable entry = registry->Get(name);
  if (!entry || entry->Count() == 0) return Object();
  return entry->GetElement(0);
}

// An unknown name lets the registry's NoSuchElementException (NoSuchNamedElementException, or
// InvalidKeyException for an empty name) reach the caller as it is.
TextEncoding TextEncodingExp::Make(const String& name) {
  Object value = RegistryValue(RegistryExp::MakeTextEncodingRegistry(), name);
  return TextEncoding(dynamic_cast<TextEncodingItf*>(value.Get()));
}

DataConverter DataConverterExp::Make(const String& name) {
  Object value = RegistryValue(RegistryExp::MakeDataConverterRegistry(), name);
  return DataConverter(dynamic_cast<DataConverterItf*>(value.Get()));
}

BlockConverter BlockConverterExp::Make(const String& name) {
  Object value = RegistryValue(RegistryExp::MakeBlockConverterRegistry(), name);
  return BlockConverter(dynamic_cast<BlockConverterItf*>(value.Get()));
}

// ---- registration of the built-in encodings ----

namespace {

// Registers `value` under `name`: a new node holding it as its only element replaces whatever
// was there.
void Register(HierHashtable registry, const char16_t* name, const Object& value) {
  HierHashtable entry = HierHashtableExp::Make();
  entry->AddLast(value);
  registry->Put(Wide(name), entry);
}

}  // namespace

// One built-in encoding registered at load: its to-wide and from-wide converters in the block
// converter registry, their data converters in the data converter registry, the encoding in the
// text encoding registry. A failure leaves that name missing and the library loadable.
class BuiltInEncodingRegistration {
 public:
  BuiltInEncodingRegistration(TextEncoding (*make)(), const char16_t* name, const char16_t* to_wide,
                              const char16_t* from_wide) noexcept {
    try {
      TextEncoding encoding = make();
      BlockConverter to = encoding->GetToWideConverter();
      BlockConverter from = encoding->GetFromWideConverter();
      HierHashtable blocks = RegistryExp::MakeBlockConverterRegistry();
      Register(blocks, to_wide, to);
      Register(blocks, from_wide, from);
      HierHashtable data = RegistryExp::MakeDataConverterRegistry();
      Register(data, to_wide, to->GetDataConverter());
      Register(data, from_wide, from->GetDataConverter());
      Register(RegistryExp::MakeTextEncodingRegistry(), name, encoding);
    } catch (...) {
    }
  }
};

// These run when the library is loaded. They live in the same unit as the registry's factories,
// which every user of the registries reaches, so no link can leave them out; `used` keeps the
// compiler from discarding them as well.
[[gnu::used]] const BuiltInEncodingRegistration kAsciiRegistration(&TextEncodingExp::MakeAscii,
                                                                   u"ascii", u"ascii->wchar_t",
                                                                   u"wchar_t->ascii");
[[gnu::used]] const BuiltInEncodingRegistration kUtf16Registration(&TextEncodingExp::MakeUTF16,
                                                                   u"utf-16", u"utf-16->wchar_t",
                                                                   u"wchar_t->utf-16");
[[gnu::used]] const BuiltInEncodingRegistration kUtf32Registration(&TextEncodingExp::MakeUTF32,
                                                                   u"utf-32", u"utf-32->wchar_t",
                                                                   u"wchar_t->utf-32");
[[gnu::used]] const BuiltInEncodingRegistration kUtf8Registration(&TextEncodingExp::MakeUTF8,
                                                                  u"utf-8", u"utf-8->wchar_t",
                                                                  u"wchar_t->utf-8");
[[gnu::used]] const BuiltInEncodingRegistration kStandardUtf8Registration(
    &TextEncodingExp::MakeStandardUTF8, u"utf-8-standard", u"utf-8-standard->wchar_t",
    u"wchar_t->utf-8-standard");

}  // namespace kiv
