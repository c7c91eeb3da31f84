// Path operations of hierarchical hashtables against a plain tree: MakePath, Put, Get, Remove and
// ContainsKey over paths of a few names with ".", "..", empty names (leading, doubled and
// trailing separators). Each operation must succeed or fail as the path rule says, with the
// exception it names, return the node the model returns, and leave the same tree (names in
// first-insertion order). Nodes are told apart by a tag element added the first time a node is
// handed out.
//
// MakePath and Put make nodes as they walk, so a path that fails further on keeps the nodes made
// before the failing name; the model does the same.
//
// Input: operations, each an operation byte (the operation, the number of names) and one byte per
// name.
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/hierhashtable.h>
#include <kiv/string.h>

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
  std::vector<std::pair<std::string, std::shared_ptr<Node>>> children;

  std::shared_ptr<Node> Find(const std::string& name) const {
    for (const auto& [key, child] : children) {
      if (key == name) return child;
    }
    return nullptr;
  }
};

struct Answer {
  Answer(Outcome o = kOk, std::shared_ptr<Node> n = nullptr, bool c = false)
      : outcome(o), node(std::move(n)), contains(c) {}
  Outcome outcome;
  std::shared_ptr<Node> node;  // the node returned (may be empty)
  bool contains;
};

int next_tag = 0;

// The path rule, applied to the model.
Answer Run(const std::shared_ptr<Node>& root, Op op, const std::vector<std::string>& names,
           const std::shared_ptr<Node>& attached) {
  const bool creates = op == kMakePath || op == kPut;
  std::shared_ptr<Node> at = root;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) {
    const std::string& name = names[i];
    const bool rest_empty = i + 2 == names.size() && names.back().empty();
    if (name.empty()) return {op == kContainsKey ? kOk : kInvalidKey};
    if (name == "..") return {kOutOfBounds};
    if (name == ".") {
      if (!rest_empty) continue;
      if (op == kPut || op == kRemove) return {kIdentity};
      return {kOk, at, op == kContainsKey};
    }
    std::shared_ptr<Node> child = at->Find(name);
    if (!child) {
      if (!creates) return {op == kContainsKey ? kOk : kNoSuchName};
      child = std::make_shared<Node>();
      at->children.emplace_back(name, child);
    }
    if (rest_empty) return {op == kContainsKey ? kOk : kInvalidKey};
    at = child;
  }
  const std::string& last = names.back();
  if (last == "..") return {kOutOfBounds};
  if (last == ".") {
    if (op == kPut || op == kRemove) return {kIdentity};
    return {kOk, at, op == kContainsKey};
  }
  std::shared_ptr<Node> child = at->Find(last);
  switch (op) {
    case kMakePath:
      if (!child) {
        child = std::make_shared<Node>();
        at->children.emplace_back(last, child);
      }
      return {kOk, child};
    case kGet:
      return child ? Answer{kOk, child} : Answer{kNoSuchName};
    case kContainsKey:
      return {kOk, nullptr, child != nullptr};
    case kPut:
      if (child) {
        for (auto& entry : at->children) {
          if (entry.first == last) entry.second = attached;
        }
      } else {
        at->children.emplace_back(last, attached);
      }
      return {kOk, child};
    case kRemove:
      std::erase_if(at->children, [&](const auto& entry) { return entry.first == last; });
      return {kOk, child};
  }
  return {};
}

std::string Ascii(const kiv::String& s) {
  const kiv::String a = s->Encode(kiv::TextEncodingExp::MakeAscii());
  return std::string(static_cast<const char*>(a->GetData()), a->ByteLength());
}

std::string TagOf(const kiv::HierHashtable& node) {
  return node->Count() == 0 ? std::string() : Ascii(kiv::String(node->GetElement(0)));
}

// The library node must be the model node: same tag, or both never handed out (then both get
// the next tag).
bool Same(kiv::HierHashtable& lib, Node& model) {
  if (model.tag == 0) {
    if (lib->Count() != 0) return false;
    model.tag = ++next_tag;
    const std::string tag = std::to_string(model.tag);
    lib->AddLast(kiv::String(kiv::TextEncodingExp::MakeAscii(), const_cast<char*>(tag.c_str()),
                             static_cast<unsigned>(tag.size())));
    return true;
  }
  return TagOf(lib) == std::to_string(model.tag);
}

bool SameTree(const kiv::HierHashtable& lib, const Node& model) {
  if ((model.tag == 0 ? std::string() : std::to_string(model.tag)) != TagOf(lib)) return false;
  std::size_t i = 0;
  for (auto keys = lib->Keys(); keys->HasMoreElements(); ++i) {
    const kiv::String name(keys->NextElement());
    if (i >= model.children.size()) return false;
    if (Ascii(name) != model.children[i].first) return false;
    if (!SameTree(lib->Get(name), *model.children[i].second)) return false;
  }
  return i == model.children.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const kiv::TextEncoding ascii = kiv::TextEncodingExp::MakeAscii();
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
    const kiv::String key(ascii, const_cast<char*>(path.c_str()),
                          static_cast<unsigned>(path.size()));
    try {
      switch (op) {
        case kMakePath:
          node = tree->MakePath(key, 0x1FF, 0);
          break;
        case kPut:
          node = tree->Put(key, attached_lib);
          break;
        case kGet:
          node = tree->Get(key);
          break;
        case kRemove:
          node = tree->Remove(key, 0);
          break;
        case kContainsKey:
          got.contains = tree->ContainsKey(key);
          break;
      }
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
    if (want.outcome == kOk && op != kContainsKey) {
      KIV_FUZZ_CHECK(!node == !want.node && (!want.node || Same(node, *want.node)),
                     "%s(\"%s\") step %d returned another node", kOps[op], path.c_str(), step);
    }
    KIV_FUZZ_CHECK(SameTree(tree, *model), "after %s(\"%s\") step %d the trees differ", kOps[op],
                   path.c_str(), step);
  }
  return 0;
}
