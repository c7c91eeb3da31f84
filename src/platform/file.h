// Files: open, read, write, position, flush to disk, replace, remove, and describe, with paths as
// 16-bit text and failures as the operating system's error codes.
//
// Every function that can fail returns 0 on success or the system's error code (never throws);
// ErrorText turns a code into the system's own description. Nothing here is locked: one thread uses
// a file handle at a time.
#ifndef KIV_PLATFORM_FILE_H_
#define KIV_PLATFORM_FILE_H_

#include <cstdint>
#include <string>

namespace kiv::platform {

// An open file; kNoFile when none.
using FileHandle = std::intptr_t;
inline constexpr FileHandle kNoFile = -1;

enum class FileAccess {
  kRead,      // reading an existing file
  kTruncate,  // writing from the start, creating the file or cutting it to length 0
};

struct FileInfo {
  bool is_directory = false;
  std::uint64_t size = 0;
  // The time of the last change to the content, in 100-nanosecond ticks since 1 January 1601 UTC.
  std::uint64_t modified = 0;
};

// Opens `path`; on success `file` holds the new handle.
int OpenFile(const std::u16string& path, FileAccess access, FileHandle& file) noexcept;
// Creates a new, empty file in the directory of `beside`, named after it with a unique suffix, and
// opens it for writing; `path` receives its name. It gets the permissions of `beside` when that
// exists, else those of any new file.
int CreateFileBeside(const std::u16string& beside, std::u16string& path, FileHandle& file) noexcept;
// Null handles are ignored. Errors of close are dropped: callers that must know whether data
// reached the disk call SyncFile first.
void CloseFile(FileHandle file) noexcept;
// Reads at most `count` bytes; `done` receives how many (0 at end of file). Interrupted calls are
// repeated.
int ReadFile(FileHandle file, void* dst, unsigned count, unsigned& done) noexcept;
// Writes all `count` bytes, repeating partial writes; `done` receives how many reached the file
// (fewer only together with an error code).
int WriteFile(FileHandle file, const void* src, unsigned count, unsigned& done) noexcept;
// The current offset, and moving it to `offset` from the start.
int GetFilePosition(FileHandle file, std::int64_t& offset) noexcept;
int SetFilePosition(FileHandle file, std::int64_t offset) noexcept;
int GetFileInfo(FileHandle file, FileInfo& info) noexcept;
int GetFileInfo(const std::u16string& path, FileInfo& info) noexcept;
// Forces what was written to `file` onto the disk.
int SyncFile(FileHandle file) noexcept;
// Renames `from` over `to` in one step (readers see the old or the new file, never a mix), then
// makes the rename itself durable where the system allows.
int ReplaceFile(const std::u16string& from, const std::u16string& to) noexcept;
int RemoveFile(const std::u16string& path) noexcept;

// The system's description of an error code ("No such file or directory").
std::string ErrorText(int error);

// Error codes the library tests for.
extern const int kErrorNotFound;     // the file does not exist
extern const int kErrorIsDirectory;  // a directory where a file is needed

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_FILE_H_
