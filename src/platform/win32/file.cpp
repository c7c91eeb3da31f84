#include "platform/file.h"

#include <atomic>
#include <cstdio>

#include "platform/win32/windows_names.h"

namespace kiv::platform {

const int kErrorNotFound = ERROR_FILE_NOT_FOUND;
// The system refuses to open a directory as a file with "access denied", and that is the code
// reported: its text exists on every version of the system.
const int kErrorIsDirectory = ERROR_ACCESS_DENIED;

namespace {

HANDLE Handle(FileHandle file) noexcept { return reinterpret_cast<HANDLE>(file); }

int LastError() noexcept { return static_cast<int>(::GetLastError()); }

std::uint64_t Ticks(const FILETIME& time) noexcept {
  return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

std::uint64_t Size(DWORD high, DWORD low) noexcept {
  return (static_cast<std::uint64_t>(high) << 32) | low;
}

// Other openers may read, write, rename and delete the file while it is open, as they may on
// POSIX systems: a reader never stops a writer from replacing the file.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

}  // namespace

int OpenFile(const std::u16string& path, FileAccess access, FileHandle& file) noexcept {
  try {
    const std::wstring name = Wide(path);
    const bool read = access == FileAccess::kRead;
    const HANDLE handle =
        ::CreateFileW(name.c_str(), read ? GENERIC_READ : GENERIC_WRITE, kShareAll, nullptr,
                      read ? OPEN_EXISTING : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return LastError();
    file = reinterpret_cast<FileHandle>(handle);
    return 0;
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

// The new file takes the access rules of its directory, as every new file does here; there are
// no permission bits to copy from `beside`.
int CreateFileBeside(const std::u16string& beside, std::u16string& path,
                     FileHandle& file) noexcept {
  static std::atomic<unsigned> counter{0};
  try {
    for (int attempt = 0; attempt < 100; ++attempt) {
      wchar_t suffix[48];
      std::swprintf(suffix, sizeof suffix / sizeof suffix[0], L".%lu-%u.tmp",
                    static_cast<unsigned long>(::GetCurrentProcessId()),
                    counter.fetch_add(1, std::memory_order_relaxed));
      const std::wstring name = Wide(beside) + suffix;
      // CREATE_NEW makes the name ours alone.
      const HANDLE handle = ::CreateFileW(name.c_str(), GENERIC_WRITE, kShareAll, nullptr,
                                          CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
      if (handle == INVALID_HANDLE_VALUE) {
        const int error = LastError();
        if (error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS) continue;
        return error;
      }
      path = Units(name.data(), name.size());
      file = reinterpret_cast<FileHandle>(handle);
      return 0;
    }
    return ERROR_FILE_EXISTS;
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

void CloseFile(FileHandle file) noexcept {
  if (file != kNoFile) ::CloseHandle(Handle(file));
}

int ReadFile(FileHandle file, void* dst, unsigned count, unsigned& done) noexcept {
  done = 0;
  DWORD n = 0;
  if (!::ReadFile(Handle(file), dst, count, &n, nullptr)) {
    const int error = LastError();
    // The writing end of a pipe has gone: that is the end of the data, not a failure.
    if (error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF) return 0;
    return error;
  }
  done = n;
  return 0;
}

int WriteFile(FileHandle file, const void* src, unsigned count, unsigned& done) noexcept {
  done = 0;
  const char* p = static_cast<const char*>(src);
  while (done < count) {
    DWORD n = 0;
    if (!::WriteFile(Handle(file), p + done, count - done, &n, nullptr)) return LastError();
    // A write that takes nothing without an error would repeat forever; the disk is full.
    if (n == 0) return ERROR_DISK_FULL;
    done += n;
  }
  return 0;
}

int GetFilePosition(FileHandle file, std::int64_t& offset) noexcept {
  LARGE_INTEGER zero{};
  LARGE_INTEGER at{};
  if (!::SetFilePointerEx(Handle(file), zero, &at, FILE_CURRENT)) return LastError();
  offset = at.QuadPart;
  return 0;
}

int SetFilePosition(FileHandle file, std::int64_t offset) noexcept {
  if (offset < 0) return ERROR_NEGATIVE_SEEK;
  LARGE_INTEGER to{};
  to.QuadPart = offset;
  return ::SetFilePointerEx(Handle(file), to, nullptr, FILE_BEGIN) ? 0 : LastError();
}

int GetFileInfo(FileHandle file, FileInfo& info) noexcept {
  BY_HANDLE_FILE_INFORMATION found;
  if (!::GetFileInformationByHandle(Handle(file), &found)) return LastError();
  info.is_directory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  info.size = Size(found.nFileSizeHigh, found.nFileSizeLow);
  info.modified = Ticks(found.ftLastWriteTime);
  return 0;
}

int GetFileInfo(const std::u16string& path, FileInfo& info) noexcept {
  try {
    WIN32_FILE_ATTRIBUTE_DATA found;
    if (!::GetFileAttributesExW(Wide(path).c_str(), GetFileExInfoStandard, &found)) {
      return LastError();
    }
    info.is_directory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info.size = Size(found.nFileSizeHigh, found.nFileSizeLow);
    info.modified = Ticks(found.ftLastWriteTime);
    return 0;
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

int SyncFile(FileHandle file) noexcept {
  return ::FlushFileBuffers(Handle(file)) ? 0 : LastError();
}

// MOVEFILE_WRITE_THROUGH returns only once the rename is on the disk.
int ReplaceFile(const std::u16string& from, const std::u16string& to) noexcept {
  try {
    const BOOL moved = ::MoveFileExW(Wide(from).c_str(), Wide(to).c_str(),
                                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    return moved ? 0 : LastError();
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

int RemoveFile(const std::u16string& path) noexcept {
  try {
    return ::DeleteFileW(Wide(path).c_str()) ? 0 : LastError();
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

// The system's message in its own language, without the line end and final full stop it adds
// ("The system cannot find the file specified").
std::string ErrorText(int error) {
  char* message = nullptr;
  const DWORD length = ::FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, static_cast<DWORD>(error), 0, reinterpret_cast<char*>(&message), 0, nullptr);
  if (length == 0 || message == nullptr) {
    char unknown[32];
    std::snprintf(unknown, sizeof unknown, "Unknown error %d", error);
    return unknown;
  }
  std::string text(message, length);
  ::LocalFree(message);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) {
    text.pop_back();
  }
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text;
}

}  // namespace kiv::platform
