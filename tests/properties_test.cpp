// Properties text: parsing and storing.
#include <kiv/containers.h>
#include <kiv/hierhashtable.h>
#include <kiv/numbers.h>
#include <kiv/properties.h>
#include <kiv/resource.h>

#include <string>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Bytes;
using testing::MakeReader;
using testing::Wide;

const TextEncoding kAscii = TextEncodingExp::MakeAscii();
const TextEncoding kUtf8 = TextEncodingExp::MakeUTF8();

// Adds the properties of `bytes` in `encoding` to `tree`.
void Add(HierHashtable& tree, const std::string& bytes, const TextEncoding& encoding = kAscii) {
  Reader reader = MakeReader(bytes, encoding);
  PropertiesExp::Add(tree, reader);
}

// Store's text, which fuzz/properties_fuzz.cpp holds to the tree, stands for the tree parsed.
std::string Store(const HierHashtable& tree, const TextEncoding& encoding = kUtf8) {
  return testing::WrittenText([&](Writer& w) { PropertiesExp::Store(tree, w); }, encoding);
}

constexpr char kSample[] =
    "\xEF\xBB\xBF# settings\r\n"
    "  logs/application/level  :  3  \r\n"
    "\r\n"
    "a: x, y,z\r\n"
    "no colon here\r\n"
    "k: 1\r\n"
    "empty:\r\n"
    "k : 2\r\n"
    "  #not: a comment only when first\r\n"
    "t: \xC3\xA9t\xC3\xA9, \xF0\x9F\x98\x80";

TEST(PropertiesParse, FollowsTheLineRulesInEveryEncoding) {
  for (TextEncoding encoding :
       {kUtf8, TextEncodingExp::MakeUTF16(), TextEncodingExp::MakeUTF32()}) {
    HierHashtable tree = HierHashtableExp::Make();
    Add(tree, Bytes(Wide(kSample)->Encode(encoding)), encoding);
    // A "#" after leading blanks still starts a comment: the line is trimmed first. The byte order
    // mark is no part of the first key, and the root holds no values.
    EXPECT_EQ(Store(tree, TextEncodingExp::MakeUTF16()),
              Bytes(Wide("logs/application/level: 3\na: x, y, z\nk: 1, 2\nempty: \n"
                         "t: \xC3\xA9t\xC3\xA9, \xF0\x9F\x98\x80\n")));
    EXPECT_EQ(tree->Count(), 0);
  }
  // LF ends.
  HierHashtable tree = HierHashtableExp::Make();
  Add(tree, "a:1\nb : 2 , 3\n");
  EXPECT_EQ(Store(tree), "a: 1\nb: 2, 3\n");
}

// Loading a file through a resource: preferences_test, which publishes files so; the text of a
// failure to open one: resource_test.
TEST(PropertiesParse, AddAccumulatesAndLoadStartsAfreshEvenWhenItsFileCannotBeOpened) {
  HierHashtable tree = HierHashtableExp::Make();
  Add(tree, "k: v\n");
  Add(tree, "k: v\n");
  EXPECT_EQ(Store(tree), "k: v, v\n");
  tree->AddLast(Wide("root value"));
  Reader reader = MakeReader("j: w\n", kAscii);
  PropertiesExp::Load(tree, reader);
  EXPECT_EQ(tree->Count(), 0);
  EXPECT_EQ(Store(tree), "j: w\n");
  testing::ScopedTempDir dir;
  EXPECT_THROW(PropertiesExp::Load(tree, SyncResourceExp::Make(Wide("nope.properties")), kUtf8),
               ResourceOSException);
  EXPECT_FALSE(tree->Keys()->HasMoreElements());
}

TEST(PropertiesParse, BadKeysStopTheLoadWithWhatCameBeforeKept) {
  HierHashtable tree = HierHashtableExp::Make();
  EXPECT_THROW(Add(tree, "a: 1\nb/../c: 2\nd: 3\n"), KeyOutOfBoundsException);
  EXPECT_THROW(Add(tree, "e: 1\n/f: 2\n"), InvalidKeyException);
  EXPECT_THROW(Add(tree, ": 2\n"), InvalidKeyException);
  EXPECT_EQ(Store(tree), "a: 1\ne: 1\n");
  // Text that does not decode fails as the reader fails.
  EXPECT_THROW(Add(tree, "g: \xC3(\n", kUtf8), CannotConvertException);
}

TEST(PropertiesStore, WritesDepthFirstWithSlashesAndNoRootValues) {
  // A tree with a separator of its own: the file always says "/".
  HierHashtable tree =
      HierHashtableExp::Make(ContainerExp::MakeList(), HashtableExp::Make(), Wide("::"), false);
  tree->AddLast(Wide("never written"));
  tree->MakePath(Wide("a::b"), 0x1FF, 0)->AddLast(Wide("1"));
  tree->Get(Wide("a::b"))->AddLast(Wide("2"));
  tree->MakePath(Wide("a::c::d"), 0x1FF, 0)->AddLast(Wide("x,y"));
  tree->MakePath(Wide("z"), 0x1FF, 0)->AddLast(Object());
  EXPECT_EQ(Store(tree), "a/b: 1, 2\na/c/d: x,y\nz: \n");
  tree->Get(Wide("z"))->AddLast(new Integer32(4));
  EXPECT_THROW(Store(tree), BadCastException);
}

}  // namespace
}  // namespace kiv
