#include <kiv/converters.h>
#include <kiv/registry.h>

#include <set>
#include <string>
#include <utility>

#include "support/test_support.h"

#if !defined(_WIN32)
extern char** environ;
#endif

namespace kiv {
namespace {

using testing::Utf8;
using testing::Wide;

HierHashtable Holding(const String& value) {
  HierHashtable node = HierHashtableExp::Make();
  node->AddLast(value);
  return node;
}

TEST(Registry, FixedPathsAndNamedStrings) {
  HierHashtable root = RegistryExp::MakeRegistry();
  EXPECT_EQ(root.Get(), RegistryExp::MakeRegistry().Get());
  HierHashtable data = RegistryExp::MakeDataConverterRegistry();
  EXPECT_EQ(RegistryExp::MakeDataConverterRegistry().Get(), data.Get());
  EXPECT_EQ(root->Get(Wide("dataconverters")).Get(), data.Get());
  EXPECT_EQ(root->Get(Wide("blockconverters")).Get(),
            RegistryExp::MakeBlockConverterRegistry().Get());
  EXPECT_EQ(root->Get(Wide("textencodings")).Get(), RegistryExp::MakeTextEncodingRegistry().Get());
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

  // A named string is the first value at its path, else the default (or empty).
  root->MakePath(Wide("kivnamed/value"), 0x1FF, 0)->AddLast(Wide("configured"));
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed/value"), Wide("default"))), "configured");
  NamedString missing(Wide("kivnamed/absent"));
  EXPECT_TRUE(missing->IsEmpty());
  EXPECT_EQ(missing->GetEncoding().Get(), TextEncodingExp::MakeAppDefault().Get());
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed/absent"), Wide("default"))), "default");
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed"), Wide("default"))), "default");  // no value
  EXPECT_EQ(Utf8(NamedString(Wide("kivnamed/../x"), Wide("default"))), "default");
  root->Remove(Wide("kivnamed"), 0);
}

TEST(Registry, EnvironmentTable) {
  testing::SetEnv("KIV_REGISTRY_PROBE", "probe-value");
  HierHashtable env = RegistryExp::MakeEnv();
  EXPECT_EQ(RegistryExp::MakeRegistry()->Get(Wide("shell/env")).Get(), env.Get());
  EXPECT_TRUE(env->IsCaseInsensitive());
  EXPECT_EQ(Utf8(String(env->Get(Wide("KIV_REGISTRY_PROBE"))->First())), "probe-value");
  EXPECT_EQ(Utf8(NamedString(Wide("shell/env/KIV_REGISTRY_PROBE"))), "probe-value");

  std::set<std::string> expected;
  for (char** e = environ; *e != nullptr; ++e) {
    // Windows keeps each drive's current directory under a name starting with "=" ("=C:").
    const std::string entry(*e);
    if (entry.find('=') != 0) expected.insert(entry.substr(0, entry.find('=')));
  }
  const std::vector<std::string> keys = testing::Strings(env->Keys());
  EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()), expected);

  // Changes go to the runtime's environment.
  EXPECT_FALSE(!!env->Put(Wide("KIV_REGISTRY_SET"), Holding(Wide("caf\xC3\xA9"))));
  std::string set;
  ASSERT_TRUE(testing::GetEnv("KIV_REGISTRY_SET", set));
  EXPECT_EQ(set, "caf\xC3\xA9");
  EXPECT_EQ(Utf8(String(env->Remove(Wide("KIV_REGISTRY_SET"), 0)->First())), "caf\xC3\xA9");
  EXPECT_FALSE(env->ContainsKey(Wide("KIV_REGISTRY_SET")));
  EXPECT_FALSE(testing::GetEnv("KIV_REGISTRY_SET", set));
  EXPECT_FALSE(!!env->Remove(Wide("KIV_REGISTRY_SET"), 0));
  EXPECT_THROW(env->Clone(false), HTNotCloneableException);
  EXPECT_THROW(HashtableExp::Make(env)->Lookup(Wide("PATH")), NotSupportedException);
  testing::UnsetEnv("KIV_REGISTRY_PROBE");
}

TEST(Registry, EncodingsAndConvertersByName) {
  for (auto [name, make] : {std::pair{"ascii", &TextEncodingExp::MakeAscii},
                            {"utf-8", &TextEncodingExp::MakeUTF8},
                            {"utf-16", &TextEncodingExp::MakeUTF16},
                            {"utf-32", &TextEncodingExp::MakeUTF32},
                            {"utf-8-standard", &TextEncodingExp::MakeStandardUTF8}}) {
    SCOPED_TRACE(name);
    TextEncoding encoding = make();
    EXPECT_EQ(TextEncodingExp::Make(Wide(name)).Get(), encoding.Get());
    const String to = Wide((std::string(name) + "->wchar_t").c_str());
    const String from = Wide(("wchar_t->" + std::string(name)).c_str());
    BlockConverter to_block = BlockConverterExp::Make(to);
    BlockConverter from_block = BlockConverterExp::Make(from);
    EXPECT_EQ(to_block.Get(), encoding->GetToWideConverter().Get());
    EXPECT_EQ(from_block.Get(), encoding->GetFromWideConverter().Get());
    EXPECT_EQ(DataConverterExp::Make(to).Get(), to_block->GetDataConverter().Get());
    EXPECT_EQ(DataConverterExp::Make(from).Get(), from_block->GetDataConverter().Get());
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
