#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/registry.h>
#include <kiv/string.h>

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <set>
#include <string>

#include "support/test_support.h"

#if !defined(_WIN32)
extern char** environ;
#endif

namespace kiv {
namespace {

using testing::Utf8;
using testing::Wide;

int Occurrences(const HierHashtable& t, const std::string& name) {
  int n = 0;
  for (Ref<EnumerationItf> e = t->Keys(); e->HasMoreElements();) {
    n += Utf8(String(e->NextElement())) == name;
  }
  return n;
}

HierHashtable Holding(const String& value) {
  HierHashtable node = HierHashtableExp::Make();
  node->AddLast(value);
  return node;
}

TEST(Registry, FixedPaths) {
  HierHashtable root = RegistryExp::MakeRegistry();
  EXPECT_EQ(root.Get(), RegistryExp::MakeRegistry().Get());
  HierHashtable data = RegistryExp::MakeDataConverterRegistry();
  EXPECT_EQ(RegistryExp::MakeDataConverterRegistry().Get(), data.Get());
  EXPECT_EQ(root->Get(Wide("dataconverters")).Get(), data.Get());
  EXPECT_EQ(Occurrences(root, "dataconverters"), 1);
  EXPECT_EQ(root->Get(Wide("blockconverters")).Get(),
            RegistryExp::MakeBlockConverterRegistry().Get());
  EXPECT_EQ(root->Get(Wide("textencodings")).Get(), RegistryExp::MakeTextEncodingRegistry().Get());
  EXPECT_FALSE(root->IsCaseInsensitive());
  EXPECT_FALSE(root->ContainsKey(Wide("DataConverters")));

  // A static registry entry attaches its own node under its path.
  class Entry : public StaticRegistryFactory {
   public:
    Entry() : StaticRegistryFactory("kivtest/static", 0, 4, true) {}
  };
  Ref<Entry> entry(new Entry);
  EXPECT_EQ(root->Get(Wide("kivtest/static")).Get(), entry->GetNode().Get());
  EXPECT_TRUE(entry->GetNode()->IsCaseInsensitive());
  root->Remove(Wide("kivtest"), 0);
}

TEST(Registry, EnvironmentTable) {
  testing::SetEnv("KIV_REGISTRY_PROBE", "probe-value");
  HierHashtable env = RegistryExp::MakeEnv();
  EXPECT_EQ(RegistryExp::MakeRegistry()->Get(Wide("shell/env")).Get(), env.Get());
  EXPECT_TRUE(env->IsCaseInsensitive());
  EXPECT_EQ(Utf8(String(env->Get(Wide("KIV_REGISTRY_PROBE"))->First())), "probe-value");
  if (const char* path = ::getenv("PATH")) {
    EXPECT_EQ(Utf8(String(env->Get(Wide("PATH"))->First())), path);
  }
  EXPECT_EQ(Utf8(NamedString(Wide("shell/env/KIV_REGISTRY_PROBE"))), "probe-value");

  std::set<std::string> expected;
  for (char** e = environ; *e != nullptr; ++e) {
    std::string entry(*e);
    // Windows keeps each drive's current directory under a name starting with "=" ("=C:"); those
    // are no variables.
    if (entry.find('=') == 0) continue;
    expected.insert(entry.substr(0, entry.find('=')));
  }
  std::set<std::string> keys;
  for (Ref<EnumerationItf> k = env->Keys(); k->HasMoreElements();) {
    keys.insert(Utf8(String(k->NextElement())));
  }
  EXPECT_EQ(keys, expected);

  // Changes go to the runtime's environment.
  EXPECT_FALSE(!!env->Put(Wide("KIV_REGISTRY_SET"), Holding(Wide("caf\xC3\xA9"))));
  std::string set;
  ASSERT_TRUE(testing::GetEnv("KIV_REGISTRY_SET", set));
  EXPECT_EQ(set, "caf\xC3\xA9");
  EXPECT_EQ(Utf8(String(env->Remove(Wide("KIV_REGISTRY_SET"), 0)->First())), "caf\xC3\xA9");
  EXPECT_FALSE(env->ContainsKey(Wide("KIV_REGISTRY_SET")));
  EXPECT_FALSE(testing::GetEnv("KIV_REGISTRY_SET", set));
  EXPECT_FALSE(!!env->Remove(Wide("KIV_REGISTRY_SET"), 0));
  EXPECT_THROW(env->Get(Wide("KIV_REGISTRY_SET")), NoSuchNamedElementException);
  EXPECT_THROW(env->Clone(false), HTNotCloneableException);
  EXPECT_THROW(HashtableExp::Make(env)->Lookup(Wide("PATH")), NotSupportedException);
  testing::UnsetEnv("KIV_REGISTRY_PROBE");
}

TEST(Registry, NamedStrings) {
  HierHashtable root = RegistryExp::MakeRegistry();
  root->MakePath(Wide("kivnamed/value"), 0x1FF, 0)->AddLast(Wide("configured"));
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed/value"))), "configured");
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed/value"), Wide("default"))), "configured");
  NamedString missing(Wide("kivnamed/absent"));
  EXPECT_TRUE(missing->IsEmpty());
  EXPECT_EQ(missing->GetEncoding().Get(), TextEncodingExp::MakeAppDefault().Get());
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed/absent"), Wide("default"))), "default");
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed"), Wide("default"))), "default");  // no value
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed/../x"), Wide("default"))), "default");
  root->Remove(Wide("kivnamed"), 0);
}

TEST(Registry, EncodingsAndConvertersByName) {
  struct Known {
    const char* name;
    TextEncoding (*make)();
  };
  for (Known k :
       {Known{"ascii", &TextEncodingExp::MakeAscii}, Known{"utf-8", &TextEncodingExp::MakeUTF8},
        Known{"utf-16", &TextEncodingExp::MakeUTF16},
        Known{"utf-32", &TextEncodingExp::MakeUTF32}}) {
    TextEncoding encoding = k.make();
    EXPECT_EQ(TextEncodingExp::Make(Wide(k.name)).Get(), encoding.Get()) << k.name;
    std::string to = std::string(k.name) + "->wchar_t";
    std::string from = std::string("wchar_t->") + k.name;
    BlockConverter to_block = BlockConverterExp::Make(Wide(to.c_str()));
    BlockConverter from_block = BlockConverterExp::Make(Wide(from.c_str()));
    EXPECT_EQ(to_block.Get(), encoding->GetToWideConverter().Get()) << to;
    EXPECT_EQ(from_block.Get(), encoding->GetFromWideConverter().Get()) << from;
    EXPECT_EQ(DataConverterExp::Make(Wide(to.c_str())).Get(), to_block->GetDataConverter().Get())
        << to;
    EXPECT_EQ(DataConverterExp::Make(Wide(from.c_str())).Get(),
              from_block->GetDataConverter().Get())
        << from;
  }
  EXPECT_THROW(TextEncodingExp::Make(Wide("latin-1")), NoSuchElementException);
  EXPECT_THROW(TextEncodingExp::Make(String(TextEncodingExp::MakeUTF16())), NoSuchElementException);
  EXPECT_THROW(BlockConverterExp::Make(Wide("latin-1->wchar_t")), NoSuchElementException);
  EXPECT_THROW(DataConverterExp::Make(Wide("wchar_t->latin-1")), NoSuchElementException);

  // An object of another kind registered under a name gives a null handle.
  HierHashtable encodings = RegistryExp::MakeTextEncodingRegistry();
  encodings->Put(Wide("bogus"), Holding(Wide("not an encoding")));
  EXPECT_FALSE(!!TextEncodingExp::Make(Wide("bogus")));
  encodings->Remove(Wide("bogus"), 0);
}

}  // namespace
}  // namespace kiv
