// The flat hashtable.
#include <cstring>
#include <cwctype>
#include <new>
#include <typeinfo>

#include "collections/hashtable_hash.h"
#include "collections/hashtable_impl.h"
#include "collections/list_impl.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "platform/wide_ctype.h"
#include "text/string_impl.h"

namespace kiv {

ConstHashtableItf::~ConstHashtableItf() = default;
HashtableItf::~HashtableItf() = default;

namespace {

// The application default encoding, for identity tests on the lookup path. The encoding is a
// process-wide singleton, so its address is stable; only the address is compared here.
const TextEncodingItf* WideEncoding() {
  static const TextEncodingItf* const encoding = TextEncodingExp::MakeAppDefault().Get();
  return encoding;
}

void CheckKey(const String& key) {
  if (!key || key->ByteLength() == 0) throw InvalidKeyException();
}

bool IsUsableKey(const String& key) { return !!key && key->ByteLength() != 0; }

}  // namespace

// GetEncoding() hands out a counted handle whose two interlocked operations would cost more than
// the rest of a short lookup; every key and path passes through here, so strings of the library's
// own class are read directly and any other string is asked.
bool IsWideText(const String& s) {
  const StringItf& text = *s.operator->();
  const TextEncodingItf* encoding = text::FastEncodingOf(text);
  if (encoding != nullptr) return encoding == WideEncoding();
  return text.GetEncoding().Get() == WideEncoding();
}

// ---- Hashbucket ----

Hashbucket::Hashbucket(const String& key_text, const String& compare_text, std::uint32_t h)
    : hash(h),
      key(key_text),
      compare_key(compare_text),
      units(static_cast<const unsigned short*>(compare_text->GetData())),
      unit_count(compare_text->ByteLength() / 2) {}

Hashbucket::~Hashbucket() = default;

bool Hashbucket::Matches(std::uint32_t h, const unsigned short* u, std::uint32_t n) const noexcept {
  return hash == h && unit_count == n &&
         (n == 0 || std::memcmp(units, u, n * sizeof(unsigned short)) == 0);
}

// ---- PreparedKey ----

PreparedKey::PreparedKey(const String& key, bool lower) {
  const StringItf* s = key.operator->();
  if (IsWideText(key)) {
    units_ = static_cast<const unsigned short*>(s->GetData());
    count_ = s->ByteLength() / 2;
  } else {
    wide_ = String(TextEncodingExp::MakeAppDefault(), *s);
    units_ = static_cast<const unsigned short*>(wide_->GetData());
    count_ = wide_->ByteLength() / 2;
  }
  if (lower) Lower(units_);
  hash_ = hashing::HashUnits(units_, count_);
}

PreparedKey::PreparedKey(const unsigned short* units, std::uint32_t count, bool lower)
    : units_(units), count_(count) {
  if (lower) Lower(units_);
  hash_ = hashing::HashUnits(units_, count_);
}

// Each unit through towlower, cut to 16 bits: the mapping of the 16-bit lower-case converter, so
// that keys lowered here and strings lowered by their encoding agree.
void PreparedKey::Lower(const unsigned short* units) {
  unsigned short* out = inline_;
  if (count_ > kInline) {
    heap_.reset(new unsigned short[count_]);
    out = heap_.get();
  }
  for (std::uint32_t i = 0; i < count_; ++i) {
    out[i] = static_cast<unsigned short>(platform::ToLowerWide(units[i]));
  }
  units_ = out;
}

// ---- HashtableImpl ----

HashtableImpl::HashtableImpl(std::uint32_t initial_size, bool case_insensitive)
    : keys_(ContainerExp::MakeList()),
      key_list_(dynamic_cast<ListImpl*>(keys_.Get())),
      buckets_(nullptr),
      mask_(hashing::InitialBuckets(initial_size) - 1),
      shift_(hashing::Log2(mask_ + 1)),
      max_mask_(hashing::kMaxMask),
      count_(0),
      grow_threshold_(hashing::GrowThreshold(mask_ + 1)),
      case_insensitive_(case_insensitive) {
  buckets_ = new Hashbucket*[mask_ + 1]();
}

HashtableImpl::~HashtableImpl() {
  ReleaseChains();
  delete[] buckets_;
}

Ref<EnumerationItf> HashtableImpl::Keys() const { return keys_->Elements(); }

Hashbucket* HashtableImpl::Find(const PreparedKey& key) const noexcept {
  std::uint32_t h = key.Hash();
  for (Hashbucket* b = buckets_[hashing::BucketIndex(h, shift_, mask_)]; b != nullptr;
       b = b->Next()) {
    if (b->Matches(h, key.Units(), key.Count())) return b;
  }
  return nullptr;
}

Hashbucket* HashtableImpl::FindUnits(const unsigned short* units, std::uint32_t count) const {
  PreparedKey key(units, count, case_insensitive_);
  return Find(key);
}

bool HashtableImpl::ContainsKey(const String& key) const {
  if (!IsUsableKey(key)) return false;
  PreparedKey prepared(key, case_insensitive_);
  return Find(prepared) != nullptr;
}

Object HashtableImpl::Get(const String& key) const {
  CheckKey(key);
  PreparedKey prepared(key, case_insensitive_);
  Hashbucket* b = Find(prepared);
  if (b == nullptr) throw NoSuchNamedElementException(key);
  return b->element;
}

bool HashtableImpl::Put(const String& key, const Object& value) {
  FindOrInsert(key)->element = value;
  return true;
}

Object& HashtableImpl::Lookup(const String& key) { return FindOrInsert(key)->element; }

Hashbucket* HashtableImpl::FindOrInsert(const String& key) {
  CheckKey(key);
  PreparedKey prepared(key, case_insensitive_);
  Hashbucket* b = Find(prepared);
  return b != nullptr ? b : Insert(prepared, key);
}

Hashbucket* HashtableImpl::Insert(const PreparedKey& prepared, const String& caller_key) {
  // The stored key is a copy in owned 16-bit text: the caller's string may wrap constant text
  // that does not live as long as the table.
  TextEncoding wide = TextEncodingExp::MakeAppDefault();
  unsigned bytes = prepared.Count() * 2;
  String key = prepared.Wide();
  if (!key) {
    key = String(wide, const_cast<void*>(caller_key->GetData()), bytes, prepared.Count());
  }
  String compare_key = key;
  if (case_insensitive_ && std::memcmp(key->GetData(), prepared.Units(), bytes) != 0) {
    compare_key =
        String(wide, const_cast<unsigned short*>(prepared.Units()), bytes, prepared.Count());
  }
  return Insert(key, compare_key, prepared.Hash());
}

Hashbucket* HashtableImpl::Insert(const String& key, const String& compare_key,
                                  std::uint32_t hash) {
  Ref<Hashbucket> bucket(new Hashbucket(key, compare_key, hash));
  keys_->AddLast(key);
  // The table owns one reference to each linked bucket.
  Hashbucket* b = bucket.Get();
  if (key_list_ != nullptr) b->key_cell = key_list_->LastCell();
  RefCount::AddRef(b);
  Link(b);
  ++count_;
  if (static_cast<std::uint32_t>(count_) >= grow_threshold_ && mask_ < max_mask_) Grow();
  return b;
}

void HashtableImpl::Link(Hashbucket* bucket) noexcept {
  Hashbucket*& head = buckets_[hashing::BucketIndex(bucket->hash, shift_, mask_)];
  bucket->next = head;
  head = bucket;
}

void HashtableImpl::Grow() noexcept {
  std::uint32_t old_count = mask_ + 1;
  // A table that cannot get a bigger array keeps working with the one it has.
  Hashbucket** fresh = new (std::nothrow) Hashbucket*[old_count * 2]();
  if (fresh == nullptr) return;
  Hashbucket** old = buckets_;
  buckets_ = fresh;
  shift_ += 1;
  mask_ = 2 * old_count - 1;
  count_ = 0;
  grow_threshold_ = hashing::GrowThreshold(mask_ + 1);
  for (std::uint32_t i = 0; i < old_count; ++i) {
    Hashbucket* b = old[i];
    while (b != nullptr) {
      Hashbucket* next = b->Next();
      Link(b);
      ++count_;
      b = next;
    }
  }
  delete[] old;
}

Object HashtableImpl::Remove(const String& key) {
  CheckKey(key);
  PreparedKey prepared(key, case_insensitive_);
  std::uint32_t h = prepared.Hash();
  Hashbucket*& head = buckets_[hashing::BucketIndex(h, shift_, mask_)];
  Hashbucket* previous = nullptr;
  Hashbucket* b = head;
  while (b != nullptr && !b->Matches(h, prepared.Units(), prepared.Count())) {
    previous = b;
    b = b->Next();
  }
  if (b == nullptr) return Object();
  if (previous == nullptr) {
    head = b->Next();
  } else {
    previous->next = b->next;
  }
  b->next = nullptr;
  --count_;
  if (b->key_cell != nullptr) {
    // The key's own cell: the same entry that a walk from the front would find, since every key
    // is in the list exactly once.
    key_list_->Unlink(b->key_cell);
  } else {
    // The keys list holds the very string stored in the bucket, so identity finds it; equality
    // is the fallback should the list ever hold an equal copy instead.
    const RefCount* stored = static_cast<const RefCount*>(b->key.GetRef().Get());
    bool removed = false;
    for (int pass = 0; pass < 2 && !removed; ++pass) {
      for (Ref<IteratorItf> it = keys_->IteratorAtFirst(); it->IsValid(); it->Forward(1)) {
        const RefCount* k = it->CurrentRef().Get();
        if (pass == 0 ? k == stored : RefCount::Equals(k, stored)) {
          it->Remove(true);
          removed = true;
          break;
        }
      }
    }
  }
  Object element = static_cast<Object&&>(b->element);
  RefCount::Release(b);
  return element;
}

void HashtableImpl::ReleaseChains() noexcept {
  for (std::uint32_t i = mask_ + 1; i-- > 0;) {
    Hashbucket* b = buckets_[i];
    buckets_[i] = nullptr;
    while (b != nullptr) {
      Hashbucket* next = b->Next();
      RefCount::Release(b);
      b = next;
    }
  }
}

// KEPT: the count is left as it stands: only removals and regrowth change it, so a table
// emptied this way regrows a little earlier than a fresh one.
void HashtableImpl::RemoveAll() {
  ReleaseChains();
  keys_->RemoveAll();
}

Ref<HashtableItf> HashtableImpl::Clone() const {
  Ref<HashtableImpl> copy(new HashtableImpl(BucketCount(), case_insensitive_));
  for (Ref<EnumerationItf> e = keys_->Elements(); e->HasMoreElements();) {
    String key(e->NextElement());
    Hashbucket* b =
        FindUnits(static_cast<const unsigned short*>(key->GetData()), key->ByteLength() / 2);
    if (b == nullptr) continue;
    copy->Insert(b->key, b->compare_key, b->hash)->element = b->element;
  }
  return Ref<HashtableItf>(copy.Get());
}

// ---- factory ----

Hashtable HashtableExp::Make() { return Make(1, false); }

Hashtable HashtableExp::Make(std::uint32_t initial_size, bool case_insensitive) {
  return Hashtable(new HashtableImpl(initial_size, case_insensitive));
}

}  // namespace kiv
