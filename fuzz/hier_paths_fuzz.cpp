// MakePath, Put, Get, Remove and ContainsKey of hierarchical hashtables against a plain tree, over
// paths of a few names with ".", ".." and empty names. Each operation must succeed or fail with
// the model's exception, return the model's node (told apart by a tag element added when a node
// is first handed out) and leave the same tree, names in first-insertion order. Creating walks
// keep the nodes made before a failing name, as the model does.
// Input: operations, each a byte (the operation, the number of names) and one byte per name.
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/hierhashtable.h>
#include <kiv/string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_support.h"

namespace {

enum Op { kMakePath, kPut, kGet, kRemove, kContainsKey };
constexpr const char* kOps[] = {"MakePath", "Put", "Get", "Remove", "ContainsKey"};
enum Outcome { kOk, kInvalidKey, kOutOfBounds, kIdentity, kNoSuchName };
constexpr const char* kNames[] = {"a", "b", "c", ".", "..", ""};

struct Node {
  int tag = 0;  // 0 until the node is first handed out
  using Entry = std::pair<std::string, std::shared_ptr<Node>>;
  std::vector<Entry> children;

  // The child called `name`; when missing, a new one if `make` holds, else none.
  std::shared_ptr<Node> Child(const std::string& name, bool make) {
    for (const auto& [key, child] : children)
      if (key == name) return child;
    return make ? children.emplace_back(name, std::make_shared<Node>()).second : nullptr;
  }
};

struct Answer {
  Outcome outcome = kOk;
  std::shared_ptr<Node> node = nullptr;  // the node returned (may be empty)
  bool contains = false;
};

int next_tag = 0;

// The path rule, applied to the model.
Answer Run(const std::shared_ptr<Node>& root, Op op, const std::vector<std::string>& names,
           const std::shared_ptr<Node>& attached) {
  const bool creates = op == kMakePath || op == kPut;
  std::shared_ptr<Node> at = root;
  // A path that ends at "." names the node reached, which cannot be replaced or removed.
  auto dot = [&]() -> Answer {
    if (op == kPut || op == kRemove) return {kIdentity};
    return {kOk, at, op == kContainsKey};
  };
  for (std::size_t i = 0; i + 1 < names.size(); ++i) {
    const std::string& name = names[i];
    const bool rest_empty = i + 2 == names.size() && names.back().empty();
    if (name.empty()) return {op == kContainsKey ? kOk : kInvalidKey};
    if (name == "..") return {kOutOfBounds};
    if (name == "." && !rest_empty) continue;
    if (name == ".") return dot();
    std::shared_ptr<Node> child = at->Child(name, creates);
    if (!child) return {op == kContainsKey ? kOk : kNoSuchName};
    if (rest_empty) return {op == kContainsKey ? kOk : kInvalidKey};
    at = child;
  }
  const std::string& last = names.back();
  if (last == "..") return {kOutOfBounds};
  if (last == ".") return dot();
  std::shared_ptr<Node> child = at->Child(last, op == kMakePath);
  if (op == kContainsKey) return {kOk, nullptr, child != nullptr};
  if (op == kGet && !child) return {kNoSuchName};
  if (op == kPut && !child) at->children.emplace_back(last, nullptr);
  if (op == kPut) std::ranges::find(at->children, last, &Node::Entry::first)->second = attached;
  if (op == kRemove) std::erase_if(at->children, [&](const auto& e) { return e.first == last; });
  return {kOk, child};  // what Put replaced and Remove detached
}

std::string Ascii(const kiv::String& s) {
  const kiv::String a = s->Encode(kiv::TextEncodingExp::MakeAscii());
  return std::string(static_cast<const char*>(a->GetData()), a->ByteLength());
}

std::string TagOf(const kiv::HierHashtable& node) {
  return node->Count() == 0 ? std::string() : Ascii(kiv::String(node->GetElement(0)));
}

// The library node is the model node: same tag, or both untagged (then both get the next tag).
bool Same(kiv::HierHashtable& lib, Node& model) {
  if (model.tag != 0) return TagOf(lib) == std::to_string(model.tag);
  if (lib->Count() != 0) return false;
  model.tag = ++next_tag;
  lib->AddLast(kiv::String(std::string_view(std::to_string(model.tag))));
  return true;
}

bool SameTree(const kiv::HierHashtable& lib, const Node& model) {
  if ((model.tag == 0 ? std::string() : std::to_string(model.tag)) != TagOf(lib)) return false;
  std::size_t i = 0;
  for (auto keys = lib->Keys(); keys->HasMoreElements(); ++i) {
    const kiv::String name(keys->NextElement());
    if (i >= model.children.size() || Ascii(name) != model.children[i].first ||
        !SameTree(lib->Get(name), *model.children[i].second))
      return false;
  }
  return i == model.children.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  kiv::HierHashtable tree = kiv::HierHashtableExp::Make();
  const auto model = std::make_shared<Node>();
  next_tag = 0;
  for (int step = 0; step < 64 && !input.Empty(); ++step) {
    const std::uint8_t code = input.Byte();
    const auto op = static_cast<Op>(code % 5);
    std::vector<std::string> names(1 + (code / 5) % 4);
    std::string path;
    for (std::size_t i = 0; i < names.size(); ++i) {
      names[i] = kNames[input.Byte() % std::size(kNames)];
      path += (i == 0 ? "" : "/") + names[i];
    }
    // A ".." or a trailing separator in ContainsKey: the rule leaves the answer open.
    if (op == kContainsKey && (path.find("..") != std::string::npos || names.back().empty()))
      continue;

    auto attached = std::make_shared<Node>();
    kiv::HierHashtable attached_lib = kiv::HierHashtableExp::Make();
    const Answer want = path.empty() ? Answer{op == kContainsKey ? kOk : kInvalidKey}
                                     : Run(model, op, names, attached);
    if (op == kPut && want.outcome == kOk) Same(attached_lib, *attached);

    Answer got;
    kiv::HierHashtable node;
    const kiv::String key(kiv::TextEncodingExp::MakeAscii(), const_cast<char*>(path.c_str()),
                          static_cast<unsigned>(path.size()));
    try {
      if (op == kContainsKey) got.contains = tree->ContainsKey(key);
      node = op == kMakePath ? tree->MakePath(key, 0x1FF, 0)
             : op == kPut    ? tree->Put(key, attached_lib)
             : op == kGet    ? tree->Get(key)
             : op == kRemove ? tree->Remove(key, 0)
                             : node;
    } catch (const kiv::InvalidKeyException&) {
      got.outcome = kInvalidKey;
    } catch (const kiv::KeyOutOfBoundsException&) {
      got.outcome = kOutOfBounds;
    } catch (const kiv::KeyIsIdentityException&) {
      got.outcome = kIdentity;
    } catch (const kiv::NoSuchNamedElementException&) {
      got.outcome = kNoSuchName;
    }
    KIV_FUZZ_CHECK(got.outcome == want.outcome && got.contains == want.contains,
                   "%s(\"%s\") step %d: outcome %d (contains %d), expected %d (%d)", kOps[op],
                   path.c_str(), step, got.outcome, got.contains, want.outcome, want.contains);
    KIV_FUZZ_CHECK(want.outcome != kOk || op == kContainsKey ||
                       (!node == !want.node && (!want.node || Same(node, *want.node))),
                   "%s(\"%s\") step %d returned another node", kOps[op], path.c_str(), step);
    KIV_FUZZ_CHECK(SameTree(tree, *model), "after %s(\"%s\") step %d the trees differ", kOps[op],
                   path.c_str(), step);
  }
  return 0;
}
