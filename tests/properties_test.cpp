// Properties text: parsing, storing, and round trips through files.
#include <gtest/gtest.h>
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/hierhashtable.h>
#include <kiv/numbers.h>
#include <kiv/properties.h>
#include <kiv/resource.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::MakeReader;
using testing::Utf8;
using testing::Wide;

using Texts = std::vector<std::u16string>;

// The values of the node at `path`, as 16-bit text.
Texts Values(const HierHashtable& tree, const char* path) {
  Texts out;
  for (Enumeration e = tree->Get(Wide(path))->Elements(); e->HasMoreElements();) {
    String value = String(e->NextElement())->Encode(TextEncodingExp::MakeUTF16());
    out.emplace_back(static_cast<const char16_t*>(value->GetData()), value->ByteLength() / 2);
  }
  return out;
}

HierHashtable Parse(const std::string& bytes, const TextEncoding& encoding) {
  HierHashtable tree = HierHashtableExp::Make();
  Reader reader = MakeReader(bytes, encoding);
  PropertiesExp::Add(tree, reader);
  return tree;
}

std::string Store(const HierHashtable& tree, const TextEncoding& encoding) {
  return testing::WrittenText([&](Writer& w) { PropertiesExp::Store(tree, w); }, encoding);
}

// The same text in another encoding, machine order for the wide ones.
std::string Encode(const std::string& utf8, const TextEncoding& encoding) {
  String text = Wide(utf8.c_str())->Encode(encoding);
  return std::string(static_cast<const char*>(text->GetData()), text->ByteLength());
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
       {TextEncodingExp::MakeUTF8(), TextEncodingExp::MakeUTF16(), TextEncodingExp::MakeUTF32()}) {
    const std::string bytes =
        encoding == TextEncodingExp::MakeUTF8() ? std::string(kSample) : Encode(kSample, encoding);
    HierHashtable tree = Parse(bytes, encoding);
    EXPECT_EQ(Values(tree, "logs/application/level"), Texts{u"3"});
    EXPECT_EQ(Values(tree, "a"), (Texts{u"x", u"y", u"z"}));
    EXPECT_EQ(Values(tree, "k"), (Texts{u"1", u"2"}));
    EXPECT_EQ(Values(tree, "empty"), Texts{u""});
    EXPECT_EQ(Values(tree, "t"), (Texts{u"\u00E9t\u00E9", u"\U0001F600"}));
    // A "#" after leading blanks still starts a comment: the line is trimmed first.
    EXPECT_FALSE(tree->ContainsKey(Wide("#not")));
    EXPECT_FALSE(tree->ContainsKey(Wide("no colon here")));
    // The byte order mark is no part of the first key, and the root holds no values.
    EXPECT_EQ(tree->Count(), 0);
  }
  // ASCII with LF ends, and a file of blanks and comments only.
  EXPECT_EQ(Values(Parse("a:1\nb : 2 , 3\n", TextEncodingExp::MakeAscii()), "b"),
            (Texts{u"2", u"3"}));
  HierHashtable blank = Parse("\n   \n# only\n", TextEncodingExp::MakeAscii());
  EXPECT_FALSE(blank->Keys()->HasMoreElements());
}

TEST(PropertiesParse, AddAccumulatesAndLoadStartsAfresh) {
  HierHashtable tree = HierHashtableExp::Make();
  for (int i = 0; i < 2; ++i) {
    Reader reader = MakeReader("k: v\n", TextEncodingExp::MakeAscii());
    PropertiesExp::Add(tree, reader);
  }
  EXPECT_EQ(Values(tree, "k"), (Texts{u"v", u"v"}));
  tree->AddLast(Wide("root value"));
  Reader reader = MakeReader("j: w\n", TextEncodingExp::MakeAscii());
  PropertiesExp::Load(tree, reader);
  EXPECT_FALSE(tree->ContainsKey(Wide("k")));
  EXPECT_EQ(tree->Count(), 0);
  EXPECT_EQ(Values(tree, "j"), Texts{u"w"});
}

TEST(PropertiesParse, BadKeysStopTheLoadWithWhatCameBeforeKept) {
  HierHashtable tree = HierHashtableExp::Make();
  Reader up = MakeReader("a: 1\nb/../c: 2\nd: 3\n", TextEncodingExp::MakeAscii());
  EXPECT_THROW(PropertiesExp::Add(tree, up), KeyOutOfBoundsException);
  EXPECT_TRUE(tree->ContainsKey(Wide("a")));
  EXPECT_FALSE(tree->ContainsKey(Wide("d")));

  Reader rooted = MakeReader("e: 1\n/f: 2\n", TextEncodingExp::MakeAscii());
  EXPECT_THROW(PropertiesExp::Add(tree, rooted), InvalidKeyException);
  Reader empty_key = MakeReader(": 2\n", TextEncodingExp::MakeAscii());
  EXPECT_THROW(PropertiesExp::Add(tree, empty_key), InvalidKeyException);
  EXPECT_TRUE(tree->ContainsKey(Wide("e")));

  // Text that does not decode fails as the reader fails.
  Reader broken = MakeReader("g: \xC3(\n", TextEncodingExp::MakeUTF8());
  EXPECT_THROW(PropertiesExp::Add(tree, broken), CannotConvertException);
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
  EXPECT_EQ(Store(tree, TextEncodingExp::MakeUTF8()), "a/b: 1, 2\na/c/d: x,y\nz: \n");
  EXPECT_EQ(Store(tree, TextEncodingExp::MakeUTF16()),
            Encode("a/b: 1, 2\na/c/d: x,y\nz: \n", TextEncodingExp::MakeUTF16()));

  tree->Get(Wide("z"))->AddLast(new Integer32(4));
  EXPECT_THROW(Store(tree, TextEncodingExp::MakeUTF8()), BadCastException);
}

TEST(PropertiesFiles, RoundTripThroughARealFile) {
  testing::ScopedTempDir dir;
  {
    std::ofstream file("in.properties", std::ios::binary);
    file << "# header\r\nserver/port: 8080\r\nserver/names: a, b\r\nlogs/application/level: "
            "warn\r\n";
  }
  Resource in = SyncResourceExp::Make(Wide("in.properties"));
  HierHashtable tree = HierHashtableExp::Make();
  PropertiesExp::Load(tree, in, TextEncodingExp::MakeUTF8());
  const std::string stored = Store(tree, TextEncodingExp::MakeUTF8());
  EXPECT_EQ(stored, "server/port: 8080\nserver/names: a, b\nlogs/application/level: warn\n");

  Resource out = SyncResourceExp::Make(Wide("out.properties"));
  CommitSyncOutputStream stream = out->OpenCommitOutputStream();
  Writer writer = WriterExp::Make(TextEncodingExp::MakeUTF8(), stream);
  PropertiesExp::Store(tree, writer);
  writer->Flush();
  stream->Commit();
  HierHashtable again = HierHashtableExp::Make();
  PropertiesExp::Load(again, out, TextEncodingExp::MakeUTF8());
  EXPECT_EQ(Store(again, TextEncodingExp::MakeUTF8()), stored);

  // A missing file fails as opening it fails (resource_test checks the text); Load has emptied
  // the tree first.
  EXPECT_THROW(PropertiesExp::Load(again, SyncResourceExp::Make(Wide("nope.properties")),
                                   TextEncodingExp::MakeUTF8()),
               ResourceOSException);
  EXPECT_FALSE(again->Keys()->HasMoreElements());
}

}  // namespace
}  // namespace kiv
