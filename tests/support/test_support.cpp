#include "support/test_support.h"

#include <kiv/buffer.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/filters.h>

#include <stdlib.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace kiv::testing {

std::string Utf8(const String& s) {
  if (!s) return "<null>";
  String u = s->Encode(TextEncodingExp::MakeUTF8());
  return std::string(static_cast<const char*>(u->GetData()), u->ByteLength());
}

String Wide(const char* utf8) {
  String u(TextEncodingExp::MakeUTF8(), const_cast<char*>(utf8),
           static_cast<unsigned>(std::strlen(utf8)));
  return u->Encode(TextEncodingExp::MakeUTF16());
}

ScopedTempDir::ScopedTempDir() : previous_(std::filesystem::current_path().string()) {
  std::string pattern = (std::filesystem::temp_directory_path() / "kiv_test_XXXXXX").string();
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  path_ = mkdtemp(name.data());
  std::filesystem::current_path(path_);
}

ScopedTempDir::~ScopedTempDir() {
  std::filesystem::current_path(previous_);
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string CorpusDir() {
  const char* configured = std::getenv("KIV_CORPUS_DIR");
  std::filesystem::path dir(configured != nullptr && *configured != '\0' ? configured
                                                                         : KIV_CORPUS_DIR);
  return std::filesystem::is_directory(dir) ? dir.string() : std::string();
}

unsigned MemoryOutput::Write(const void* src, unsigned count) {
  text.append(static_cast<const char*>(src), count);
  return count;
}

Reader MakeReader(const std::string& bytes, const TextEncoding& encoding, unsigned read_ahead) {
  Buffer data = BufferExp::Make(static_cast<unsigned>(bytes.size()) + 1);
  std::memcpy(data->GetData(), bytes.data(), bytes.size());
  // One spare byte keeps the buffer non-null for empty text; the fixed-length stream hides it.
  SyncInputStream in = FixedLengthSyncInputStreamExp::Make(SyncInputStreamExp::Make(data),
                                                           static_cast<unsigned>(bytes.size()));
  return ReaderExp::Make(TextInputStreamExp::Make(in, BufferExp::Make(read_ahead), encoding), -1);
}

SplitInput::SplitInput(std::string data, std::vector<unsigned> splits,
                       std::vector<unsigned> timeouts)
    : data_(std::move(data)), splits_(std::move(splits)), timeouts_(std::move(timeouts)) {}

unsigned SplitInput::Read(void* dst, unsigned count, std::int64_t) {
  const unsigned read = reads_++;
  if (std::find(timeouts_.begin(), timeouts_.end(), read) != timeouts_.end()) {
    throw IOTimeoutException();
  }
  std::size_t n = std::min<std::size_t>(count, data_.size() - offset_);
  if (!splits_.empty()) n = std::min<std::size_t>(n, splits_[read % splits_.size()]);
  std::memcpy(dst, data_.data() + offset_, n);
  offset_ += n;
  return static_cast<unsigned>(n);
}

}  // namespace kiv::testing
