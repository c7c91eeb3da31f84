// File resources: a path, and the streams and properties of the file it names.
#include <string>

#include "kiv/date.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/numbers.h"
#include "kiv/resource.h"
#include "resource/file_streams.h"

namespace kiv {

const char kResourceSize[] = "size";
const char kResourceModificationTime[] = "modification time";
const char kResourceMIMEType[] = "MIME type";

CommitSyncOutputStreamItf::~CommitSyncOutputStreamItf() = default;
ResourceItf::~ResourceItf() = default;

class FileResourceImpl final : public ResourceItf {
 public:
  FileResourceImpl(const String& name, std::u16string path) : name_(name), path_(std::move(path)) {}
  ~FileResourceImpl() override = default;

  String GetName() const override { return name_; }

  bool Exists() const override {
    platform::FileInfo info;
    return platform::GetFileInfo(path_, info) == 0 && !info.is_directory;
  }

  std::int64_t GetSize() const override { return static_cast<std::int64_t>(Info().size); }

  std::int64_t GetModificationTime() const override { return FILETIME2Julian(Info().modified); }

  String GetMIMEType() const override { return MIMEExp::Lookup(name_); }

  Object GetProperty(const String& name) const override {
    if (name == Ascii(kResourceSize)) return new UnsignedInteger64(Info().size);
    if (name == Ascii(kResourceModificationTime)) return new Integer64(GetModificationTime());
    if (name == Ascii(kResourceMIMEType)) return GetMIMEType();
    throw NoSuchNamedElementException(name);
  }

  SyncInputStream OpenInputStream() const override {
    platform::FileHandle file = platform::kNoFile;
    if (const int error = platform::OpenFile(path_, platform::FileAccess::kRead, file)) {
      ThrowResourceError("cannot open", name_, error);
    }
    return SyncInputStream(new FileSyncInStream(file, name_));
  }

  SyncOutputStream OpenOutputStream() const override {
    platform::FileHandle file = platform::kNoFile;
    if (const int error = platform::OpenFile(path_, platform::FileAccess::kTruncate, file)) {
      ThrowResourceError("cannot open", name_, error);
    }
    return SyncOutputStream(new FileSyncOutStream(file, name_));
  }

  CommitSyncOutputStream OpenCommitOutputStream() const override {
    platform::FileInfo info;
    if (platform::GetFileInfo(path_, info) == 0 && info.is_directory) {
      ThrowResourceError("cannot open", name_, platform::kErrorIsDirectory);
    }
    platform::FileHandle file = platform::kNoFile;
    std::u16string temporary;
    if (const int error = platform::CreateFileBeside(path_, temporary, file)) {
      ThrowResourceError("cannot create a file beside", name_, error);
    }
    return CommitSyncOutputStream(new CommitFileSyncOutStream(file, temporary, name_, path_));
  }

 private:
  static String Ascii(const char* text) {
    return String(TextEncodingExp::MakeAscii(), static_cast<const void*>(text));
  }

  platform::FileInfo Info() const {
    platform::FileInfo info;
    if (const int error = platform::GetFileInfo(path_, info)) {
      ThrowResourceError("cannot read the properties of", name_, error);
    }
    return info;
  }

  String name_;
  std::u16string path_;
};

Resource SyncResourceExp::Make(const String& path) {
  if (!path || path->IsEmpty()) throw NotResourceException();
  String wide = path->Encode(TextEncodingExp::MakeUTF16());
  const auto* units = static_cast<const char16_t*>(wide->GetData());
  std::u16string units_copy(units, wide->ByteLength() / sizeof(char16_t));
  if (units_copy.find(u'\0') != std::u16string::npos) throw NotResourceException();
  return Resource(new FileResourceImpl(path, std::move(units_copy)));
}

}  // namespace kiv
