#include "support/test_support.h"

#include <kiv/buffer.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/filters.h>

#include <stdlib.h>
#include <time.h>
#include <algorithm>
#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

namespace kiv::testing {

std::string Utf8(const String& s) {
  if (!s) return "<null>";
  return Bytes(s->Encode(TextEncodingExp::MakeUTF8()));
}

String Wide(const char* utf8) {
  String u(TextEncodingExp::MakeUTF8(), const_cast<char*>(utf8),
           static_cast<unsigned>(std::strlen(utf8)));
  return u->Encode(TextEncodingExp::MakeUTF16());
}

std::string Bytes(const String& s) {
  return std::string(static_cast<const char*>(s->GetData()), s->ByteLength());
}

std::vector<std::string> Strings(const Ref<EnumerationItf>& elements) {
  std::vector<std::string> out;
  for (String s : elements) out.push_back(Utf8(s));
  return out;
}

ScopedTempDir::ScopedTempDir() : previous_(std::filesystem::current_path().string()) {
  // create_directory is false when the name is taken, so the folder found is ours alone.
  std::random_device seed;
  std::mt19937_64 random(seed());
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  std::filesystem::path dir;
  do {
    dir = base / ("kiv_test_" + std::to_string(random() % 1000000000));
  } while (!std::filesystem::create_directory(dir));
  path_ = dir.string();
  std::filesystem::current_path(dir);
}

ScopedTempDir::~ScopedTempDir() {
  std::filesystem::current_path(previous_);
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

#if defined(_WIN32)
namespace {
std::wstring WideText(const std::string& utf8) {
  String w = Wide(utf8.c_str());
  return std::wstring(static_cast<const wchar_t*>(w->GetData()), w->ByteLength() / 2);
}
}  // namespace

bool GetEnv(const std::string& name, std::string& value) {
  const wchar_t* found = _wgetenv(WideText(name).c_str());
  if (found == nullptr) return false;
  value = Utf8(String(TextEncodingExp::MakeUTF16(), const_cast<wchar_t*>(found),
                      static_cast<unsigned>(std::wcslen(found) * 2)));
  return true;
}
void SetEnv(const std::string& name, const std::string& value) {
  _wputenv_s(WideText(name).c_str(), WideText(value).c_str());
}
void UnsetEnv(const std::string& name) { _wputenv_s(WideText(name).c_str(), L""); }
#else
bool GetEnv(const std::string& name, std::string& value) {
  const char* found = std::getenv(name.c_str());
  if (found == nullptr) return false;
  value = found;
  return true;
}
void SetEnv(const std::string& name, const std::string& value) {
  setenv(name.c_str(), value.c_str(), 1);
}
void UnsetEnv(const std::string& name) { unsetenv(name.c_str()); }
#endif

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string ReadTextFile(const std::string& path) {
  std::string text = ReadFile(path);
#if defined(_WIN32)
  std::string::size_type at = 0;
  while ((at = text.find("\r\n", at)) != std::string::npos) text.erase(at, 1);
#endif
  return text;
}

std::string SystemErrorText(int code) {
#if defined(_WIN32)
  char text[512];
  DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                           static_cast<DWORD>(code), 0, text, sizeof text, nullptr);
  std::string message(text, n);
  while (!message.empty() && std::strchr("\r\n .", message.back()) != nullptr) message.pop_back();
  return message + " (" + std::to_string(code) + ")";
#else
  return std::string(std::strerror(code)) + " (" + std::to_string(code) + ")";
#endif
}

std::string CorpusDir() {
  const char* configured = std::getenv("KIV_CORPUS_DIR");
  std::filesystem::path dir(configured != nullptr && *configured != '\0' ? configured
                                                                         : KIV_CORPUS_DIR);
  return std::filesystem::is_directory(dir) ? dir.string() : std::string();
}

std::string WrittenText(const std::function<void(Writer&)>& write, const TextEncoding& encoding) {
  Ref<FakeOutput> out(new FakeOutput);
  Writer writer = WriterExp::Make(encoding, SyncOutputStream(out.Get()));
  write(writer);
  writer->Flush();
  return out->text;
}

std::string ReadAll(SyncInputStream in, unsigned count) {
  std::string out;
  std::vector<char> buf(count);
  while (unsigned n = in->Read(buf.data(), count, -1)) out.append(buf.data(), n);
  return out;
}

#if !defined(_WIN32)
ScopedZone::ScopedZone(const char* zone) : had_(GetEnv("TZ", old_)) {
  SetEnv("TZ", zone);
  tzset();
}
ScopedZone::~ScopedZone() {
  if (had_) {
    SetEnv("TZ", old_);
  } else {
    UnsetEnv("TZ");
  }
  tzset();
}
#endif

Reader MakeReader(const std::string& bytes, const TextEncoding& encoding, unsigned read_ahead) {
  Buffer data = BufferExp::Make(static_cast<unsigned>(bytes.size()) + 1);
  std::memcpy(data->GetData(), bytes.data(), bytes.size());
  // One spare byte keeps the buffer non-null for empty text; the fixed-length stream hides it.
  SyncInputStream in = FixedLengthSyncInputStreamExp::Make(SyncInputStreamExp::Make(data),
                                                           static_cast<unsigned>(bytes.size()));
  return ReaderExp::Make(TextInputStreamExp::Make(in, BufferExp::Make(read_ahead), encoding), -1);
}

}  // namespace kiv::testing
