#include "resource/file_streams.h"

#include <algorithm>
#include <cstring>

#include "kiv/encodings.h"
#include "kiv/exception.h"

namespace kiv {

void ThrowResourceError(const char* action, const String& path, int error) {
  // Made in 16-bit text, so that the path keeps every character whatever its own encoding.
  String ascii(TextEncodingExp::MakeAscii(), static_cast<const void*>(action));
  String text = String(TextEncodingExp::MakeAppDefault(), *ascii.operator->()) + u' ';
  throw ResourceOSException(text + path, static_cast<std::int32_t>(error));
}

// ---- reading ----

FileSyncInStream::~FileSyncInStream() { platform::CloseFile(file_); }

unsigned FileSyncInStream::Read(void* dst, unsigned count, std::int64_t) {
  unsigned done = 0;
  if (const int error = platform::ReadFile(file_, dst, count, done)) {
    ThrowResourceError("cannot read", path_, error);
  }
  return done;
}

std::int64_t FileSyncInStream::GetLength() {
  platform::FileInfo info;
  if (const int error = platform::GetFileInfo(file_, info)) {
    ThrowResourceError("cannot read the length of", path_, error);
  }
  return static_cast<std::int64_t>(info.size);
}

std::int64_t FileSyncInStream::GetPosition() {
  std::int64_t offset = 0;
  if (const int error = platform::GetFilePosition(file_, offset)) {
    ThrowResourceError("cannot read the position in", path_, error);
  }
  return offset;
}

void FileSyncInStream::SetPosition(std::int64_t pos) {
  if (pos < 0 || pos > GetLength()) throw BoundsException(pos);
  if (const int error = platform::SetFilePosition(file_, pos)) {
    ThrowResourceError("cannot move in", path_, error);
  }
}

// ---- writing ----

void FileWriter::Fail(int error) {
  failure_ = error;
  ThrowResourceError("cannot write", path_, error);
}

unsigned FileWriter::Write(const void* src, unsigned count) {
  if (file_ == platform::kNoFile || failure_ != 0) return 0;
  const unsigned char* p = static_cast<const unsigned char*>(src);
  unsigned left = count;
  while (left > 0) {
    if (held_ == 0 && left >= kBufferSize) {
      // Large writes skip the buffer.
      unsigned done = 0;
      if (const int error = platform::WriteFile(file_, p, left, done)) Fail(error);
      break;
    }
    const unsigned n = std::min(left, kBufferSize - held_);
    std::memcpy(buffer_ + held_, p, n);
    held_ += n;
    p += n;
    left -= n;
    if (held_ == kBufferSize) Flush();
  }
  return count;
}

void FileWriter::Flush() {
  if (failure_ != 0) ThrowResourceError("cannot write", path_, failure_);
  if (file_ == platform::kNoFile || held_ == 0) return;
  unsigned done = 0;
  const int error = platform::WriteFile(file_, buffer_, held_, done);
  held_ = 0;
  if (error != 0) Fail(error);
}

void FileWriter::Sync() {
  Flush();
  if (file_ == platform::kNoFile) return;
  if (const int error = platform::SyncFile(file_)) Fail(error);
}

void FileWriter::Close() noexcept {
  platform::CloseFile(file_);
  file_ = platform::kNoFile;
  held_ = 0;
}

FileSyncOutStream::~FileSyncOutStream() {
  try {
    writer_.Flush();
  } catch (...) {
    // Nobody is left to tell; callers that care call Flush first.
  }
}

// ---- committed writing ----

CommitFileSyncOutStream::~CommitFileSyncOutStream() { Abandon(); }

unsigned CommitFileSyncOutStream::Write(const void* src, unsigned count) {
  if (done_) return 0;
  return writer_.Write(src, count);
}

void CommitFileSyncOutStream::Flush() {
  if (!done_) writer_.Flush();
}

void CommitFileSyncOutStream::Commit() {
  if (done_) return;
  try {
    writer_.Sync();
  } catch (...) {
    Abandon();
    throw;
  }
  writer_.Close();
  if (const int error = platform::ReplaceFile(temporary_, target_path_)) {
    Abandon();
    ThrowResourceError("cannot replace", writer_.Path(), error);
  }
  done_ = true;
}

void CommitFileSyncOutStream::Abandon() noexcept {
  if (done_) return;
  done_ = true;
  writer_.Close();
  platform::RemoveFile(temporary_);
}

}  // namespace kiv
