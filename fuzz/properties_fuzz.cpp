// Properties text parsed, stored and parsed again. What Store writes must be the tree as the
// format writes it (one line per node with values, depth first in key order), and parsing that
// text must give a tree that stores to the very same text: nothing of the tree is lost or
// changed on the way, except names the format cannot write (a line key that trimming would
// change, or that reads as a comment or a byte order mark), for which the second comparison is
// left out.
//
// Input: UTF-8 properties text (path failures and undecodable text end the parse, as they do
// for callers).
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/hierhashtable.h>
#include <kiv/properties.h>
#include <kiv/string.h>
#include <kiv/textio.h>

#include <string>

#include "fuzz_support.h"

namespace {

using kiv::fuzz::Escaped;

std::string Utf8(const kiv::String& s) {
  const kiv::String u = s->Encode(kiv::TextEncodingExp::MakeUTF8());
  return std::string(static_cast<const char*>(u->GetData()), u->ByteLength());
}

kiv::HierHashtable Parse(const std::string& text) {
  kiv::HierHashtable tree = kiv::HierHashtableExp::Make();
  kiv::Reader reader =
      kiv::fuzz::MakeReader(text, kiv::fuzz::SizeScript(), kiv::TextEncodingExp::MakeUTF8(), 64);
  try {
    kiv::PropertiesExp::Add(tree, reader);
  } catch (const kiv::KeyOutOfBoundsException&) {
  } catch (const kiv::InvalidKeyException&) {
  } catch (const kiv::CannotConvertException&) {
    // Each ends the parse and keeps what was merged before it.
  }
  return tree;
}

std::string Store(const kiv::HierHashtable& tree) {
  auto* sink = new kiv::testing::FakeOutput();
  kiv::Writer writer =
      kiv::WriterExp::Make(kiv::TextEncodingExp::MakeUTF8(), kiv::SyncOutputStream(sink));
  kiv::PropertiesExp::Store(tree, writer);
  writer->Flush();
  return sink->text;
}

// The format's own rendering of `node` and everything below it; `writable` turns false for a key
// that would not read back as itself.
void Render(const kiv::HierHashtable& node, const std::string& prefix, std::string& out,
            bool& writable) {
  if (!prefix.empty() && node->Count() > 0) {
    const kiv::String key(kiv::TextEncodingExp::MakeUTF8(), prefix.data(),
                          static_cast<unsigned>(prefix.size()));
    if (Utf8(key->Trim()) != prefix || prefix[0] == '#' || prefix.rfind("\xEF\xBB\xBF", 0) == 0) {
      writable = false;
    }
    out += prefix + ":";
    for (std::int32_t i = 0; i < node->Count(); ++i) {
      out += (i == 0 ? " " : ", ") + Utf8(kiv::String(node->GetElement(i)));
    }
    out += "\n";
  }
  for (auto keys = node->Keys(); keys->HasMoreElements();) {
    const kiv::String name(keys->NextElement());
    Render(node->Get(name), prefix.empty() ? Utf8(name) : prefix + "/" + Utf8(name), out, writable);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, 4096));
  const kiv::HierHashtable first = Parse(text);
  const std::string stored = Store(first);
  std::string rendered;
  bool writable = true;
  Render(first, "", rendered, writable);
  KIV_FUZZ_CHECK(stored == rendered, "stored \"%s\", expected \"%s\", from \"%s\"",
                 Escaped(stored).c_str(), Escaped(rendered).c_str(), Escaped(text).c_str());
  if (!writable) return 0;
  const std::string again = Store(Parse(stored));
  KIV_FUZZ_CHECK(again == stored, "stored \"%s\", then \"%s\", from \"%s\"",
                 Escaped(stored).c_str(), Escaped(again).c_str(), Escaped(text).c_str());
  return 0;
}
