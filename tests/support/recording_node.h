// A tree node of a class of its own, standing in for the nodes of other trees (directories,
// adapters) that a general tree hands paths to.
#ifndef KIV_TESTS_SUPPORT_RECORDING_NODE_H_
#define KIV_TESTS_SUPPORT_RECORDING_NODE_H_

#include <kiv/containers.h>
#include <kiv/exception.h>
#include <kiv/hierhashtable.h>

#include <string>
#include <utility>
#include <vector>

#include "support/test_support.h"

namespace kiv::testing {

// Applies no path rules at all: every path operation records its name and the path it was given
// (with the pass-along arguments) in `calls`, then answers with the node itself (ContainsKey:
// true; Put: an empty handle).
class RecordingNode : public HierHashtableBase {
 public:
  RecordingNode() : HierHashtableBase(ContainerExp::MakeList()) {}

  bool IsCaseInsensitive() const override { return false; }
  void Reserved(std::int32_t) override {}
  Ref<EnumerationItf> Keys() const override { return ContainerExp::MakeList()->Elements(); }
  bool ContainsKey(const String& path) const override {
    Note("ContainsKey " + Utf8(path));
    return true;
  }
  HierHashtable Get(const String& path) const override {
    Note("Get " + Utf8(path));
    return HierHashtable(this);
  }
  HierHashtable MakePath(const String& path, std::uint32_t mode, std::int32_t extra) override {
    Note("MakePath " + Utf8(path) + " " + std::to_string(mode) + " " + std::to_string(extra));
    return HierHashtable(this);
  }
  HierHashtable Put(const String& path, const HierHashtable&) override {
    Note("Put " + Utf8(path));
    return HierHashtable();
  }
  HierHashtable Remove(const String& path, std::int32_t extra) override {
    Note("Remove " + Utf8(path) + " " + std::to_string(extra));
    return HierHashtable(this);
  }
  bool IsCloneable() const override { return false; }
  Ref<HierHashtableItf> Clone(bool) const override { throw HTNotCloneableException(); }

  mutable std::vector<std::string> calls;

 private:
  void Note(std::string call) const { calls.push_back(std::move(call)); }
};

}  // namespace kiv::testing

#endif  // KIV_TESTS_SUPPORT_RECORDING_NODE_H_
