#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/hierhashtable.h>
#include <kiv/textio.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::ThrownText;
using testing::Utf8;
using testing::Wide;

// A tree node of a class of its own, standing in for the nodes of other trees (directories,
// adapters) that a general tree hands paths to.
// Applies no path rules at all: every path operation records its name and the path it was given
// (with the pass-along arguments) in `calls`, then answers with the node itself (ContainsKey:
// true; Put: an empty handle).
class RecordingNode : public HierHashtableBase {
 public:
  RecordingNode() : HierHashtableBase(ContainerExp::MakeList()) {}

  bool IsCaseInsensitive() const override { return false; }
  void Reserved(std::int32_t) override {}
  Ref<EnumerationItf> Keys() const override { return ContainerExp::MakeList()->Elements(); }
  bool ContainsKey(const String& path) const override {
    Note("ContainsKey " + Utf8(path));
    return true;
  }
  HierHashtable Get(const String& path) const override {
    Note("Get " + Utf8(path));
    return HierHashtable(this);
  }
  HierHashtable MakePath(const String& path, std::uint32_t mode, std::int32_t extra) override {
    Note("MakePath " + Utf8(path) + " " + std::to_string(mode) + " " + std::to_string(extra));
    return HierHashtable(this);
  }
  HierHashtable Put(const String& path, const HierHashtable&) override {
    Note("Put " + Utf8(path));
    return HierHashtable();
  }
  HierHashtable Remove(const String& path, std::int32_t extra) override {
    Note("Remove " + Utf8(path) + " " + std::to_string(extra));
    return HierHashtable(this);
  }
  bool IsCloneable() const override { return false; }
  Ref<HierHashtableItf> Clone(bool) const override { throw HTNotCloneableException(); }

  mutable std::vector<std::string> calls;

 private:
  void Note(std::string call) const { calls.push_back(std::move(call)); }
};

std::vector<std::string> KeysOf(const HierHashtable& t) { return testing::Strings(t->Keys()); }

TEST(HierHashtablePaths, WalkingWithDotsAndSeparators) {
  HierHashtable root = HierHashtableExp::Make();
  HierHashtable y = root->MakePath(Wide("x/y"), 0x1FF, 0);
  // Paths of '/' against a model: the hier_paths fuzz target. Here other encodings, separators
  // and the exceptions' payloads.
  EXPECT_EQ(root->Get(String(TextEncodingExp::MakeUTF8(), static_cast<const void*>("x/./y"))).Get(),
            y.Get());
  EXPECT_THROW(root->Get(String()), InvalidKeyException);
  EXPECT_EQ(ThrownText<KeyOutOfBoundsException>([&] { root->Get(Wide("x/../y")); }),
            "kiv::KeyOutOfBoundsException - ../y");
  EXPECT_EQ(ThrownText<NoSuchNamedElementException>([&] { root->Get(Wide("x/q/y")); }),
            "kiv::NoSuchNamedElementException - q");
  // A creating walk reports the path that remained at an inner "..".
  EXPECT_EQ(
      ThrownText<KeyOutOfBoundsException>([&] { root->MakePath(Wide("p/q/../r"), 0x1FF, 0); }),
      "kiv::KeyOutOfBoundsException - ../r");

  // Separator as a character and as a string.
  HierHashtable colon = HierHashtableExp::Make(ContainerExp::MakeList(), HashtableExp::Make(),
                                               std::uint32_t{':'}, false);
  HierHashtable twin =
      HierHashtableExp::Make(ContainerExp::MakeList(), HashtableExp::Make(), Wide("::"), false);
  HierHashtable b = colon->MakePath(Wide("a:b"), 0x1FF, 0);
  EXPECT_EQ(colon->Get(Wide("a:b")).Get(), b.Get());
  HierHashtable d = b->MakePath(Wide("c:d"), 0, 0);  // nodes made on a path keep the separator
  EXPECT_EQ(colon->Get(Wide("a:b:c:d")).Get(), d.Get());
  twin->MakePath(Wide("a::b::c"), 0, 0);
  EXPECT_EQ(KeysOf(twin), std::vector<std::string>{"a"});
  EXPECT_TRUE(twin->ContainsKey(Wide("a::b::c")));
  EXPECT_FALSE(twin->ContainsKey(Wide("a:b")));
  EXPECT_THROW(twin->Get(Wide("a::::b")), InvalidKeyException);
  EXPECT_THROW(twin->Get(Wide("a::")), InvalidKeyException);
  EXPECT_THROW(HierHashtableExp::Make(ContainerExp::MakeList(), HashtableExp::Make(),
                                      String(TextEncodingExp::MakeUTF16()), false),
               InvalidKeyException);
}

// A child of another class gets the rest of the path through its own operation, untouched, and
// judges it by its own rules; what comes before it is the tree's to judge.
TEST(HierHashtablePaths, ChildrenOfOtherClassesJudgeTheRestThemselves) {
  HierHashtable root = HierHashtableExp::Make();
  Ref<RecordingNode> dir(new RecordingNode);
  root->Put(Wide("a/dir"), HierHashtable(dir.Get()));
  EXPECT_TRUE(root->ContainsKey(Wide("a/dir/x//y")));
  EXPECT_EQ(root->Get(Wide("a/./dir/../x")).Get(), dir.Get());
  EXPECT_EQ(root->MakePath(Wide("a/dir/x/"), 0x1FF, 7).Get(), dir.Get());
  EXPECT_FALSE(!!root->Put(Wide("a/dir/."), HierHashtableExp::Make()));
  EXPECT_EQ(
      root->Remove(String(TextEncodingExp::MakeUTF8(), static_cast<const void*>("a/dir/é")), 3)
          .Get(),
      dir.Get());
  EXPECT_THROW(root->MakePath(Wide("a//dir/x"), 0x1FF, 0), InvalidKeyException);
  EXPECT_THROW(root->Get(Wide("a/../dir/x")), KeyOutOfBoundsException);
  EXPECT_EQ(dir->calls, (std::vector<std::string>{"ContainsKey x//y", "Get ../x",
                                                  "MakePath x/ 511 7", "Put .", "Remove é 3"}));

  // The one-level adapter reads the whole rest as one key, separators and all, and refuses to
  // make what its table lacks.
  Hashtable flat = HashtableExp::Make();
  flat->Put(Wide("k/x"), Wide("v"));
  root->Put(Wide("a/flat"), HierHashtableExp::Make(flat));
  EXPECT_EQ(Utf8(String(root->Get(Wide("a/flat/k/x"))->First())), "v");
  EXPECT_THROW(root->MakePath(Wide("a/flat/k/y"), 0x1FF, 0), AccessException);
  EXPECT_THROW(root->MakePath(Wide("a/flat/.."), 0x1FF, 0), KeyOutOfBoundsException);
  EXPECT_FALSE(root->ContainsKey(Wide("a/flat/k")));

  // A table of another class may hand out nodes that nothing else keeps alive.
  flat->Put(Wide("w"), Wide("vw"));
  Hashtable wrapping = HashtableExp::Make(HierHashtableExp::Make(flat));
  HierHashtable over = HierHashtableExp::Make(ContainerExp::MakeList(), wrapping, false);
  EXPECT_EQ(Utf8(String(over->Get(Wide("w/."))->First())), "vw");
  EXPECT_TRUE(over->ContainsKey(Wide("w/.")));
}

TEST(HierHashtablePaths, ValuesOnTheWayAndChildCaseRule) {
  Hashtable table = HashtableExp::Make();
  HierHashtable root = HierHashtableExp::Make(ContainerExp::MakeList(), table, true);
  table->Put(Wide("v"), Wide("a string"));
  EXPECT_THROW(root->Get(Wide("v")), BadCastException);
  EXPECT_FALSE(root->ContainsKey(Wide("v/w")));
  HierHashtable w = root->MakePath(Wide("v/w"), 0x1FF, 0);  // the string is replaced
  EXPECT_EQ(root->Get(Wide("v/w")).Get(), w.Get());
  // The root's own table is case-sensitive; the nodes it made are not.
  EXPECT_EQ(root->Get(Wide("v/W")).Get(), w.Get());
  EXPECT_THROW(root->Get(Wide("V/w")), NoSuchNamedElementException);
}

TEST(HierHashtable, CloneDeepAndShallow) {
  HierHashtable root = HierHashtableExp::Make();
  root->AddLast(Wide("value"));
  HierHashtable leaf = root->MakePath(Wide("a/b"), 0x1FF, 0);
  HierHashtable deep(root->Clone(false));
  HierHashtable shallow(root->Clone(true));
  EXPECT_EQ(deep->First().Get(), root->First().Get());  // elements are shared
  EXPECT_NE(deep->Get(Wide("a/b")).Get(), leaf.Get());
  EXPECT_EQ(shallow->Get(Wide("a/b")).Get(), leaf.Get());
  deep->MakePath(Wide("a/only-in-deep"), 0, 0);
  shallow->MakePath(Wide("z"), 0, 0);
  EXPECT_EQ(KeysOf(root->Get(Wide("a"))), std::vector<std::string>{"b"});
  EXPECT_EQ(KeysOf(root), std::vector<std::string>{"a"});
}

TEST(HierHashtableAdapters, ReadOnlyFacesRefuseChangesAndFlatAndHierarchicalViewsMeet) {
  HierHashtable tree = HierHashtableExp::Make();
  tree->AddLast(Wide("e"));
  tree->MakePath(Wide("a/b"), 0x1FF, 0);
  HierHashtable ro = HierHashtableExp::Make(ConstHierHashtableExp::Make(tree));
  EXPECT_EQ(Utf8(String(ro->First())), "e");
  EXPECT_THROW(ro->Get(Wide("a"))->MakePath(Wide("c"), 0, 0), AccessException);
  EXPECT_THROW(ro->MakePath(Wide("c"), 0, 0), AccessException);
  EXPECT_THROW(ro->Put(Wide("c"), tree), AccessException);
  EXPECT_THROW(ro->Remove(Wide("a"), 0), AccessException);
  EXPECT_THROW(ro->AddLast(Object()), AccessException);

  Hashtable flat = HashtableExp::Make();
  flat->Put(Wide("k"), Wide("v"));
  Hashtable refusing = HashtableExp::Make(ConstHashtable(flat));
  EXPECT_FALSE(refusing->Put(Wide("k"), Object()));
  EXPECT_THROW(refusing->Lookup(Wide("k")), AccessException);
  EXPECT_THROW(refusing->Remove(Wide("k")), AccessException);
  EXPECT_THROW(refusing->Clone(), HTNotCloneableException);
  HierHashtable over_const = HierHashtableExp::Make(ConstHashtable(flat));
  EXPECT_THROW(over_const->Put(Wide("k"), HierHashtableExp::Make()), AccessException);
  EXPECT_THROW(over_const->Clone(false), HTNotCloneableException);
  EXPECT_EQ(Utf8(String(flat->Get(Wide("k")))), "v");

  HierHashtable one_level = HierHashtableExp::Make(flat);
  EXPECT_EQ(one_level->Get(Wide(".")).Get(), one_level.Get());
  HierHashtable node = HierHashtableExp::Make();
  node->AddLast(Wide("w"));
  EXPECT_EQ(Utf8(String(one_level->Put(Wide("k"), node)->First())), "v");
  EXPECT_EQ(Utf8(String(flat->Get(Wide("k")))), "w");  // the node's element is stored

  HierHashtable b = tree->MakePath(Wide("a/b"), 0, 0);  // the node made above
  Hashtable paths = HashtableExp::Make(tree);
  EXPECT_EQ(paths->Get(Wide("a/b")).Get(), static_cast<RefCount*>(b.Get()));
  EXPECT_THROW(paths->Put(Wide("a/c"), Wide("not a node")), BadCastException);
  EXPECT_TRUE(paths->Put(Wide("a/c"), HierHashtableExp::Make()));
  EXPECT_THROW(paths->Lookup(Wide("a")), NotSupportedException);
  EXPECT_EQ(paths->Remove(Wide("a/b")).Get(), static_cast<RefCount*>(b.Get()));
  EXPECT_TRUE(ConstHashtableExp::Make(tree)->ContainsKey(Wide("a/c")));
}

TEST(HierHashtableDump, ExactText) {
  Hashtable table = HashtableExp::Make();
  HierHashtable root = HierHashtableExp::Make(ContainerExp::MakeList(), table, false);
  HierHashtable n = root->MakePath(Wide("n"), 0, 0);
  n->AddLast(Wide("alpha"));
  n->AddLast(Wide("beta"));
  HierHashtable deep = root->MakePath(Wide("n/deep"), 0, 0);
  deep->AddLast(Wide("abcdefghijklmnopqrstuvwxyz0123456789"));  // 36 characters
  root->MakePath(Wide("e"), 0, 0)->AddLast(Object());
  root->MakePath(Wide("h"), 0, 0)->AddLast(HashtableExp::Make());
  table->Put(Wide("."), root);  // an entry that leads back to the node itself
  table->Put(Wide(".."), Object());

  const std::string text = testing::WrittenText([&](Writer& w) {
    HierHashtableExp::Dump(w, root);
    ConstHierHashtableExp::Dump(w, ConstHierHashtableExp::Make(n), Wide("n"), 2);
  });
  table->Remove(Wide("."));  // break the cycle
  EXPECT_EQ(text,
            "/ [ 0 ]\n"
            " n [ 2 ]: \"alpha\", ...\n"
            "  deep [ 1 ]: \"abcdefghijklmnopqrstuvwxyz012...\"\n"
            " e [ 1 ]: NULL\n"
            " h [ 1 ]: kiv::HashtableImpl\n"
            " . [ 0 ]\n"
            " .. [ ? ]\n"
            "  n [ 2 ]: \"alpha\", ...\n"
            "   deep [ 1 ]: \"abcdefghijklmnopqrstuvwxyz012...\"\n");
}

TEST(PartialMatchException, CarriesTheNodeReached) {
  HierHashtable node = HierHashtableExp::Make();
  PartialMatchException e(Wide("missing"), node);
  EXPECT_EQ(Utf8(e.ToString()), "kiv::PartialMatchException - missing (partial match)");
  EXPECT_EQ(Utf8(PartialMatchException(Wide("x"), HierHashtable()).ToString()),
            "kiv::PartialMatchException - x");
  Ref<Exception> kept(e.Clone());
  try {
    kept->Rethrow();
    FAIL();
  } catch (const NoSuchNamedElementException& thrown) {
    const auto* copy = dynamic_cast<const PartialMatchException*>(&thrown);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->LastMatch().Get(), node.Get());
  }
}

}  // namespace
}  // namespace kiv
