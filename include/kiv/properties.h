// Properties files: the text form of configuration trees.
//
// Each line holds a path, a colon and comma-separated values:
//
//   # the application log
//   logs/application/level: warn
//   server/ports: 8080, 8443
//
// and loads into a hierarchical hashtable: the line creates (or reuses) the node at its path and
// appends its values, as Strings, to that node's elements. Line by line:
// - the line is trimmed of white space at both ends (so CR LF and LF line ends both work);
//   empty lines and lines whose first character is "#" are skipped;
// - the line is split at its first ":" into key and value part, each trimmed; a line without ":"
//   is skipped without any message;
// - the key is a path of the tree ("/" separates names; "." and ".." behave as in tree paths);
// - the value part is split at every ",", each piece trimmed; an empty value part is one empty
//   value.
// There are no escapes, quotes or continuation lines: a value cannot hold a comma, a key cannot
// hold a colon. A key given on several lines accumulates the values of all of them in order, and
// nothing is ever replaced: adding the same file twice doubles every value list (Load clears the
// tree first).
//
// A byte order mark (U+FEFF) at the very start of the text is dropped, in every encoding, so files
// saved by editors that write one read as if it were not there.
#ifndef KIV_PROPERTIES_H_
#define KIV_PROPERTIES_H_

#include <kiv/encodings.h>
#include <kiv/export.h>
#include <kiv/hierhashtable.h>
#include <kiv/resource.h>
#include <kiv/textio.h>

namespace kiv {

struct KIV_EXPORT PropertiesExp {
  // Parses lines until the reader reports the end of its input (an empty line) and merges them
  // into `tree`. Failures propagate and leave the entries merged before them in place: a key with
  // a ".." component throws KeyOutOfBoundsException, an empty key or one with a leading "/"
  // InvalidKeyException; the reader's own failures (text that does not decode, time-outs) pass
  // through as they are.
  static void Add(HierHashtable& tree, Reader& reader);
  // RemoveAll on `tree` (its elements and entries), then Add.
  static void Load(HierHashtable& tree, Reader& reader);
  // Opens `resource` for reading and adds its text, decoded with `encoding`. A resource that
  // cannot be opened throws ResourceOSException naming its path and the reason.
  static void Add(HierHashtable& tree, const Resource& resource, const TextEncoding& encoding);
  // RemoveAll on `tree`, then the Add above: a resource that cannot be opened leaves `tree` empty.
  static void Load(HierHashtable& tree, const Resource& resource, const TextEncoding& encoding);
  // Writes `tree` in the same format, depth first in key order: for every node below `tree` with
  // at least one element, one line of its path (names joined with "/", whatever separator the tree
  // uses), ":", a blank and the elements separated by "," and a blank, ended with a line feed.
  // `tree`'s own elements are never written. Elements must be Strings (an empty handle is written
  // as empty text, any other object throws BadCastException); values holding "," or ":" are
  // written as they are and do not read back the same. GeneralIOException when the writer's
  // stream stops accepting text; the writer's own failures pass through.
  static void Store(const HierHashtable& tree, Writer& writer);
};

}  // namespace kiv

#endif  // KIV_PROPERTIES_H_
