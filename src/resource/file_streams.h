// The byte streams of file resources. Each owns its open file and closes it with its last
// reference; failures of the system throw ResourceOSException naming the operation and the path.
#ifndef KIV_SRC_RESOURCE_FILE_STREAMS_H_
#define KIV_SRC_RESOURCE_FILE_STREAMS_H_

#include <cstdint>
#include <string>

#include "io/stream_helpers.h"
#include "kiv/resource.h"
#include "kiv/streams.h"
#include "kiv/string.h"
#include "platform/file.h"

namespace kiv {

// Throws ResourceOSException with the text "<action> <path>" and `error`.
[[noreturn]] void ThrowResourceError(const char* action, const String& path, int error);

// Reads a file; its own random-access marker.
class FileSyncInStream final : public SelfMarkedStream<FileSyncInStream, SyncInputStreamItf> {
 public:
  // Takes ownership of `file`, opened for reading from `path`.
  FileSyncInStream(platform::FileHandle file, const String& path) noexcept
      : file_(file), path_(path) {}
  ~FileSyncInStream() override;

  using SyncInputStreamItf::Read;
  // One read of the file; the timeout is ignored (a file does not keep its reader waiting).
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  bool IsRandomAccess() const override { return true; }

  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  // Accepts 0..length; BoundsException(pos) otherwise.
  void SetPosition(std::int64_t pos) override;

 private:
  platform::FileHandle file_;
  String path_;
};

// Buffered writing to an open file, shared by both output streams. After the first failure it
// takes nothing more and reports that failure again on Flush.
class FileWriter {
 public:
  static constexpr unsigned kBufferSize = 8192;

  // Takes ownership of `file`; errors name `path`.
  FileWriter(platform::FileHandle file, const String& path) noexcept : file_(file), path_(path) {}
  // Closes the file without writing what is buffered.
  ~FileWriter() { Close(); }
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Takes all `count` bytes (0 once closed or failed); throws when handing them on fails.
  unsigned Write(const void* src, unsigned count);
  // Hands the buffered bytes to the system; throws on failure, this one or an earlier one.
  void Flush();
  // Flush, then forces the file's data onto the disk; throws on failure.
  void Sync();
  // Closes the file; what is still buffered is dropped.
  void Close() noexcept;
  const String& Path() const noexcept { return path_; }

 private:
  [[noreturn]] void Fail(int error);

  platform::FileHandle file_;
  String path_;
  unsigned held_ = 0;
  int failure_ = 0;
  unsigned char buffer_[kBufferSize];
};

// Writes a file from its start.
class FileSyncOutStream final : public SyncOutputStreamItf {
 public:
  FileSyncOutStream(platform::FileHandle file, const String& path) noexcept : writer_(file, path) {}
  // Hands on what is buffered (errors dropped) and closes the file.
  ~FileSyncOutStream() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override { return writer_.Write(src, count); }
  void Flush() override { writer_.Flush(); }

 private:
  FileWriter writer_;
};

// Writes a new file beside the target and renames it over the target on Commit.
class CommitFileSyncOutStream final : public CommitSyncOutputStreamItf {
 public:
  // Takes ownership of `file`, the new file at `temporary`, which replaces `target` on Commit.
  CommitFileSyncOutStream(platform::FileHandle file, const std::u16string& temporary,
                          const String& target, const std::u16string& target_path) noexcept
      : writer_(file, target), temporary_(temporary), target_path_(target_path) {}
  // Without Commit: closes and removes the new file.
  ~CommitFileSyncOutStream() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  void Flush() override;
  void Commit() override;

 private:
  // Closes and removes the new file; the target is untouched.
  void Abandon() noexcept;

  FileWriter writer_;
  std::u16string temporary_;
  std::u16string target_path_;
  bool done_ = false;  // committed or abandoned
};

}  // namespace kiv

#endif  // KIV_SRC_RESOURCE_FILE_STREAMS_H_
