// The flat hashtable: its bucket cell and the table itself.
#ifndef KIV_SRC_COLLECTIONS_HASHTABLE_IMPL_H_
#define KIV_SRC_COLLECTIONS_HASHTABLE_IMPL_H_

#include <cstdint>
#include <memory>

#include "kiv/containers.h"
#include "kiv/hashtable.h"
#include "kiv/string.h"

namespace kiv {

class ListImpl;

// One entry: a list cell whose element is the value and whose next link chains the bucket. Only
// the next link is used.
class Hashbucket final : public Cons {
 public:
  Hashbucket(const String& key, const String& compare_key, std::uint32_t hash);
  ~Hashbucket() override;

  Hashbucket* Next() const noexcept { return static_cast<Hashbucket*>(next); }
  bool Matches(std::uint32_t h, const unsigned short* u, std::uint32_t n) const noexcept;

  // The hash of `compare_key`. It comes first, next to the chain link, so that a chain walk
  // mostly reads one cache line per entry.
  std::uint32_t hash;
  // The key in the spelling of its first insertion (16-bit text, owned).
  String key;
  // The key that is hashed and compared: `key` itself, or its lower-case copy in a
  // case-insensitive table.
  String compare_key;
  // The 16-bit units of `compare_key`, cached so that chain walks need no virtual calls.
  const unsigned short* units;
  std::uint32_t unit_count;
  // The cell of the keys list that holds `key`, so that removal needs no walk of the list; null
  // when the keys list is not this library's list.
  Cons* key_cell = nullptr;
};

// The 16-bit compare-key units of a caller's key, prepared for one lookup. It points into the
// caller's own text when that is 16-bit text that needs no change, so a lookup in a
// case-sensitive table allocates nothing; text in another encoding is re-encoded once, and a
// case-insensitive table lowers the units into a scratch area (on the stack for keys of up to
// kInline units).
class PreparedKey {
 public:
  static constexpr std::uint32_t kInline = 96;

  // `key` must be a non-empty string.
  PreparedKey(const String& key, bool lower);
  // Units already in 16-bit text.
  PreparedKey(const unsigned short* units, std::uint32_t count, bool lower);
  PreparedKey(const PreparedKey&) = delete;
  PreparedKey& operator=(const PreparedKey&) = delete;

  const unsigned short* Units() const noexcept { return units_; }
  std::uint32_t Count() const noexcept { return count_; }
  std::uint32_t Hash() const noexcept { return hash_; }
  // The key as given, in 16-bit text (the caller's string or its re-encoded copy); null for the
  // units form.
  const String& Wide() const noexcept { return wide_; }

 private:
  void Lower(const unsigned short* units);

  String wide_;
  const unsigned short* units_;
  std::uint32_t count_;
  std::uint32_t hash_;
  std::unique_ptr<unsigned short[]> heap_;
  unsigned short inline_[kInline];
};

// Whether a string holds 16-bit text of the application default encoding.
bool IsWideText(const String& s);

class HashtableImpl final : public HashtableItf {
 public:
  HashtableImpl(std::uint32_t initial_size, bool case_insensitive);
  ~HashtableImpl() override;

  bool IsCaseInsensitive() const override { return case_insensitive_; }
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& key) const override;
  Object Get(const String& key) const override;
  bool Put(const String& key, const Object& value) override;
  Object& Lookup(const String& key) override;
  Object Remove(const String& key) override;
  void RemoveAll() override;
  bool IsCloneable() const override { return true; }
  Ref<HashtableItf> Clone() const override;

  // The entry for 16-bit units given as they are (the case rule is applied here); null when
  // absent. For callers inside the library that walk keys out of larger text (paths).
  Hashbucket* FindUnits(const unsigned short* units, std::uint32_t count) const;
  Hashbucket* Find(const PreparedKey& key) const noexcept;

  std::uint32_t BucketCount() const noexcept { return mask_ + 1; }

 private:
  // Find or insert for a caller's key; `key` must be non-empty.
  Hashbucket* FindOrInsert(const String& key);
  // Links a new entry for the prepared key and grows when due.
  Hashbucket* Insert(const PreparedKey& prepared, const String& caller_key);
  // Links a new entry made of strings already prepared (clone).
  Hashbucket* Insert(const String& key, const String& compare_key, std::uint32_t hash);
  void Link(Hashbucket* bucket) noexcept;
  void Grow() noexcept;
  void ReleaseChains() noexcept;

  Container keys_;
  // The keys list itself, for unlinking a key's cell directly.
  ListImpl* key_list_;
  Hashbucket** buckets_;
  std::uint32_t mask_;
  std::uint32_t shift_;
  std::uint32_t max_mask_;
  std::int32_t count_;
  std::uint32_t grow_threshold_;
  bool case_insensitive_;
};

}  // namespace kiv

#endif  // KIV_SRC_COLLECTIONS_HASHTABLE_IMPL_H_
