// Diagnostic dumps of flat and hierarchical tables.
#include <string>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/hashtable.h"
#include "kiv/hierhashtable.h"
#include "kiv/textio.h"

namespace kiv {

namespace {

void WriteIndent(Writer& writer, std::uint32_t indent) {
  if (indent == 0) return;
  std::string spaces(indent, ' ');
  writer->Write(spaces.c_str());
}

// The longest string value a dump shows whole: the first element of a tree node, and each value
// of a flat table. A longer one shows its first characters and "...", `width` characters in all.
constexpr std::uint32_t kTreeValueWidth = 32;
constexpr std::uint32_t kTableValueWidth = 20;
constexpr std::int32_t kEllipsisLength = 3;
// The room for the class name of a value that is not a string (at most 511 characters show).
constexpr unsigned kClassNameRoom = 512;

// A value as the dumps show it: a string quoted (cut to `width` characters with "..." when
// longer), else the class name of the object.
void WriteValue(Writer& writer, const Object& value, std::uint32_t width) {
  const StringItf* text = dynamic_cast<const StringItf*>(value.Get());
  if (text == nullptr) {
    char name[kClassNameRoom];
    value->GetClassName(name, sizeof name);
    writer->Write(static_cast<const char*>(name));
    return;
  }
  String s(text);
  if (s->Length() > width) {
    s = s->Substring(0, static_cast<std::int32_t>(width) - kEllipsisLength) +
        String(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(u"..."));
  }
  writer->Write(s->Quote());
}

// The tree dump over either kind of node handle. Children are fetched by name with Get; the names
// "." and ".." and an entry that leads back to the node itself are shown as markers instead of
// being descended into, and a child that cannot be fetched as a node (an empty entry, a value that
// is not a node) is shown as its name with an unknown count.
template <class Node>
void DumpTree(Writer& writer, const Node& node, const String& name, std::uint32_t indent) {
  std::int32_t count = node->Count();
  WriteIndent(writer, indent);
  writer->Write(name);
  writer->Write(" [ ");
  writer->Write(count);
  writer->Write(" ]");
  if (count > 0) {
    Object first = node->GetElement(0);
    writer->Write(": ");
    if (!first) {
      writer->Write("NULL");
    } else {
      WriteValue(writer, first, kTreeValueWidth);
    }
    if (count > 1) writer->Write(", ...");
  }
  writer->Write("\n");
  for (Ref<EnumerationItf> keys = node->Keys(); keys->HasMoreElements();) {
    String key(keys->NextElement());
    std::uint32_t length = key->Length();
    bool self = length == 1 && key->CharAt(0) == '.';
    bool parent = length == 2 && key->CharAt(0) == '.' && key->CharAt(1) == '.';
    Node child;
    if (!self && !parent) {
      try {
        child = node->Get(key);
      } catch (const Exception&) {
        child = Node();
      }
      self = child.Get() == node.Get();
    }
    if (self) {
      WriteIndent(writer, indent + 1);
      writer->Write(". [ ");
      writer->Write(count);
      writer->Write(" ]\n");
    } else if (parent || !child) {
      WriteIndent(writer, indent + 1);
      if (parent) {
        writer->Write("..");
      } else {
        writer->Write(key);
      }
      writer->Write(" [ ? ]\n");
    } else {
      DumpTree(writer, child, key, indent + 1);
    }
  }
}

String RootName() {
  return String(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(u"/"));
}

}  // namespace

void ConstHashtableExp::Dump(Writer& writer, const ConstHashtable& table, std::uint32_t indent) {
  for (Ref<EnumerationItf> keys = table->Keys(); keys->HasMoreElements();) {
    String key(keys->NextElement());
    WriteIndent(writer, indent);
    writer->Write(key);
    writer->Write(": ");
    Object value = table->Get(key);
    if (!value) {
      writer->Write("NULL");
    } else {
      WriteValue(writer, value, kTableValueWidth);
    }
    writer->Write("\n");
  }
}

void ConstHashtableExp::Dump(Writer& writer, const ConstHashtable& table, const String& title,
                             std::uint32_t indent) {
  WriteIndent(writer, indent);
  writer->Write(title);
  writer->Write("\n");
  Dump(writer, table, indent + 1);
}

void ConstHierHashtableExp::Dump(Writer& writer, const ConstHierHashtable& tree, const String& name,
                                 std::uint32_t indent) {
  DumpTree(writer, tree, name, indent);
}

void ConstHierHashtableExp::Dump(Writer& writer, const ConstHierHashtable& tree,
                                 std::uint32_t indent) {
  DumpTree(writer, tree, RootName(), indent);
}

// This library has no file-system tree to stop at: every node is descended into.
void HierHashtableExp::Dump(Writer& writer, const HierHashtable& tree, const String& name,
                            std::uint32_t indent) {
  DumpTree(writer, tree, name, indent);
}

void HierHashtableExp::Dump(Writer& writer, const HierHashtable& tree) {
  DumpTree(writer, tree, RootName(), 0);
}

}  // namespace kiv
