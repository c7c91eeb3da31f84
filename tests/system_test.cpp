// System information: the version text and the file-creation mask.
#include <gtest/gtest.h>
#include <kiv/system.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <cstdio>
#include <regex>
#include <string>

#include "support/test_support.h"

namespace kiv {
namespace {

TEST(SystemVersion, IsTheFirstTwoNumbersOfTheRelease) {
  const std::string text = testing::Utf8(SystemVersionStringExp::Make());
  struct utsname name;
  ASSERT_EQ(uname(&name), 0);
  std::smatch numbers;
  const std::string release = name.release;
  ASSERT_TRUE(std::regex_search(release, numbers, std::regex(R"(^(\d+)\.(\d+))")));
  EXPECT_EQ(text, numbers[1].str() + "." + numbers[2].str());
}

TEST(UMask, SetAppliesAndRestorePutsBack) {
  testing::ScopedTempDir dir;
  const mode_t before = umask(022);
  Ref<UMaskItf> mask = UMaskExp::Make();
  mask->Restore();  // nothing set yet: no change
  mask->Set(077);
  std::fclose(std::fopen("private", "w"));
  struct stat st;
  ASSERT_EQ(stat("private", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  mask->Restore();
  EXPECT_EQ(umask(before), 022u);
}

}  // namespace
}  // namespace kiv
