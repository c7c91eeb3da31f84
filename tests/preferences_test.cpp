// Preferences: two-level reading, publication, the default configuration and listeners.
#include <kiv/containers.h>
#include <kiv/hierhashtable.h>
#include <kiv/preferences.h>
#include <kiv/registry.h>
#include <kiv/resource.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::FunctionTask;
using testing::Strings;
using testing::Utf8;
using testing::Wide;

// The first value at `path` of a tree, as UTF-8 ("-" when the node has none).
template <class Tree>
std::string First(const Tree& tree, const char* path) {
  auto node = tree->Get(Wide(path));
  return node->Count() == 0 ? "-" : Utf8(String(node->GetElement(0)));
}

// Defaults: a/x = dx, a/y = dy, b = db; the file overrides a/x and adds a/z and c.
class PreferencesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream("prefs.properties") << "a/x: fx1, fx2\na/z: fz\nc: fc\n";
    defaults_ = HierHashtableExp::Make();
    defaults_->MakePath(Wide("a/x"), 0x1FF, 0)->AddLast(Wide("dx"));
    defaults_->MakePath(Wide("a/y"), 0x1FF, 0)->AddLast(Wide("dy"));
    defaults_->MakePath(Wide("b"), 0x1FF, 0)->AddLast(Wide("db"));
    RegistryExp::MakeRegistry()->Remove(Wide("preferences"), 0);
  }
  ConstHierHashtable PublishFile(const char* file = "prefs.properties") {
    return PreferencesExp::MakePrefs(ConstHierHashtableExp::Make(defaults_),
                                     SyncResourceExp::Make(Wide(file)),
                                     TextEncodingExp::MakeUTF8());
  }
  testing::ScopedTempDir dir_;
  HierHashtable defaults_;
};

TEST_F(PreferencesTest, FirstLevelHidesDefaultsWholeAndIsPrivateUntilPublished) {
  PublishFile();
  Ref<ModifiablePreferencesItf> prefs = PreferencesExp::MakeModifiable();
  EXPECT_EQ(prefs->Get(Wide("a/x"))->Count(), 2);  // never merged with the default
  EXPECT_EQ(First(prefs, "a/x") + First(prefs, "a/y") + First(prefs, "b"), "fx1dydb");
  EXPECT_EQ(Strings(prefs->Keys()), (std::vector<std::string>{"a", "c", "b"}));
  EXPECT_EQ(Strings(prefs->Get(Wide("a"))->Keys()), (std::vector<std::string>{"x", "z", "y"}));
  // A node in both levels falls back further down; one only in the defaults is read-only.
  EXPECT_EQ(First(prefs->Get(Wide("a")), "y"), "dy");
  EXPECT_THROW(prefs->Get(Wide("b"))->AddLast(Wide("no")), AccessException);
  EXPECT_THROW(prefs->Get(Wide("d")), NoSuchNamedElementException);
  EXPECT_THROW(prefs->Clone(false), HTNotCloneableException);
  prefs->MakePath(Wide("c"), 0x1FF, 0)->AddLast(Wide("more"));
  EXPECT_EQ(PreferencesExp::MakePrefs()->Get(Wide("c"))->Count(), 1);
  prefs->Publish();
  EXPECT_EQ(PreferencesExp::MakePrefs()->Get(Wide("c"))->Count(), 2);
  // Store writes the first level only; nodes inside have no publishing operations of their own.
  Ref<ModifiablePreferencesItf>(prefs->Get(Wide("a")))->ClearOverrides();
  EXPECT_EQ(testing::WrittenText([&](Writer& w) { prefs->Store(w); }),
            "a/x: fx1, fx2\na/z: fz\nc: fc, more\n");
  prefs->Remove(Wide("a/x"), 0);
  EXPECT_EQ(First(prefs, "a/x"), "dx");
  prefs->MakePath(Wide("b"), 0x1FF, 0)->AddLast(Wide("fb"));
  EXPECT_EQ(First(prefs, "b"), "fb");
  prefs->ClearOverrides();
  EXPECT_EQ(First(prefs, "b"), "db");
  EXPECT_FALSE(prefs->ContainsKey(Wide("c")));
}

// Registry paths go on through the published tree; a failing path keeps the nodes it made.
TEST_F(PreferencesTest, RegistryPathsAreWalkedOnByThePublishedTree) {
  PublishFile();
  HierHashtable registry = RegistryExp::MakeRegistry();
  EXPECT_EQ(First(registry->MakePath(Wide("preferences/a/x"), 0x1FF, 0), "."), "fx1");
  EXPECT_THROW(registry->MakePath(Wide("preferences/a/n/m/"), 0x1FF, 0), InvalidKeyException);
  EXPECT_THROW(registry->Put(Wide("preferences/b/o/.."), HierHashtableExp::Make()),
               KeyOutOfBoundsException);
  ConstHierHashtable published = PreferencesExp::MakePrefs();
  EXPECT_TRUE(published->ContainsKey(Wide("a/n/m")));
  EXPECT_TRUE(published->ContainsKey(Wide("b/o")));
  EXPECT_EQ(First(published, "b"), "db");  // the override made on the way has no values
  registry->Remove(Wide("preferences/a/n"), 0);
  EXPECT_FALSE(published->ContainsKey(Wide("a/n")));
}

TEST_F(PreferencesTest, DefaultConfigurationSelectsANodeAndSurvivesPublication) {
  std::ofstream("prefs.properties") << "site/one/port: 1\nsite/two/port: 2\n";
  EXPECT_THROW(static_cast<void>(PreferencesExp::MakePrefs()), NoSuchNamedElementException);
  PublishFile();
  PreferencesExp::SetDefaultConfiguration(Wide("site/one"));
  EXPECT_EQ(First(PreferencesExp::MakePrefs(), "port"), "1");
  // Carried by a modifiable copy and by a fresh load, once each.
  Ref<ModifiablePreferencesItf> copy = PreferencesExp::MakeModifiable();
  EXPECT_EQ(Utf8(String(copy->First())), "site/one");
  copy->Publish();
  EXPECT_EQ(PreferencesExp::MakeModifiable()->Count(), 1);
  PublishFile();
  EXPECT_EQ(PreferencesExp::GetString(Wide("port"), Wide("none")), Wide("1"));
}

TEST_F(PreferencesTest, ValueReadersFallBackOnAnythingMissingOrMalformed) {
  std::ofstream("prefs.properties") << "on: yes\noff: NO\nodd: maybe\n";
  const String fallback = Wide("fallback");
  // A publication that cannot read its file publishes nothing.
  EXPECT_THROW(PublishFile("absent.properties"), ResourceOSException);
  EXPECT_EQ(PreferencesExp::GetString(Wide("b"), fallback), fallback);
  // With nothing published the name goes to a plain node, not a modifiable tree.
  PreferencesExp::SetDefaultConfiguration(Wide("x"));
  EXPECT_THROW(static_cast<void>(PreferencesExp::MakeModifiable()), ConfigurationError);
  RegistryExp::MakeRegistry()->Remove(Wide("preferences"), 0);
  PublishFile();
  EXPECT_EQ(PreferencesExp::GetString(Wide("b"), fallback), Wide("db"));
  EXPECT_EQ(PreferencesExp::GetString(Wide("missing/path"), fallback), fallback);
  EXPECT_TRUE(PreferencesExp::GetBoolean(Wide("on"), false));
  EXPECT_FALSE(PreferencesExp::GetBoolean(Wide("off"), true));
  EXPECT_TRUE(PreferencesExp::GetBoolean(Wide("odd"), true));
  EXPECT_TRUE(PreferencesExp::GetBoolean(Wide("missing"), true));
}

TEST_F(PreferencesTest, EveryPublicationRunsEveryListenerOnceEvenConcurrently) {
  Ref<PrefsUpdateEventQueueItf> queue = PreferencesExp::MakePrefsUpdateEventQueue();
  std::vector<std::string> calls;
  Task late(new FunctionTask([&] { calls.push_back("late"); }));
  Task first = new FunctionTask([&] {
    calls.push_back("first");
    // Changes made by a listener apply from the next publication.
    queue->RemoveListener(first);
    queue->AddListener(late);
  });
  Task failing(new FunctionTask([&] { calls.push_back("failing"), throw TimeoutException(); }));
  queue->AddListener(first);
  queue->AddListener(failing);
  queue->SetFlag(false);
  EXPECT_THROW(PublishFile(), TimeoutException);  // published all the same
  EXPECT_EQ(First(PreferencesExp::MakePrefs(), "c"), "fc");
  queue->SetFlag(true);
  EXPECT_THROW(PreferencesExp::MakeModifiable()->Publish(), TimeoutException);
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "failing", "failing", "late"}));
  queue->RemoveListener(failing);
  queue->RemoveListener(late);
  queue->RemoveListener(late);  // absent: nothing happens
  // Publishers, readers and listener changes at once (run under ThreadSanitizer too).
  std::atomic<int> runs{0};
  Task counter(new FunctionTask([&] { runs.fetch_add(1); }));
  queue->AddListener(counter);
  auto publisher = [] {
    for (int i = 0; i < 25; ++i) PreferencesExp::MakeModifiable()->Publish();
  };
  auto reader = [&] {
    for (int i = 0; i < 25; ++i) {
      EXPECT_EQ(PreferencesExp::GetString(Wide("c"), Wide("")), Wide("fc"));
      Task extra(new FunctionTask([] {}));
      queue->AddListener(extra);
      queue->RemoveListener(extra);
    }
  };
  std::thread threads[] = {std::thread(publisher), std::thread(reader), std::thread(publisher),
                           std::thread(reader)};
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(runs.load(), 2 * 25);
  queue->RemoveListener(counter);
}

}  // namespace
}  // namespace kiv
