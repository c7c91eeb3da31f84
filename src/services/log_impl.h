// The log state: the process-wide object behind LogWriterExp.
#ifndef KIV_SRC_SERVICES_LOG_IMPL_H_
#define KIV_SRC_SERVICES_LOG_IMPL_H_

#include <atomic>
#include <cstdint>

#include "kiv/encodings.h"
#include "kiv/hashtable.h"
#include "kiv/locks.h"
#include "kiv/log.h"
#include "kiv/tasks.h"

namespace kiv {

// A listener of the preferences update event queue: each publication re-reads the log settings.
class LogWriterImpl final : public TaskItf {
 public:
  LogWriterImpl();
  ~LogWriterImpl() override;

  // Re-reads "logs/application/enabled" and "logs/application/level".
  void Run() override;
  void Cancel() override {}

  void SetStream(const SyncOutputStream& out);
  void SetIdent(const String& ident);
  String Ident() const;
  // The level of a level word; NoSuchNamedElementException for any other word.
  LogLevel LevelOf(const String& word) const;
  // Whether an entry of `level` is written now.
  bool Passes(LogLevel level) const noexcept {
    return enabled_.load(std::memory_order_relaxed) &&
           threshold_.load(std::memory_order_relaxed) >= level;
  }
  // A writer on the log stream with the line started (when `with_prefix`), for a level that
  // passes.
  Writer MakeWriting(const String& ident, bool with_prefix);
  // The writer for entries that do not pass.
  const Writer& Discarding() const noexcept { return discarding_; }

 private:
  SyncOutputStream Stream() const;

  const TextEncoding encoding_;
  const SyncOutputStream discard_;
  const Writer discarding_;
  // The log stream and the identification may be replaced while other threads make writers.
  ObjectLock guard_;
  SyncOutputStream stream_;
  String ident_;
  const Hashtable levels_;
  // Plain settings written by Run on the publishing thread and read by every writer; relaxed
  // atomics, so that readers see one value or the other and never a torn or racy one.
  std::atomic<std::int32_t> threshold_;
  std::atomic<bool> enabled_;
};

// The log state, made and registered as a listener on first use.
Ref<LogWriterImpl> GetLogWriter();

}  // namespace kiv

#endif  // KIV_SRC_SERVICES_LOG_IMPL_H_
