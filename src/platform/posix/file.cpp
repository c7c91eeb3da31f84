#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/posix/utf8_names.h"

namespace kiv::platform {

const int kErrorNotFound = ENOENT;
const int kErrorIsDirectory = EISDIR;

namespace {

// File times count 100-nanosecond ticks from 1601; the system counts seconds from 1970.
constexpr std::uint64_t kTicksPerSecond = 10000000;

int Fd(FileHandle file) noexcept { return static_cast<int>(file); }

void Describe(const struct stat& st, FileInfo& info) noexcept {
  info.is_directory = S_ISDIR(st.st_mode);
  info.size = static_cast<std::uint64_t>(st.st_size);
  // Times before 1601 cannot be file times and read as 1601 itself; times past the year 30000 are
  // held there, which keeps the arithmetic inside 64 bits.
  constexpr std::int64_t kEarliest = -11644473600;
  constexpr std::int64_t kLatest = 885000000000;
  std::int64_t seconds = static_cast<std::int64_t>(st.st_mtim.tv_sec);
  if (seconds < kEarliest) seconds = kEarliest;
  if (seconds > kLatest) seconds = kLatest;
  info.modified = static_cast<std::uint64_t>(seconds - kEarliest) * kTicksPerSecond +
                  static_cast<std::uint64_t>(st.st_mtim.tv_nsec / 100);
}

// The directory part of a UTF-8 path, "." when it has none.
std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

}  // namespace

int OpenFile(const std::u16string& path, FileAccess access, FileHandle& file) noexcept {
  try {
    const std::string name = ToUtf8(path);
    const int flags = access == FileAccess::kRead ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    int fd;
    do {
      fd = ::open(name.c_str(), flags | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return errno;
    // A directory opens for reading on this system; as a file it is an error everywhere.
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
      ::close(fd);
      return EISDIR;
    }
    file = fd;
    return 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

int CreateFileBeside(const std::u16string& beside, std::u16string& path,
                     FileHandle& file) noexcept {
  static std::atomic<unsigned> counter{0};
  try {
    const std::string target = ToUtf8(beside);
    struct stat target_stat;
    const bool target_exists = ::stat(target.c_str(), &target_stat) == 0;
    for (int attempt = 0; attempt < 100; ++attempt) {
      char suffix[48];
      std::snprintf(suffix, sizeof suffix, ".%ld-%u.tmp", static_cast<long>(::getpid()),
                    counter.fetch_add(1, std::memory_order_relaxed));
      const std::string name = target + suffix;
      // O_EXCL makes the name ours alone; the mode passes through the process's umask as any new
      // file's does.
      const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0) {
        if (errno == EEXIST || errno == EINTR) continue;
        return errno;
      }
      if (target_exists) static_cast<void>(::fchmod(fd, target_stat.st_mode & 07777));
      path = FromUtf8(name.data(), name.size());
      file = fd;
      return 0;
    }
    return EEXIST;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

void CloseFile(FileHandle file) noexcept {
  if (file != kNoFile) ::close(Fd(file));
}

int ReadFile(FileHandle file, void* dst, unsigned count, unsigned& done) noexcept {
  done = 0;
  for (;;) {
    const ssize_t n = ::read(Fd(file), dst, count);
    if (n >= 0) {
      done = static_cast<unsigned>(n);
      return 0;
    }
    if (errno != EINTR) return errno;
  }
}

int WriteFile(FileHandle file, const void* src, unsigned count, unsigned& done) noexcept {
  done = 0;
  const char* p = static_cast<const char*>(src);
  while (done < count) {
    const ssize_t n = ::write(Fd(file), p + done, count - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    // A write that takes nothing without an error would repeat forever; the disk is full.
    if (n == 0) return ENOSPC;
    done += static_cast<unsigned>(n);
  }
  return 0;
}

int GetFilePosition(FileHandle file, std::int64_t& offset) noexcept {
  const off_t at = ::lseek(Fd(file), 0, SEEK_CUR);
  if (at < 0) return errno;
  offset = static_cast<std::int64_t>(at);
  return 0;
}

int SetFilePosition(FileHandle file, std::int64_t offset) noexcept {
  if (offset < 0) return EINVAL;
  return ::lseek(Fd(file), static_cast<off_t>(offset), SEEK_SET) < 0 ? errno : 0;
}

int GetFileInfo(FileHandle file, FileInfo& info) noexcept {
  struct stat st;
  if (::fstat(Fd(file), &st) != 0) return errno;
  Describe(st, info);
  return 0;
}

int GetFileInfo(const std::u16string& path, FileInfo& info) noexcept {
  try {
    struct stat st;
    if (::stat(ToUtf8(path).c_str(), &st) != 0) return errno;
    Describe(st, info);
    return 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

int SyncFile(FileHandle file) noexcept {
  while (::fsync(Fd(file)) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

int ReplaceFile(const std::u16string& from, const std::u16string& to) noexcept {
  try {
    const std::string target = ToUtf8(to);
    if (::rename(ToUtf8(from).c_str(), target.c_str()) != 0) return errno;
    // The new name is on disk only once its directory is; a system that cannot sync a directory
    // still has a complete file under one name or the other.
    const int dir = ::open(DirectoryOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
      static_cast<void>(::fsync(dir));
      ::close(dir);
    }
    return 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

int RemoveFile(const std::u16string& path) noexcept {
  try {
    return ::unlink(ToUtf8(path).c_str()) != 0 ? errno : 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

std::string ErrorText(int error) { return std::system_category().message(error); }

}  // namespace kiv::platform
