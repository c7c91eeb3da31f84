// Strings whose value comes from the global registry.
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/registry.h"
#include "kiv/string.h"

namespace kiv {

namespace {

// The string configured at `path`: the first element of the node there, when that is a string.
// A path that is not configured, or a node without a string, gives `fallback`.
String Configured(const String& path, const String& fallback) {
  try {
    HierHashtable node = RegistryExp::MakeRegistry()->Get(path);
    if (!node || node->Count() == 0) return fallback;
    Object first = node->GetElement(0);
    const StringItf* text = dynamic_cast<const StringItf*>(first.Get());
    return text != nullptr ? String(text) : fallback;
  } catch (const NoSuchElementException&) {
    return fallback;
  } catch (const BadCastException&) {
    return fallback;
  }
}

}  // namespace

NamedString::NamedString(const String& path)
    : String(Configured(path, String(TextEncodingExp::MakeAppDefault()))) {}

NamedString::NamedString(const String& path, const String& fallback)
    : String(Configured(path, fallback)) {}

NamedString::~NamedString() = default;

}  // namespace kiv
