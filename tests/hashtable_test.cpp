#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/hashtable.h>
#include <kiv/textio.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "../src/collections/hashtable_hash.h"
#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Utf8;
using testing::Wide;

// A counted value that knows how many of its kind are alive.
class Item : public RefCount {
 public:
  explicit Item(int v) : value(v) { ++live; }
  ~Item() override { --live; }
  const int value;
  static inline int live = 0;
};

int V(const Object& o) { return dynamic_cast<const Item*>(o.Get())->value; }

std::vector<std::string> KeysOf(const ConstHashtable& t) {
  std::vector<std::string> out;
  for (String key : t->Keys()) out.push_back(key.ToUTF8());
  return out;
}

// The reference arithmetic, written with 64-bit intermediates and explicit wrapping.
std::uint32_t ReferenceHash(const std::u16string& s) {
  if (s.empty()) return 0;
  std::int64_t h = s[0];
  for (std::size_t i = 1; i < s.size(); ++i) {
    std::int32_t h32 = static_cast<std::int32_t>(static_cast<std::uint32_t>(h));
    std::int64_t doubled = 2 * static_cast<std::int64_t>(h32) - (h32 >> 16);
    h = static_cast<std::int64_t>(static_cast<std::uint32_t>(doubled) ^ s[i]);
  }
  std::int32_t h32 = static_cast<std::int32_t>(static_cast<std::uint32_t>(h));
  return static_cast<std::uint32_t>(h32 ^ (h32 >> 16));
}

TEST(HashtableHash, MatchesTheReferenceArithmeticAndSizing) {
  const unsigned short ab[] = {'a', 'b'};
  EXPECT_EQ(hashing::HashUnits(ab, 0), 0u);
  EXPECT_EQ(hashing::HashUnits(ab, 1), 97u);
  EXPECT_EQ(hashing::HashUnits(ab, 2), 160u);  // (2 * 97) ^ 98
  std::mt19937 rng(7);
  for (int n = 0; n < 2000; ++n) {
    std::u16string s(1 + rng() % 60, u'x');
    for (char16_t& c : s) c = static_cast<char16_t>(rng());
    EXPECT_EQ(hashing::HashUnits(reinterpret_cast<const unsigned short*>(s.data()),
                                 static_cast<std::uint32_t>(s.size())),
              ReferenceHash(s));
  }
  EXPECT_EQ(hashing::InitialBuckets(0), 1u);
  EXPECT_EQ(hashing::InitialBuckets(1), 1u);
  EXPECT_EQ(hashing::InitialBuckets(3), 4u);
  EXPECT_EQ(hashing::InitialBuckets(1000), 1024u);
  EXPECT_EQ(hashing::InitialBuckets(5000), 2048u);
  EXPECT_EQ(hashing::GrowThreshold(1), 2u);
  EXPECT_EQ(hashing::GrowThreshold(2048), 3072u);
}

TEST(Hashtable, ManyKeysAcrossTheBucketCeiling) {
  Hashtable t = HashtableExp::Make();
  const int n = 12000;  // far past 2048 buckets x 1.5
  for (int i = 0; i < n; ++i) {
    EXPECT_TRUE(t->Put(Wide(("key-" + std::to_string(i * 7919)).c_str()), new Item(i)));
  }
  std::vector<std::string> keys = KeysOf(t);
  ASSERT_EQ(keys.size(), static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(keys[i], "key-" + std::to_string(i * 7919));
    ASSERT_EQ(V(t->Get(Wide(keys[i].c_str()))), i);
  }
  for (int i = 0; i < n; i += 2) ASSERT_EQ(V(t->Remove(Wide(keys[i].c_str()))), i);
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(t->ContainsKey(Wide(keys[i].c_str())), i % 2 == 1);
  }
  EXPECT_EQ(KeysOf(t).size(), static_cast<std::size_t>(n / 2));
  EXPECT_FALSE(t->ContainsKey(Wide("key-1")));
  t = Hashtable();
  EXPECT_EQ(Item::live, 0);
}

TEST(Hashtable, CaseRules) {
  Hashtable ci = HashtableExp::Make(8, true);
  EXPECT_TRUE(ci->IsCaseInsensitive());
  ci->Put(Wide("Path"), new Item(1));
  ci->Put(Wide("PATH"), new Item(2));
  EXPECT_EQ(KeysOf(ci), std::vector<std::string>{"Path"});
  EXPECT_EQ(V(ci->Get(Wide("pAtH"))), 2);
  // Keys in other encodings are found by their text.
  String ascii(TextEncodingExp::MakeAscii(), static_cast<const void*>("PATH"));
  EXPECT_TRUE(ci->ContainsKey(ascii));
  EXPECT_EQ(V(ci->Remove(ascii)), 2);
  EXPECT_TRUE(KeysOf(ci).empty());

  Hashtable cs = HashtableExp::Make();
  EXPECT_FALSE(cs->IsCaseInsensitive());
  cs->Put(Wide("Path"), new Item(1));
  cs->Put(String(TextEncodingExp::MakeUTF8(), static_cast<const void*>("PATH")), new Item(2));
  EXPECT_EQ(KeysOf(cs), (std::vector<std::string>{"Path", "PATH"}));
  EXPECT_FALSE(cs->ContainsKey(Wide("path")));
  EXPECT_THROW(cs->Get(Wide("path")), NoSuchNamedElementException);
}

TEST(Hashtable, KeyOrderUnderReplaceAndRemove) {
  Hashtable t = HashtableExp::Make(1000, false);
  for (const char* k : {"a", "b", "c"}) t->Put(Wide(k), new Item(k[0]));
  t->Put(Wide("b"), new Item(42));
  EXPECT_EQ(KeysOf(t), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(V(t->Get(Wide("b"))), 42);
  EXPECT_EQ(V(t->Remove(Wide("b"))), 42);
  EXPECT_FALSE(!!t->Remove(Wide("b")));  // absent: empty handle, nothing changes
  EXPECT_EQ(KeysOf(t), (std::vector<std::string>{"a", "c"}));
  t->Lookup(Wide("b")) = new Item(7);  // a new entry, assigned through the reference
  EXPECT_EQ(KeysOf(t), (std::vector<std::string>{"a", "c", "b"}));
  EXPECT_EQ(V(t->Get(Wide("b"))), 7);
  EXPECT_FALSE(!!t->Lookup(Wide("d")));
  EXPECT_TRUE(t->ContainsKey(Wide("d")));
}

TEST(Hashtable, EmptyAndMissingKeys) {
  Hashtable t = HashtableExp::Make();
  String empty(TextEncodingExp::MakeUTF16());
  for (const String& bad : {empty, String()}) {
    EXPECT_FALSE(t->ContainsKey(bad));
    EXPECT_THROW(t->Get(bad), InvalidKeyException);
    EXPECT_THROW(t->Put(bad, Object()), InvalidKeyException);
    EXPECT_THROW(t->Lookup(bad), InvalidKeyException);
    EXPECT_THROW(t->Remove(bad), InvalidKeyException);
  }
  EXPECT_TRUE(KeysOf(t).empty());
  EXPECT_EQ(testing::ThrownText<NoSuchNamedElementException>([&] { t->Get(Wide("missing")); }),
            "kiv::NoSuchNamedElementException - missing");
}

TEST(Hashtable, RemoveAllAndCloneKeepElementsCounted) {
  {
    Hashtable t = HashtableExp::Make(1, true);
    for (int i = 0; i < 5000; ++i) t->Put(Wide(("K" + std::to_string(i)).c_str()), new Item(i));
    t->RemoveAll();
    EXPECT_EQ(Item::live, 0);
    EXPECT_TRUE(KeysOf(t).empty());
    EXPECT_FALSE(t->ContainsKey(Wide("K1")));
    // The table keeps working after the clear (its count is kept, so it regrows sooner).
    for (int i = 0; i < 5000; ++i) t->Put(Wide(("K" + std::to_string(i)).c_str()), new Item(i));
    EXPECT_EQ(V(t->Get(Wide("k4999"))), 4999);

    ASSERT_TRUE(t->IsCloneable());
    Hashtable copy(t->Clone());
    EXPECT_TRUE(copy->IsCaseInsensitive());
    EXPECT_EQ(KeysOf(copy), KeysOf(t));
    EXPECT_EQ(copy->Get(Wide("k17")).Get(), t->Get(Wide("K17")).Get());  // elements shared
    copy->Remove(Wide("K17"));
    copy->Put(Wide("new"), new Item(-1));
    EXPECT_TRUE(t->ContainsKey(Wide("K17")));
    EXPECT_FALSE(t->ContainsKey(Wide("new")));
    EXPECT_EQ(Item::live, 5001);
  }
  EXPECT_EQ(Item::live, 0);
}

TEST(HashtableDump, ExactText) {
  Hashtable t = HashtableExp::Make();
  t->Put(Wide("long"), Wide("abcdefghijklmnopqrstuvwxyz"));  // 26 characters
  t->Put(Wide("whole"), Wide("abcdefghijklmnopqrst"));       // 20 characters
  t->Put(Wide("none"), Object());
  t->Put(Wide("table"), HashtableExp::Make());
  EXPECT_EQ(testing::WrittenText([&](Writer& w) {
              ConstHashtableExp::Dump(w, t, 2);
              ConstHashtableExp::Dump(w, t, Wide("Title"), 0);
            }),
            "  long: \"abcdefghijklmnopq...\"\n"
            "  whole: \"abcdefghijklmnopqrst\"\n"
            "  none: NULL\n"
            "  table: kiv::HashtableImpl\n"
            "Title\n"
            " long: \"abcdefghijklmnopq...\"\n"
            " whole: \"abcdefghijklmnopqrst\"\n"
            " none: NULL\n"
            " table: kiv::HashtableImpl\n");
}

}  // namespace
}  // namespace kiv
