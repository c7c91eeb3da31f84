// File resources: streams, properties, safe replacement, and the MIME table.
#include <kiv/numbers.h>
#include <kiv/resource.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::ReadFile;
using testing::Utf8;
using testing::Wide;

namespace fs = std::filesystem;

TEST(FileResource, WritesReadsAndDescribesAFile) {
  testing::ScopedTempDir dir;
  Resource file = SyncResourceExp::Make(Wide("data.bin"));
  EXPECT_FALSE(file->Exists());
  std::string content(20000, 'x');
  content[12345] = 'y';
  {
    SyncOutputStream out = file->OpenOutputStream();
    EXPECT_EQ(out->Write(content.data(), 3), 3u);
    EXPECT_EQ(out->Write(content.data() + 3, 19997), 19997u);  // more than the write buffer
  }                                                            // released: flushed and closed
  EXPECT_TRUE(file->Exists());
  EXPECT_EQ(ReadFile("data.bin"), content);
  EXPECT_EQ(file->GetSize(), 20000);
  EXPECT_EQ(Ref<UnsignedInteger64>(file->GetProperty(Wide("size")))->Get(), 20000u);
  EXPECT_NEAR(double(file->GetModificationTime()), std::time(nullptr) * 1000.0 + 210866803200000,
              5000.0);
  EXPECT_EQ(Ref<Integer64>(file->GetProperty(Wide("modification time")))->Get(),
            file->GetModificationTime());
  EXPECT_THROW(file->GetProperty(Wide("colour")), NoSuchNamedElementException);
  SyncInputStream in = file->OpenInputStream();
  EXPECT_EQ(testing::ReadAll(in, 7), content);
  Ref<StreamMarkerItf> marker = in->ToStreamMarker();
  EXPECT_EQ(marker->GetLength(), 20000);
  marker->SetPosition(12345);
  EXPECT_EQ(in->Read(-1), 'y');
  EXPECT_THROW(marker->SetPosition(20001), BoundsException);
}

TEST(FileResource, FailuresNameThePathAndTheReason) {
  testing::ScopedTempDir dir;
  fs::create_directory("folder");
#if defined(_WIN32)
  const int folder_error = 5;  // Windows refuses to open a directory as a file: access denied
#else
  const int folder_error = 21;  // is a directory
#endif
  for (const auto& [name, error] : {std::pair{"nope", 2}, {"folder", folder_error}}) {
    EXPECT_EQ(testing::ThrownText<ResourceOSException>(
                  [n = name] { SyncResourceExp::Make(Wide(n))->OpenInputStream(); }),
              std::string("kiv::ResourceOSException - cannot open ") + name + ": " +
                  testing::SystemErrorText(error));
  }
  EXPECT_FALSE(SyncResourceExp::Make(Wide("folder"))->Exists());
  EXPECT_THROW(SyncResourceExp::Make(Wide("missing"))->GetSize(), ResourceOSException);
  EXPECT_THROW(static_cast<void>(SyncResourceExp::Make(Wide(""))), NotResourceException);
  EXPECT_THROW(static_cast<void>(SyncResourceExp::Make(String())), NotResourceException);
  // A full disk is reported by Flush, not lost.
  SyncOutputStream full = SyncResourceExp::Make(Wide("/dev/full"))->OpenOutputStream();
  EXPECT_EQ(full->Write("some bytes", 10), 10u);
  EXPECT_THROW(full->Flush(), ResourceOSException);
  EXPECT_EQ(full->Write("more", 4), 0u);
}

TEST(FileResource, CommitReplacesTheFileInOneStep) {
  testing::ScopedTempDir dir;
  { std::ofstream("settings") << "old"; }
  fs::permissions("settings", fs::perms(0640));
  Resource file = SyncResourceExp::Make(Wide("settings"));
  auto files = [] { return std::distance(fs::directory_iterator("."), fs::directory_iterator()); };
  {
    CommitSyncOutputStream out = file->OpenCommitOutputStream();
    EXPECT_EQ(out->Write("abandoned", 9), 9u);
    out->Flush();
    EXPECT_EQ(ReadFile("settings"), "old");
  }  // released without Commit: the old file stays, the new one is gone
  EXPECT_EQ(ReadFile("settings"), "old");
  EXPECT_EQ(files(), 1);
  CommitSyncOutputStream out = file->OpenCommitOutputStream();
  EXPECT_EQ(out->Write("new", 3), 3u);
  out->Commit();
  EXPECT_EQ(ReadFile("settings"), "new");
  EXPECT_EQ(files(), 1);
#if !defined(_WIN32)  // Windows files have no mode bits to carry over
  EXPECT_EQ(fs::status("settings").permissions(), fs::perms(0640));
#endif
  EXPECT_EQ(out->Write("x", 1), 0u);
  out->Commit();  // a second Commit does nothing
  // A replacement that cannot happen leaves the target and removes the new file.
  CommitSyncOutputStream blocked = SyncResourceExp::Make(Wide("target"))->OpenCommitOutputStream();
  EXPECT_EQ(blocked->Write("never", 5), 5u);
  fs::create_directory("target");
  std::ofstream("target/keep") << "k";
  EXPECT_THROW(blocked->Commit(), ResourceOSException);
  EXPECT_TRUE(fs::is_directory("target"));
  EXPECT_EQ(files(), 2);
}

TEST(MIMETable, LooksUpExtensionsWithoutRegardToCase) {
  testing::ScopedTempDir dir;
  std::ofstream("types") << "# comment\ntext/html  html htm\nimage/png\tpng # trailing\n\n"
                            "text/plain txt\ntext/x-new html\n";
  MIMEExp::Load(SyncResourceExp::Make(Wide("types")));
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("site/INDEX.HTM"))), "text/html");
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("a.b/picture.png"))), "image/png");
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("page.html"))), "text/x-new");  // the later line wins
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("a.b/README"))), "application/octet-stream");
  EXPECT_EQ(Utf8(SyncResourceExp::Make(Wide("x/notes.TXT"))->GetMIMEType()), "text/plain");
  EXPECT_THROW(MIMEExp::Load(SyncResourceExp::Make(Wide("absent"))), ResourceOSException);
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("p.png"))), "image/png");  // the old table stays
}

}  // namespace
}  // namespace kiv
