// The MIME table: media types by file extension.
#include <string>
#include <utility>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/hashtable.h"
#include "kiv/locks.h"
#include "kiv/resource.h"

namespace kiv {

namespace {

constexpr char kDefaultType[] = "application/octet-stream";

String Ascii(const char* text, std::size_t length) {
  return String(TextEncodingExp::MakeAscii(), const_cast<char*>(text),
                static_cast<unsigned>(length));
}

String Wide(const std::u16string& text) {
  return String(TextEncodingExp::MakeUTF16(), const_cast<char16_t*>(text.data()),
                static_cast<unsigned>(text.size() * sizeof(char16_t)));
}

std::u16string Units(const String& text) {
  String wide = text->Encode(TextEncodingExp::MakeUTF16());
  return std::u16string(static_cast<const char16_t*>(wide->GetData()),
                        wide->ByteLength() / sizeof(char16_t));
}

// The whole content of a resource; its failures propagate.
std::string ReadAll(const Resource& resource) {
  SyncInputStream in = resource->OpenInputStream();
  std::string content;
  char block[16384];
  while (const unsigned n = in->Read(block, sizeof block, -1)) content.append(block, n);
  return content;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

// Parses the "type ext ext ..." lines of a table; "#" starts a comment. A later line for an
// extension replaces an earlier one, as the system's own readers of the format do.
Hashtable Parse(const std::string& text) {
  Hashtable table = HashtableExp::Make(1024, true);
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    std::size_t line_end = text.find('#', pos);
    if (line_end == std::string::npos || line_end > end) line_end = end;
    String type;
    std::size_t p = pos;
    while (p < line_end) {
      while (p < line_end && IsBlank(text[p])) ++p;
      const std::size_t word = p;
      while (p < line_end && !IsBlank(text[p])) ++p;
      if (p == word) break;
      String item = Ascii(text.data() + word, p - word);
      if (!type) {
        type = item;
      } else {
        table->Put(item, type);
      }
    }
    pos = end + 1;
  }
  return table;
}

// The extension of a name: the text after the last "." of its last path component, or the whole
// name when it has no ".".
String ExtensionOf(const String& name) {
  std::u16string units = Units(name);
  const std::size_t slash = units.find_last_of(u"/\\");
  const std::size_t start = slash == std::u16string::npos ? 0 : slash + 1;
  const std::size_t dot = units.rfind(u'.');
  if (dot != std::u16string::npos && dot >= start) return Wide(units.substr(dot + 1));
  return Wide(units.substr(start));
}

}  // namespace

// The process-wide table, read on first use.
class MIMETable final : public virtual RefCount {
 public:
  MIMETable() : lock_(ObjectLockExp::Make()) {}
  ~MIMETable() override = default;

  String Lookup(const String& name) {
    Hashtable table = Current();
    String extension = ExtensionOf(name);
    if (table && table->ContainsKey(extension)) return String(table->Get(extension));
    return Ascii(kDefaultType, sizeof kDefaultType - 1);
  }

  void Replace(Hashtable table) {
    ObjectLockGuard hold(lock_);
    table_ = std::move(table);
    loaded_ = true;
  }

 private:
  Hashtable Current() {
    ObjectLockGuard hold(lock_);
    if (!loaded_) {
      table_ = LoadDefault();
      loaded_ = true;
    }
    return table_;
  }

  static Hashtable LoadDefault() {
    std::u16string base = Units(NamedString(Wide(u"parameters/resource-path")));
    std::u16string candidates[5];
    std::size_t count = 0;
    if (!base.empty()) {
      if (base.back() != u'/') base += u'/';
      candidates[count++] = base + u"mimetypes.txt";
      candidates[count++] = base + u"TEXT/mimetypes.txt";
      candidates[count++] = base + u"mime.types";
    }
    candidates[count++] = u"mime.types";
    candidates[count++] = u"/etc/mime.types";
    for (std::size_t i = 0; i < count; ++i) {
      try {
        return Parse(ReadAll(SyncResourceExp::Make(Wide(candidates[i]))));
      } catch (const ResourceException&) {
        // Not there or not readable: the next candidate.
      }
    }
    return Hashtable();
  }

  ObjectLock lock_;
  Hashtable table_;
  bool loaded_ = false;
};

class MIMETableHolder : public StaticRef<MIMETable, MIMETableHolder> {
 public:
  static MIMETable* Make() { return new MIMETable(); }
};

namespace {

Ref<MIMETable> TheTable() {
  static MIMETableHolder holder;
  return holder.Get();
}

}  // namespace

String MIMEExp::Lookup(const String& name) { return TheTable()->Lookup(name); }

void MIMEExp::Load(const Resource& table) { TheTable()->Replace(Parse(ReadAll(table))); }

String MIMEExp::Default() { return Ascii(kDefaultType, sizeof kDefaultType - 1); }

}  // namespace kiv
