// Helpers shared by the test programs.
#ifndef KIV_TESTS_SUPPORT_TEST_SUPPORT_H_
#define KIV_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <kiv/encodings.h>
#include <kiv/streams.h>
#include <kiv/string.h>
#include <kiv/textio.h>

#include <string>
#include <vector>

namespace kiv::testing {

// The text of a string as UTF-8, for assertions and messages.
std::string Utf8(const String& s);
// A UTF-16 string of UTF-8 text.
String Wide(const char* utf8);
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

// Gathers everything written to it; accepts every byte.
class MemoryOutput : public SyncOutputStreamItf {
 public:
  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  void Flush() override {}
  std::string text;
};

// Hands out `data` in reads of at most the sizes in `splits`, taken in turn and repeated (none:
// as much as asked), and throws IOTimeoutException in place of the reads whose numbers (counted
// from 0) are in `timeouts`. What a decoder does must not depend on how its input arrives.
class SplitInput : public SyncInputStreamItf {
 public:
  explicit SplitInput(std::string data, std::vector<unsigned> splits = {},
                      std::vector<unsigned> timeouts = {});
  using SyncInputStreamItf::Read;
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  // The bytes not read yet.
  std::string Rest() const { return data_.substr(offset_); }

 private:
  std::string data_;
  std::vector<unsigned> splits_;
  std::vector<unsigned> timeouts_;
  std::size_t offset_ = 0;
  unsigned reads_ = 0;
};

// A reader of `bytes` as text in `encoding`, through a read-ahead buffer of `read_ahead` bytes.
Reader MakeReader(const std::string& bytes, const TextEncoding& encoding, unsigned read_ahead = 64);

}  // namespace kiv::testing

#endif  // KIV_TESTS_SUPPORT_TEST_SUPPORT_H_
