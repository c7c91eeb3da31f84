#include <kiv/hashtable.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "../src/collections/hashtable_hash.h"
#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Item;
using testing::V;
using testing::Wide;

std::vector<std::string> KeysOf(const ConstHashtable& t) { return testing::Strings(t->Keys()); }

// The reference arithmetic, written with 64-bit intermediates and explicit wrapping.
std::uint32_t ReferenceHash(const std::vector<unsigned short>& s) {
  if (s.empty()) return 0;
  std::int32_t h = s[0];
  for (std::size_t i = 1; i < s.size(); ++i) {
    const std::int64_t doubled = 2 * std::int64_t{h} - (h >> 16);
    h = static_cast<std::int32_t>(static_cast<std::uint32_t>(doubled) ^ s[i]);
  }
  return static_cast<std::uint32_t>(h ^ (h >> 16));
}

TEST(HashtableHash, MatchesTheReferenceArithmeticAndSizing) {
  const unsigned short ab[] = {'a', 'b'};
  EXPECT_EQ(hashing::HashUnits(ab, 0), 0u);
  EXPECT_EQ(hashing::HashUnits(ab, 2), 160u);  // (2 * 97) ^ 98
  std::mt19937 rng(7);
  for (int n = 0; n < 2000; ++n) {
    std::vector<unsigned short> s(1 + rng() % 60);
    for (unsigned short& c : s) c = static_cast<unsigned short>(rng());
    EXPECT_EQ(hashing::HashUnits(s.data(), static_cast<std::uint32_t>(s.size())), ReferenceHash(s));
  }
  // Powers of two up to the ceiling; growth at a load of 1.5, one bucket growing at 2 entries.
  EXPECT_EQ((std::vector<std::uint32_t>{hashing::InitialBuckets(0), hashing::InitialBuckets(3),
                                        hashing::InitialBuckets(5000), hashing::GrowThreshold(1),
                                        hashing::GrowThreshold(2048)}),
            (std::vector<std::uint32_t>{1, 4, 2048, 2, 3072}));
}

TEST(Hashtable, ManyKeysAcrossTheBucketCeiling) {
  Hashtable t = HashtableExp::Make();
  const int n = 12000;  // far past 2048 buckets x 1.5
  auto key = [](int i) { return "key-" + std::to_string(i * 7919); };
  for (int i = 0; i < n; ++i) EXPECT_TRUE(t->Put(Wide(key(i).c_str()), new Item(i)));
  std::vector<std::string> keys = KeysOf(t);
  ASSERT_EQ(keys.size(), static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(keys[i], key(i));
    ASSERT_EQ(V(t->Get(Wide(keys[i].c_str()))), i);
  }
  for (int i = 0; i < n; i += 2) ASSERT_EQ(V(t->Remove(Wide(keys[i].c_str()))), i);
  for (int i = 0; i < n; ++i) ASSERT_EQ(t->ContainsKey(Wide(keys[i].c_str())), i % 2 == 1);
  EXPECT_EQ(KeysOf(t).size(), static_cast<std::size_t>(n / 2));
  t = Hashtable();
  EXPECT_EQ(Item::live, 0);
}

TEST(Hashtable, CaseRules) {
  Hashtable ci = HashtableExp::Make(8, true);
  ci->Put(Wide("Path"), new Item(1));
  ci->Put(Wide("PATH"), new Item(2));
  EXPECT_EQ(KeysOf(ci), std::vector<std::string>{"Path"});
  EXPECT_EQ(V(ci->Get(Wide("pAtH"))), 2);
  // Keys in other encodings are found by their text.
  EXPECT_EQ(V(ci->Remove(String(TextEncodingExp::MakeAscii(), static_cast<const void*>("PATH")))),
            2);
  Hashtable cs = HashtableExp::Make();
  cs->Put(Wide("Path"), new Item(1));
  cs->Put(String(TextEncodingExp::MakeUTF8(), static_cast<const void*>("PATH")), new Item(2));
  EXPECT_EQ(KeysOf(cs), (std::vector<std::string>{"Path", "PATH"}));
}

TEST(Hashtable, KeyOrderAndBadOrMissingKeys) {
  Hashtable t = HashtableExp::Make(1000, false);
  for (const char* k : {"a", "b", "c"}) t->Put(Wide(k), new Item(k[0]));
  t->Put(Wide("b"), new Item(42));
  EXPECT_EQ(KeysOf(t), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(V(t->Remove(Wide("b"))), 42);
  EXPECT_FALSE(!!t->Remove(Wide("b")));  // absent: empty handle, nothing changes
  EXPECT_EQ(KeysOf(t), (std::vector<std::string>{"a", "c"}));
  t->Lookup(Wide("b")) = new Item(7);  // a new entry, assigned through the reference
  EXPECT_EQ(KeysOf(t), (std::vector<std::string>{"a", "c", "b"}));
  EXPECT_EQ(V(t->Get(Wide("b"))), 7);
  EXPECT_FALSE(!!t->Lookup(Wide("d")));
  EXPECT_TRUE(t->ContainsKey(Wide("d")));
  EXPECT_EQ(testing::ThrownText<NoSuchNamedElementException>([&] { t->Get(Wide("missing")); }),
            "kiv::NoSuchNamedElementException - missing");
  for (const String& bad : {String(TextEncodingExp::MakeUTF16()), String()}) {
    EXPECT_FALSE(t->ContainsKey(bad));
    EXPECT_THROW(t->Get(bad), InvalidKeyException);
    EXPECT_THROW(t->Put(bad, Object()), InvalidKeyException);
    EXPECT_THROW(t->Lookup(bad), InvalidKeyException);
    EXPECT_THROW(t->Remove(bad), InvalidKeyException);
  }
  EXPECT_EQ(KeysOf(t).size(), 4u);
}

TEST(Hashtable, RemoveAllAndCloneKeepElementsCounted) {
  {
    Hashtable t = HashtableExp::Make(1, true);
    for (int i = 0; i < 5000; ++i) t->Put(Wide(("K" + std::to_string(i)).c_str()), new Item(i));
    t->RemoveAll();
    EXPECT_EQ(Item::live, 0);
    EXPECT_TRUE(KeysOf(t).empty());
    // The table keeps working after the clear (its count is kept, so it regrows sooner).
    for (int i = 0; i < 5000; ++i) t->Put(Wide(("K" + std::to_string(i)).c_str()), new Item(i));
    EXPECT_EQ(V(t->Get(Wide("k4999"))), 4999);
    Hashtable copy(t->Clone());
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
  Hashtable inner = HashtableExp::Make();
  inner->Put(Wide("none"), Object());
  t->Put(Wide("long"), Wide("abcdefghijklmnopqrstuvwxyz"));  // 26 characters
  t->Put(Wide("whole"), Wide("abcdefghijklmnopqrst"));       // 20 characters
  t->Put(Wide("table"), inner);
  EXPECT_EQ(testing::WrittenText([&](Writer& w) {
              ConstHashtableExp::Dump(w, t, 2);
              ConstHashtableExp::Dump(w, inner, Wide("Title"), 0);
            }),
            "  long: \"abcdefghijklmnopq...\"\n"
            "  whole: \"abcdefghijklmnopqrst\"\n"
            "  table: kiv::HashtableImpl\n"
            "Title\n"
            " none: NULL\n");
}

}  // namespace
}  // namespace kiv
