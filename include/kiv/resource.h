// Resources: named sources and sinks of bytes that also describe themselves. A resource is made
// from a file path; it opens the file for reading or writing as a byte stream and answers three
// properties: "size", "modification time" and "MIME type".
//
//   kiv::Resource file = kiv::SyncResourceExp::Make(path);
//   kiv::SyncInputStream in = file->OpenInputStream();          // the file's bytes
//   kiv::CommitSyncOutputStream out = file->OpenCommitOutputStream();
//   ...write everything through `out`...
//   out->Commit();   // only now does the file hold the new bytes
//
// A resource object holds only its name: every operation goes to the file system afresh, so a
// resource may be made before its file exists and outlives changes to it. Resources may be shared
// between threads; the streams they open may not (one thread uses a stream at a time).
//
// Failures of the operating system throw ResourceOSException, whose text names the operation,
// the path, the system's description of the error and its code:
// "kiv::ResourceOSException - cannot open /etc/nope.properties: No such file or directory (2)".
#ifndef KIV_RESOURCE_H_
#define KIV_RESOURCE_H_

#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/streams.h>
#include <kiv/string.h>

#include <cstdint>

namespace kiv {

// An output stream whose bytes replace the old content of its resource only when committed. The
// bytes go to a new file beside the target; Commit forces them onto the disk and renames the new
// file over the target in one step. Until then, and whatever happens to the process or the disk,
// the target keeps its old content whole: a stream released without Commit removes its new file.
//
// Write accepts every byte or throws ResourceOSException (a full disk is reported, not turned into
// a short count); after a failed write, and after Commit, Write takes nothing (returns 0).
struct KIV_EXPORT CommitSyncOutputStreamItf : public SyncOutputStreamItf {
  ~CommitSyncOutputStreamItf() override;

  // Makes everything written the resource's content. ResourceOSException when that cannot be
  // done, or when an earlier Write failed: the target then keeps its old content and the new file
  // is removed. A second Commit does nothing.
  virtual void Commit() = 0;
};

KIV_DECLARE_HANDLE(CommitSyncOutputStream, CommitSyncOutputStreamItf);

// A named resource. The property names are kResourceSize, kResourceModificationTime and
// kResourceMIMEType.
struct KIV_EXPORT ResourceItf : public virtual RefCount {
  ~ResourceItf() override;

  // The path the resource was made from, as given.
  virtual String GetName() const = 0;
  // True when the path names a file (not a directory) that exists now.
  virtual bool Exists() const = 0;
  // "size": the length of the file in bytes. ResourceOSException when it cannot be read.
  virtual std::int64_t GetSize() const = 0;
  // "modification time": the time of the last change to the file's content, as a time value
  // (milliseconds since the start of Julian Day 0, UTC; see <kiv/date.h>). ResourceOSException
  // when it cannot be read.
  virtual std::int64_t GetModificationTime() const = 0;
  // "MIME type": the type that the MIME table gives the extension of the name (MIMEExp::Lookup);
  // "application/octet-stream" when it gives none. Never touches the file.
  virtual String GetMIMEType() const = 0;
  // The property of that name as an object: "size" as an UnsignedInteger64, "modification time"
  // as an Integer64, "MIME type" as a String. NoSuchNamedElementException for any other name.
  virtual Object GetProperty(const String& name) const = 0;

  // The file's bytes from the start. Each Read is one read of the file; the stream is random
  // access (its marker's length is the file's length now). ResourceOSException when the file
  // cannot be opened (missing, a directory, no permission) or a read fails.
  virtual SyncInputStream OpenInputStream() const = 0;
  // Writes the file from the start, creating it or cutting it to length 0 first. Bytes are
  // gathered in a small buffer; Flush hands them to the system, and so does the release of the
  // last reference (where errors can no longer be reported: call Flush to see them). Write and
  // Flush throw ResourceOSException on failure.
  virtual SyncOutputStream OpenOutputStream() const = 0;
  // The safe way to replace the file (see CommitSyncOutputStreamItf).
  virtual CommitSyncOutputStream OpenCommitOutputStream() const = 0;
};

KIV_DECLARE_HANDLE(Resource, ResourceItf);

// The property names.
KIV_EXPORT extern const char kResourceSize[];              // "size"
KIV_EXPORT extern const char kResourceModificationTime[];  // "modification time"
KIV_EXPORT extern const char kResourceMIMEType[];          // "MIME type"

struct KIV_EXPORT SyncResourceExp {
  // The file resource at `path`, absolute or relative to the current directory at each use. The
  // file need not exist yet. NotResourceException for a null or empty path, or one holding a
  // zero character (which no file name can hold).
  [[nodiscard]] static Resource Make(const String& path);
};

// The MIME table: media types by file extension, read from a table in the format of the system's
// "mime.types" (a type, then the extensions that have it, separated by blanks; "#" starts a
// comment).
struct KIV_EXPORT MIMEExp {
  // The type of the extension of `name` (the text after the last "." of its last path component;
  // `name` may also be the extension alone), compared without regard to case; the text
  // "application/octet-stream" when the table has none or there is no table.
  //
  // The table is read on first use from the first of these files that can be opened: under the
  // directory configured at "parameters/resource-path" in the registry (when one is) the files
  // "mimetypes.txt", "TEXT/mimetypes.txt" and "mime.types"; then "mime.types" in the current
  // directory; then "/etc/mime.types". When none can be read, every name gets the default.
  [[nodiscard]] static String Lookup(const String& name);
  // Replaces the table with the contents of `table`, for hosts that ship their own.
  // ResourceOSException when it cannot be read (the old table stays).
  static void Load(const Resource& table);
  // The type given to names the table does not know: "application/octet-stream".
  [[nodiscard]] static String Default();
};

}  // namespace kiv

#endif  // KIV_RESOURCE_H_
