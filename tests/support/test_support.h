// Helpers shared by the test programs.
#ifndef KIV_TESTS_SUPPORT_TEST_SUPPORT_H_
#define KIV_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/streams.h>
#include <kiv/string.h>
#include <kiv/tasks.h>
#include <kiv/textio.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/fake_streams.h"

namespace kiv::testing {

// The text of a string as UTF-8, for assertions and messages.
std::string Utf8(const String& s);
// A UTF-16 string of UTF-8 text.
String Wide(const char* utf8);
// The bytes of a string in its own encoding.
std::string Bytes(const String& s);
// The bytes of UTF-16 units.
inline std::string U16(std::u16string_view units) {
  return std::string(reinterpret_cast<const char*>(units.data()), 2 * units.size());
}
// What an enumeration hands out (keys, elements, split pieces), each as UTF-8.
std::vector<std::string> Strings(const Ref<EnumerationItf>& elements);

// A counted value that knows how many of its kind are alive.
class Item : public RefCount {
 public:
  explicit Item(int v) : value(v) { ++live; }
  ~Item() override { --live; }
  const int value;
  static inline int live = 0;
};
inline int V(const Object& o) { return dynamic_cast<const Item*>(o.Get())->value; }
// Runs the enclosing scope in a fresh temporary directory (the current directory is restored and
// the temporary one removed at the end).
class ScopedTempDir {
 public:
  ScopedTempDir();
  ~ScopedTempDir();
  const std::string& path() const { return path_; }

 private:
  std::string previous_;
  std::string path_;
};

// The text (ToString) of the E that `f` throws; a test failure when it throws nothing.
template <class E, class F>
std::string ThrownText(F&& f) {
  try {
    f();
  } catch (const E& e) {
    return Utf8(e.ToString());
  }
  ADD_FAILURE() << "nothing thrown";
  return "";
}

// The payload (What) of the E that `f` throws; a test failure when it throws nothing.
template <class E, class F>
auto ThrownWhat(F&& f) -> decltype(std::declval<const E&>().What()) {
  try {
    f();
  } catch (const E& e) {
    return e.What();
  }
  ADD_FAILURE() << "nothing thrown";
  return {};
}

// The process environment with names and values as UTF-8, through the runtime's own functions
// (setenv and unsetenv, or the wide _wputenv and _wgetenv on Windows, whose narrow forms use the
// ANSI code page). Windows cannot hold an empty value: setting one removes the variable.
bool GetEnv(const std::string& name, std::string& value);
void SetEnv(const std::string& name, const std::string& value);
void UnsetEnv(const std::string& name);

// The whole content of a file, or "" when it cannot be read.
std::string ReadFile(const std::string& path);
// The content of a file the runtime wrote in text mode, with Windows' CR LF line ends read as LF.
std::string ReadTextFile(const std::string& path);

// How a resource exception words a system error code: "<system's text> (<code>)". Linux texts are
// spelled out where tests expect them; Windows texts differ between versions and languages.
std::string SystemErrorText(int code);

// The corpus folder: KIV_CORPUS_DIR from the environment, else the one the build was configured
// with (../shared/corpus beside the project by default); "" when it is absent.
std::string CorpusDir();

// What `write` writes through a writer of `encoding` into memory, flushed.
std::string WrittenText(const std::function<void(Writer&)>& write,
                        const TextEncoding& encoding = TextEncodingExp::MakeUTF8());

// Reads `in` to its end with reads of `count` bytes.
std::string ReadAll(SyncInputStream in, unsigned count);

#if !defined(_WIN32)
// Sets TZ for the life of the object (Windows takes the zone from the system's settings).
class ScopedZone {
 public:
  explicit ScopedZone(const char* zone);
  ~ScopedZone();

 private:
  bool had_;
  std::string old_;
};
#endif

// A task that runs a function.
class FunctionTask : public TaskItf {
 public:
  explicit FunctionTask(std::function<void()> run) : run_(std::move(run)) {}
  void Run() override { run_(); }
  void Cancel() override {}

 private:
  std::function<void()> run_;
};

// A reader of `bytes` as text in `encoding`, through a read-ahead buffer of `read_ahead` bytes.
Reader MakeReader(const std::string& bytes, const TextEncoding& encoding, unsigned read_ahead = 64);

}  // namespace kiv::testing

#endif  // KIV_TESTS_SUPPORT_TEST_SUPPORT_H_
