// File resources: streams, properties, safe replacement, and the MIME table.
#include <gtest/gtest.h>
#include <kiv/exception.h>
#include <kiv/numbers.h>
#include <kiv/resource.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::ReadFile;
using testing::Utf8;
using testing::Wide;

void WriteAll(SyncOutputStream out, const std::string& text) {
  EXPECT_EQ(out->Write(text.data(), static_cast<unsigned>(text.size())), text.size());
}

std::string TextOf(const ResourceOSException& e) { return Utf8(e.ToString()); }

TEST(FileResource, WritesReadsAndDescribesAFile) {
  testing::ScopedTempDir dir;
  Resource file = SyncResourceExp::Make(Wide("data.bin"));
  EXPECT_FALSE(file->Exists());
  std::string content(20000, 'x');
  content[12345] = 'y';
  {
    SyncOutputStream out = file->OpenOutputStream();
    WriteAll(out, content.substr(0, 3));
    WriteAll(out, content.substr(3));  // larger than the write buffer
  }                                    // released: flushed and closed
  EXPECT_TRUE(file->Exists());
  EXPECT_EQ(ReadFile("data.bin"), content);
  EXPECT_EQ(file->GetSize(), 20000);
  EXPECT_EQ(Ref<UnsignedInteger64>(file->GetProperty(Wide("size")))->Get(), 20000u);

  // Julian milliseconds of now, within a generous second either way.
  const std::int64_t now = std::int64_t(std::time(nullptr)) * 1000 + 210866803200000;
  EXPECT_NEAR(double(file->GetModificationTime()), double(now), 5000.0);
  EXPECT_EQ(Ref<Integer64>(file->GetProperty(Wide("modification time")))->Get(),
            file->GetModificationTime());
  EXPECT_THROW(file->GetProperty(Wide("colour")), NoSuchNamedElementException);

  SyncInputStream in = file->OpenInputStream();
  EXPECT_EQ(testing::ReadAll(in, 7), content);
  Ref<StreamMarkerItf> marker = in->ToStreamMarker();
  EXPECT_EQ(marker->GetLength(), 20000);
  marker->SetPosition(12345);
  EXPECT_EQ(in->Read(-1), 'y');
  EXPECT_EQ(marker->GetPosition(), 12346);
  EXPECT_THROW(marker->SetPosition(20001), BoundsException);
}

TEST(FileResource, FailuresNameThePathAndTheReason) {
  testing::ScopedTempDir dir;
  std::filesystem::create_directory("folder");
  try {
    SyncResourceExp::Make(Wide("nope.properties"))->OpenInputStream();
    FAIL();
  } catch (const ResourceOSException& e) {
    EXPECT_EQ(e.Error(), 2);
    EXPECT_EQ(TextOf(e), "kiv::ResourceOSException - cannot open nope.properties: " +
                             testing::SystemErrorText(2));
  }
  const std::string folder = testing::ThrownText<ResourceOSException>(
      [] { SyncResourceExp::Make(Wide("folder"))->OpenInputStream(); });
#if defined(_WIN32)
  // Windows refuses to open a directory as a file with "access denied".
  EXPECT_EQ(folder,
            "kiv::ResourceOSException - cannot open folder: " + testing::SystemErrorText(5));
#else
  EXPECT_EQ(folder, "kiv::ResourceOSException - cannot open folder: Is a directory (21)");
#endif
  EXPECT_FALSE(SyncResourceExp::Make(Wide("folder"))->Exists());
  EXPECT_THROW(SyncResourceExp::Make(Wide("missing"))->GetSize(), ResourceOSException);
  EXPECT_THROW(static_cast<void>(SyncResourceExp::Make(Wide(""))), NotResourceException);
  EXPECT_THROW(static_cast<void>(SyncResourceExp::Make(String())), NotResourceException);

  // A full disk is reported by Flush, not lost.
  SyncOutputStream full = SyncResourceExp::Make(Wide("/dev/full"))->OpenOutputStream();
  WriteAll(full, "some bytes");
  EXPECT_THROW(full->Flush(), ResourceOSException);
  EXPECT_EQ(full->Write("more", 4), 0u);
}

TEST(FileResource, CommitReplacesTheFileInOneStep) {
  testing::ScopedTempDir dir;
  { std::ofstream("settings") << "old"; }
  ::chmod("settings", 0640);
  Resource file = SyncResourceExp::Make(Wide("settings"));
  auto files = [] {
    std::size_t n = 0;
    for (const auto& entry : std::filesystem::directory_iterator(".")) n += entry.exists();
    return n;
  };
  {
    CommitSyncOutputStream out = file->OpenCommitOutputStream();
    WriteAll(out, "abandoned");
    out->Flush();
    EXPECT_EQ(ReadFile("settings"), "old");
  }  // released without Commit: the old file stays, the new one is gone
  EXPECT_EQ(ReadFile("settings"), "old");
  EXPECT_EQ(files(), 1u);

  CommitSyncOutputStream out = file->OpenCommitOutputStream();
  WriteAll(out, "new");
  out->Commit();
  EXPECT_EQ(ReadFile("settings"), "new");
  EXPECT_EQ(files(), 1u);
#if !defined(_WIN32)  // Windows files have no mode bits to carry over
  struct stat st;
  ASSERT_EQ(::stat("settings", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
#endif
  EXPECT_EQ(out->Write("x", 1), 0u);
  out->Commit();  // a second Commit does nothing

  // A replacement that cannot happen leaves the target and removes the new file.
  CommitSyncOutputStream blocked = SyncResourceExp::Make(Wide("target"))->OpenCommitOutputStream();
  WriteAll(blocked, "never");
  std::filesystem::create_directory("target");
  std::ofstream("target/keep") << "k";
  EXPECT_THROW(blocked->Commit(), ResourceOSException);
  EXPECT_TRUE(std::filesystem::is_directory("target"));
  EXPECT_EQ(files(), 2u);
}

TEST(MIMETable, LooksUpExtensionsWithoutRegardToCase) {
  testing::ScopedTempDir dir;
  {
    std::ofstream("types") << "# comment\ntext/html  html htm\nimage/png\tpng # trailing\n\n"
                              "text/plain txt\ntext/x-new html\n";
  }
  MIMEExp::Load(SyncResourceExp::Make(Wide("types")));
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("site/INDEX.HTM"))), "text/html");
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("a.b/picture.png"))), "image/png");
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("txt"))), "text/plain");
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("page.html"))), "text/x-new");  // the later line wins
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("a.b/README"))), "application/octet-stream");
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("archive.tar.gz"))), "application/octet-stream");
  EXPECT_EQ(Utf8(SyncResourceExp::Make(Wide("x/notes.TXT"))->GetMIMEType()), "text/plain");
  EXPECT_THROW(MIMEExp::Load(SyncResourceExp::Make(Wide("absent"))), ResourceOSException);
  EXPECT_EQ(Utf8(MIMEExp::Lookup(Wide("p.png"))), "image/png");  // the old table stays
}

}  // namespace
}  // namespace kiv
