// Reading and writing properties text.
#include "kiv/properties.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "kiv/buffer.h"
#include "kiv/containers.h"
#include "kiv/exception.h"

namespace kiv {

namespace {

// The access mode and extra argument that path creation is given for properties nodes.
constexpr std::uint32_t kNodeMode = 0x1FF;
constexpr std::uint32_t kByteOrderMark = 0xFEFF;
// Bounds of the read-ahead buffer, which is sized from the resource's length: a small file is
// read in one go, a large one in blocks.
constexpr unsigned kMinReadAhead = 256;
constexpr unsigned kMaxReadAhead = 64 * 1024;
// Files keep no reader waiting; the reader passes this on as "no limit of the caller's own".
constexpr std::int64_t kNoTimeLimit = -1;

// Merges one trimmed, non-empty line.
void MergeLine(HierHashtable& tree, const String& line) {
  if (line->CharAt(0) == '#') return;
  const std::int32_t colon = line->IndexOf(static_cast<std::uint32_t>(':'));
  if (colon < 0) return;
  String key = line->Substring(0, colon)->Trim();
  String values = line->Substring(colon + 1)->Trim();
  HierHashtable node = tree->MakePath(key, kNodeMode, 0);
  // Splitting empty text gives the one empty piece that an empty value part stands for.
  Container pieces = values->Split(static_cast<std::uint32_t>(','), true,
                                   std::numeric_limits<std::int32_t>::max());
  for (Enumeration e = pieces->Elements(); e->HasMoreElements();) node->AddLast(e->NextElement());
}

// A write the stream did not take in full loses part of the file: that is a failure here, not the
// ordinary "stream is full" result.
void Check(bool accepted) {
  if (accepted) return;
  throw GeneralIOException(
      String(TextEncodingExp::MakeAscii(),
             static_cast<const void*>("the properties stream stopped accepting text")));
}

void WriteElement(Writer& writer, const Object& element) {
  if (!element) return;
  Check(writer->Write(String(element)));
}

void StoreNode(const HierHashtable& node, const String& prefix, Writer& writer) {
  if (!!prefix && node->Count() > 0) {
    Check(writer->Write(prefix));
    Check(writer->Write(": "));
    Enumeration elements = node->Elements();
    WriteElement(writer, elements->NextElement());
    while (elements->HasMoreElements()) {
      Check(writer->Write(", "));
      WriteElement(writer, elements->NextElement());
    }
    Check(writer->NewLine());
  }
  for (Enumeration keys = node->Keys(); keys->HasMoreElements();) {
    String name(keys->NextElement());
    // The separator written is always "/", whatever the tree's own separator is.
    StoreNode(node->Get(name), !!prefix ? prefix + u'/' + name : name, writer);
  }
}

}  // namespace

void PropertiesExp::Add(HierHashtable& tree, Reader& reader) {
  bool first = true;
  String line;
  for (;;) {
    reader->ReadLine(line);
    // The reader's end of input is an empty line: every real line holds at least its line feed.
    if (line->IsEmpty()) return;
    String text = line->Trim();
    if (first) {
      first = false;
      if (!text->IsEmpty() && text->CharAt(0) == kByteOrderMark) text = text->Substring(1)->Trim();
    }
    if (!text->IsEmpty()) MergeLine(tree, text);
  }
}

void PropertiesExp::Load(HierHashtable& tree, Reader& reader) {
  tree->RemoveAll();
  Add(tree, reader);
}

void PropertiesExp::Add(HierHashtable& tree, const Resource& resource,
                        const TextEncoding& encoding) {
  SyncInputStream in = resource->OpenInputStream();
  unsigned read_ahead = kMaxReadAhead;
  try {
    const std::int64_t size = resource->GetSize();
    read_ahead =
        static_cast<unsigned>(std::clamp<std::int64_t>(size + 1, kMinReadAhead, kMaxReadAhead));
  } catch (const ResourceException&) {
    // A resource that cannot tell its size is read in the largest blocks.
  }
  Reader reader = ReaderExp::Make(
      TextInputStreamExp::Make(in, BufferExp::Make(read_ahead), encoding), kNoTimeLimit);
  Add(tree, reader);
}

void PropertiesExp::Load(HierHashtable& tree, const Resource& resource,
                         const TextEncoding& encoding) {
  tree->RemoveAll();
  Add(tree, resource, encoding);
}

void PropertiesExp::Store(const HierHashtable& tree, Writer& writer) {
  StoreNode(tree, String(), writer);
}

}  // namespace kiv
