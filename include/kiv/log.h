// The application log: one process-wide log stream, writers for single entries, and the
// configuration that decides which entries are written.
//
//   kiv::LogWriterExp::Init(kiv::MTSyncIOStreamExp::Make(kiv::SyncOutputStreamExp::Make(stderr)));
//   kiv::LogWriterExp::SetIdent(ident);
//   kiv::Writer log = kiv::LogWriterExp::Make(kiv::LogWarn);
//   log->Write("disk almost full");
//   log->NewLine();
//
// A writer for a level that passes the threshold goes to the log stream in line mode, its line
// already started with a time stamp in local time and the identification:
//
//   [05/Mar/2004:14:07:09 +0100] ident: disk almost full
//
// so each entry reaches the log stream in one write. Any other writer discards what it is given.
//
// Configuration comes from the published preferences (<kiv/preferences.h>), re-read after every
// publication: "logs/application/enabled" (a boolean, default true) and
// "logs/application/level" (a level word, default "error"). Configuration never lets debug
// entries through: "debug" reads as "info", so debug output stays off by design (it is for a
// developer who changes the threshold in the code, not for an operator's settings file). A word
// that is no level word, and an enabled setting that is no boolean, leave the previous state.
// The log state listens from its first use on (any LogWriterExp or DebugWriterExp call) and is not
// told of earlier publications, so a host touches the log (Init, say) before it publishes its
// preferences; until it hears of one, the defaults hold.
//
// Thread safety: any thread may ask for writers at any time; each call makes a writer of its own
// (one thread uses it). Nothing here locks the log stream itself, so a process that logs from
// several threads gives Init a stream made for that, such as MTSyncIOStreamExp's.
#ifndef KIV_LOG_H_
#define KIV_LOG_H_

#include <kiv/export.h>
#include <kiv/streams.h>
#include <kiv/string.h>
#include <kiv/textio.h>

#include <cstdint>

namespace kiv {

// Smaller is more severe. The words accepted in configuration and by the Make forms that take a
// word are the lower- and upper-case names: "fatal"/"FATAL" ... "debug"/"DEBUG".
enum LogLevel : std::int32_t {
  LogFatal = 1,
  LogError = 2,
  LogWarn = 3,
  LogInfo = 4,
  LogDebug = 5,
};

struct KIV_EXPORT LogWriterExp {
  // The log stream becomes `out` (an empty handle: as Disable). Writers made earlier keep the
  // stream they were made with.
  static void Init(const SyncOutputStream& out);
  // The log stream becomes a new null stream: entries are dropped from now on. The enabled
  // setting is not touched.
  static void Disable();
  // The identification written after the time stamp by the Make forms without one; empty at
  // first.
  static void SetIdent(const String& ident);
  // A writer for one entry of `level` identified by `ident`: on the log stream when logging is
  // enabled and `level` passes the threshold (level <= threshold), with the time stamp, `ident`
  // and ": " already written; otherwise a writer that discards everything. The caller writes the
  // message and ends the line.
  [[nodiscard]] static Writer Make(const String& ident, LogLevel level);
  // The level named by `level_word`; NoSuchNamedElementException for any other word.
  [[nodiscard]] static Writer Make(const String& ident, const String& level_word);
  // With the identification set by SetIdent.
  [[nodiscard]] static Writer Make(LogLevel level);
  [[nodiscard]] static Writer Make(const String& level_word);
  // Writes the current local time stamp, "[dd/Mon/yyyy:hh:mm:ss +hhmm] " with its trailing blank;
  // the zone is the current offset from UTC.
  static void WriteTimestamp(Writer& writer);
};

struct KIV_EXPORT DebugWriterExp {
  // A writer for debug output: as LogWriterExp::Make at LogDebug, which configuration never lets
  // through, so under every configuration it discards. (Were the threshold ever at LogDebug, with
  // `with_prefix` the time stamp, the identification and ": " would come first, and without it
  // the writer would start empty.)
  [[nodiscard]] static Writer Make(bool with_prefix);
};

}  // namespace kiv

#endif  // KIV_LOG_H_
