// The application log.
#include <cstdio>
#include <mutex>

#include "kiv/date.h"
#include "kiv/exception.h"
#include "kiv/numbers.h"
#include "kiv/preferences.h"
#include "services/date_impl.h"
#include "services/log_impl.h"

namespace kiv {

namespace {

String Wide(const char16_t* text) {
  return String(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(text));
}

// The settings' defaults: logging on, errors and worse.
constexpr bool kDefaultEnabled = true;
constexpr std::int32_t kDefaultThreshold = LogError;

// The writer every discarded entry gets: a UTF-8 writer on the discard stream whose every
// operation does nothing and succeeds. It holds no state, so one object serves every thread at
// once, and an entry that is not wanted costs no allocation. (Its encoding stays UTF-8 and it
// checks nothing it is given: what it would have converted is dropped anyway.)
class DiscardingWriter final : public WriterItf {
 public:
  DiscardingWriter(const TextEncoding& encoding, const SyncOutputStream& discard)
      : encoding_(encoding), discard_(discard) {}
  TextEncoding GetTextEncoding() const override { return encoding_; }
  void SetTextEncoding(const TextEncoding&) override {}
  unsigned WriteBytes(const void*, unsigned count) override { return count; }
  bool Write(const String&) override { return true; }
  bool WriteLine(const String&) override { return true; }
  bool Write(const char*) override { return true; }
  bool Write(const unsigned short*) override { return true; }
  bool WriteChar(std::uint32_t) override { return true; }
  bool Write(char) override { return true; }
  bool Write(std::int32_t) override { return true; }
  bool Write(std::uint32_t) override { return true; }
  bool Write(std::int64_t) override { return true; }
  bool Write(std::uint64_t) override { return true; }
  bool Write(double) override { return true; }
  bool WriteHex(std::uint64_t, unsigned) override { return true; }
  bool NewLine() override { return true; }
  void Flush() override {}
  SyncOutputStream GetOutputStream() const override { return discard_; }
  void SetLineMode(bool) override {}

 private:
  const TextEncoding encoding_;
  const SyncOutputStream discard_;
};

Hashtable MakeLevelTable() {
  struct Word {
    const char16_t* text;
    LogLevel level;
  };
  static const Word kWords[] = {
      {u"fatal", LogFatal}, {u"FATAL", LogFatal}, {u"error", LogError}, {u"ERROR", LogError},
      {u"warn", LogWarn},   {u"WARN", LogWarn},   {u"info", LogInfo},   {u"INFO", LogInfo},
      {u"debug", LogDebug}, {u"DEBUG", LogDebug},
  };
  Hashtable table = HashtableExp::Make(16, false);
  for (const Word& word : kWords) table->Put(Wide(word.text), new Integer32(word.level));
  return table;
}

}  // namespace

LogWriterImpl::LogWriterImpl()
    : encoding_(TextEncodingExp::MakeUTF8()),
      discard_(SyncOutputStreamExp::Make()),
      discarding_(new DiscardingWriter(encoding_, discard_)),
      guard_(ObjectLockExp::Make()),
      stream_(SyncOutputStreamExp::Make()),
      ident_(TextEncodingExp::MakeAppDefault()),
      levels_(MakeLevelTable()),
      threshold_(kDefaultThreshold),
      enabled_(kDefaultEnabled) {}

LogWriterImpl::~LogWriterImpl() = default;

void LogWriterImpl::Run() {
  // Unset means the default; a value that is no boolean keeps the current setting, as an unknown
  // level word keeps the threshold.
  const String enabled_path = Wide(u"logs/application/enabled");
  const bool enabled =
      !PreferencesExp::GetString(enabled_path, String())
          ? kDefaultEnabled
          : PreferencesExp::GetBoolean(enabled_path, enabled_.load(std::memory_order_relaxed));
  enabled_.store(enabled, std::memory_order_relaxed);
  const String word = PreferencesExp::GetString(Wide(u"logs/application/level"), Wide(u"error"));
  if (!levels_->ContainsKey(word)) return;
  std::int32_t level = Ref<Integer32>(levels_->Get(word))->Get();
  // Configuration never turns debug output on: a configured "debug" means "info".
  if (level == LogDebug) level = LogInfo;
  threshold_.store(level, std::memory_order_relaxed);
}

void LogWriterImpl::SetStream(const SyncOutputStream& out) {
  SyncOutputStream next = out ? out : SyncOutputStream(SyncOutputStreamExp::Make());
  ObjectLockGuard hold(guard_);
  stream_ = next;
}

SyncOutputStream LogWriterImpl::Stream() const {
  ObjectLockGuard hold(guard_);
  return stream_;
}

void LogWriterImpl::SetIdent(const String& ident) {
  String next = !!ident ? ident : String(TextEncodingExp::MakeAppDefault());
  ObjectLockGuard hold(guard_);
  ident_ = next;
}

String LogWriterImpl::Ident() const {
  ObjectLockGuard hold(guard_);
  return ident_;
}

LogLevel LogWriterImpl::LevelOf(const String& word) const {
  return static_cast<LogLevel>(Ref<Integer32>(levels_->Get(word))->Get());
}

Writer LogWriterImpl::MakeWriting(const String& ident, bool with_prefix) {
  Writer writer = WriterExp::Make(encoding_, Stream());
  writer->SetLineMode(true);
  if (with_prefix) {
    LogWriterExp::WriteTimestamp(writer);
    if (!!ident) writer->Write(ident);
    writer->Write(": ");
  }
  return writer;
}

class LogWriterHolder : public StaticRef<LogWriterImpl, LogWriterHolder> {
 public:
  static LogWriterImpl* Make() { return new LogWriterImpl(); }
};

Ref<LogWriterImpl> GetLogWriter() {
  static LogWriterHolder holder;
  Ref<LogWriterImpl> log = holder.Get();
  // Registered once, for the object that won the making: the holder may make and drop a second
  // one when threads race on first use. Until the first publication the defaults hold.
  static std::once_flag registered;
  std::call_once(registered,
                 [&log] { PreferencesExp::MakePrefsUpdateEventQueue()->AddListener(log); });
  return log;
}

// ---- LogWriterExp ----

void LogWriterExp::Init(const SyncOutputStream& out) { GetLogWriter()->SetStream(out); }

void LogWriterExp::Disable() { GetLogWriter()->SetStream(SyncOutputStream()); }

void LogWriterExp::SetIdent(const String& ident) { GetLogWriter()->SetIdent(ident); }

// Each form decides first whether the entry passes, so that a discarded one costs neither a lock
// nor an allocation.
Writer LogWriterExp::Make(const String& ident, LogLevel level) {
  Ref<LogWriterImpl> log = GetLogWriter();
  return log->Passes(level) ? log->MakeWriting(ident, true) : log->Discarding();
}

Writer LogWriterExp::Make(const String& ident, const String& level_word) {
  Ref<LogWriterImpl> log = GetLogWriter();
  return log->Passes(log->LevelOf(level_word)) ? log->MakeWriting(ident, true) : log->Discarding();
}

Writer LogWriterExp::Make(LogLevel level) {
  Ref<LogWriterImpl> log = GetLogWriter();
  return log->Passes(level) ? log->MakeWriting(log->Ident(), true) : log->Discarding();
}

Writer LogWriterExp::Make(const String& level_word) {
  Ref<LogWriterImpl> log = GetLogWriter();
  return log->Passes(log->LevelOf(level_word)) ? log->MakeWriting(log->Ident(), true)
                                               : log->Discarding();
}

void LogWriterExp::WriteTimestamp(Writer& writer) {
  Date now = DateExp::Make();
  std::int64_t minutes = now->GetTimeZoneOffset() / 60000;
  char sign = '+';
  if (minutes < 0) {
    sign = '-';
    minutes = -minutes;
  }
  const char* month = MonthAbbreviation(now->GetMonth());
  char stamp[96];
  std::snprintf(stamp, sizeof stamp, "[%02d/%s/%04d:%02d:%02d:%02d %c%02d%02d] ", now->GetDay(),
                month != nullptr ? month : "???", now->GetYear(), now->GetHour(), now->GetMinute(),
                now->GetSecond(), sign, static_cast<int>(minutes / 60),
                static_cast<int>(minutes % 60));
  writer->Write(stamp);
}

Writer DebugWriterExp::Make(bool with_prefix) {
  Ref<LogWriterImpl> log = GetLogWriter();
  return log->Passes(LogDebug) ? log->MakeWriting(log->Ident(), with_prefix) : log->Discarding();
}

}  // namespace kiv
