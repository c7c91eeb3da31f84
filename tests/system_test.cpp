// System information: the version text and the file-creation mask.
#include <gtest/gtest.h>
#include <kiv/system.h>
#include <sys/stat.h>
#if !defined(_WIN32)
#include <sys/utsname.h>
#endif

#include <cstdio>
#include <regex>
#include <string>

#include "support/test_support.h"

namespace kiv {
namespace {

#if defined(_WIN32)
// Every system the library can run on is Windows NT 6 (Vista) or later. The runtime offers no
// second source of the version that does not pretend (GetVersionEx answers 6.2 from Windows 8.1
// on), so the text's form and range are what is checked.
TEST(SystemVersion, IsMajorDotMinorOfAnNtSystem) {
  const std::string text = testing::Utf8(SystemVersionStringExp::Make());
  std::smatch numbers;
  ASSERT_TRUE(std::regex_match(text, numbers, std::regex(R"((\d+)\.(\d+))"))) << text;
  EXPECT_GE(std::stoi(numbers[1].str()), 6) << text;
}

TEST(UMask, DoesNothingWithoutAMaskOnTheSystem) {
  testing::ScopedTempDir dir;
  Ref<UMaskItf> mask = UMaskExp::Make();
  mask->Set(0777);
  std::FILE* file = std::fopen("private", "w");
  ASSERT_NE(file, nullptr);
  EXPECT_GT(std::fputs("x", file), -1);
  std::fclose(file);
  mask->Restore();
  EXPECT_EQ(testing::ReadFile("private"), "x");
}
#else
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
#endif

}  // namespace
}  // namespace kiv
