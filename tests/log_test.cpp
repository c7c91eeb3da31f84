// The application log: levels and their configuration, the entry layout, and many writers.
#include <gtest/gtest.h>
#include <kiv/exception.h>
#include <kiv/filters.h>
#include <kiv/log.h>
#include <kiv/preferences.h>
#include <kiv/resource.h>

#include <ctime>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::FakeOutput;
using testing::Wide;

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sink_ = new FakeOutput;
    LogWriterExp::Init(SyncOutputStream(sink_.Get()));
    LogWriterExp::SetIdent(Wide("host"));
    Configure("");
  }
  // Publishes preferences holding `text` (properties lines).
  void Configure(const std::string& text) {
    std::ofstream("log.properties", std::ios::trunc) << text;
    PreferencesExp::MakePrefs(ConstHierHashtable(), SyncResourceExp::Make(Wide("log.properties")),
                              TextEncodingExp::MakeUTF8());
  }
  // Writes one entry at `level` and returns what reached the log ("" when discarded).
  std::string Entry(LogLevel level) {
    sink_->text.clear();
    Writer writer = LogWriterExp::Make(level);
    writer->Write("message");
    writer->NewLine();
    return sink_->text;
  }
  // The levels that get through, as a string of digits.
  std::string Passing() {
    std::string passing;
    for (LogLevel level : {LogFatal, LogError, LogWarn, LogInfo, LogDebug}) {
      if (!Entry(level).empty()) passing += char('0' + level);
    }
    return passing;
  }

  testing::ScopedTempDir dir_;
  Ref<FakeOutput> sink_;
};

TEST_F(LogTest, ConfigurationSetsTheThresholdButNeverLetsDebugThrough) {
  EXPECT_EQ(Passing(), "12");  // the defaults: errors and worse
  // Each configuration after the one before: level, then the enabled flag.
  const std::pair<const char*, const char*> kSteps[] = {
      {"warn", "123"},
      {"DEBUG", "1234"},
      {"verbose", "1234"},  // no level word: unchanged
      {"fatal\nlogs/application/enabled: false", ""},
      {"fatal\nlogs/application/enabled: perhaps", ""},  // no boolean: unchanged
      {"fatal", "1"},                                    // unset: enabled again
  };
  for (const auto& [setting, passing] : kSteps) {
    Configure(std::string("logs/application/level: ") + setting + "\n");
    EXPECT_EQ(Passing(), passing) << setting;
  }
  Configure("logs/application/level: debug\n");
  sink_->text.clear();
  Writer debug = DebugWriterExp::Make(true);
  debug->Write("x");
  debug->NewLine();
  EXPECT_EQ(sink_->text, "");
}

TEST_F(LogTest, EntriesCarryTheStampAndTheIdentification) {
  const std::regex layout(
      R"(\[\d\d/[A-Z][a-z][a-z]/\d{4}:\d\d:\d\d:\d\d [+-]\d{4}\] host: message\n)");
  EXPECT_TRUE(std::regex_match(Entry(LogError), layout)) << Entry(LogError);

  sink_->text.clear();
  Writer named = LogWriterExp::Make(Wide("other"), Wide("FATAL"));
  named->Write("m");
  named->Flush();
  EXPECT_NE(sink_->text.find("] other: m"), std::string::npos);
  EXPECT_THROW(static_cast<void>(LogWriterExp::Make(Wide("Warn"))), NoSuchNamedElementException);

  // A writer keeps the stream it was made with; an empty stream handle disables the log.
  Writer before = LogWriterExp::Make(LogError);
  LogWriterExp::Init(SyncOutputStream());
  EXPECT_EQ(Entry(LogError), "");
  LogWriterExp::Init(SyncOutputStream(sink_.Get()));
  LogWriterExp::Disable();
  EXPECT_EQ(Entry(LogError), "");
  sink_->text.clear();
  before->Write("late");
  before->Flush();
  EXPECT_NE(sink_->text.find("late"), std::string::npos);
}

TEST_F(LogTest, StampFollowsTheTimeZone) {
#if defined(_WIN32)
  GTEST_SKIP() << "Windows takes the zone from the system's settings, not from TZ";
#else
  struct Zone {
    const char* tz;
    const char* suffix;
  };
  for (Zone zone : {Zone{"EST5", " -0500] "}, Zone{"UTC0", " +0000] "},
                    Zone{"IST-5:30", " +0530] "}, Zone{"XYZ3:45", " -0345] "}}) {
    testing::ScopedZone scoped(zone.tz);
    const std::string stamp =
        testing::WrittenText([](Writer& w) { LogWriterExp::WriteTimestamp(w); });
    ASSERT_EQ(stamp.size(), 29u) << stamp;
    EXPECT_EQ(stamp.substr(21), zone.suffix) << zone.tz;
  }
#endif
}

TEST_F(LogTest, ManyThreadsLoseAndMixNoLines) {
  LogWriterExp::Init(MTSyncIOStreamExp::Make(SyncOutputStream(sink_.Get())));
  constexpr int kThreads = 6;
  constexpr int kLines = 150;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) {
        Writer writer = LogWriterExp::Make(LogError);
        writer->Write(std::int32_t(t));
        writer->Write(" says ");
        writer->Write(std::string(40, char('a' + t)).c_str());
        writer->NewLine();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::regex line(R"(\[[^\]]*\] host: (\d) says ([a-z]{40})\n)");
  int count = 0;
  for (std::sregex_iterator it(sink_->text.begin(), sink_->text.end(), line), end; it != end;
       ++it) {
    EXPECT_EQ((*it)[2].str(), std::string(40, char('a' + std::stoi((*it)[1].str()))));
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
  EXPECT_EQ(sink_->text.size() % (sink_->text.find('\n') + 1), 0u);
}

}  // namespace
}  // namespace kiv
