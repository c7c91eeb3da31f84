// The two-level preferences trees and the update event queue.
#ifndef KIV_SRC_CONFIG_PREFERENCES_IMPL_H_
#define KIV_SRC_CONFIG_PREFERENCES_IMPL_H_

#include <atomic>
#include <cstdint>

#include "kiv/containers.h"
#include "kiv/encodings.h"
#include "kiv/hierhashtable.h"
#include "kiv/locks.h"
#include "kiv/preferences.h"
#include "kiv/resource.h"

namespace kiv {

// A tree read as a first level laid over a read-only second level of defaults.
class DualLevelHierHashtableImpl : public ModifiablePreferencesItf {
 public:
  // `second` may be an empty handle: no defaults.
  DualLevelHierHashtableImpl(const HierHashtable& first, const ConstHierHashtable& second);
  ~DualLevelHierHashtableImpl() override;

  std::int32_t Count() const override;
  Ref<EnumerationItf> Elements() const override;
  Object& ElementAt(std::int32_t index) override;
  Object GetElement(std::int32_t index) const override;
  Ref<IteratorItf> IteratorAt(std::int32_t index) override;
  Ref<IteratorItf> IteratorAtFirst() override;
  Ref<IteratorItf> IteratorAtLast() override;
  Object First() const override;
  Object Last() const override;
  bool AddFirst(const Object& element) override;
  bool AddLast(const Object& element) override;
  Object RemoveFirst() override;
  Object RemoveLast() override;
  void RemoveAll() override;
  bool IsCaseInsensitive() const override;
  void Reserved(std::int32_t value) override;
  Ref<EnumerationItf> Keys() const override;
  bool ContainsKey(const String& path) const override;
  HierHashtable Get(const String& path) const override;
  HierHashtable MakePath(const String& path, std::uint32_t mode, std::int32_t extra) override;
  HierHashtable Put(const String& path, const HierHashtable& node) override;
  HierHashtable Remove(const String& path, std::int32_t extra) override;
  bool IsCloneable() const override { return false; }
  Ref<HierHashtableItf> Clone(bool shallow) const override;

  void Publish() override {}
  void Store(Writer&) override {}
  void ClearOverrides() override {}

 protected:
  HierHashtable FirstLevel() const noexcept { return first_; }
  const ConstHierHashtable& SecondLevel() const noexcept { return second_; }

 private:
  // The node to show for `path` given the first level's node there (possibly an empty handle):
  // a two-level node when the defaults have the path too, the default node read-only when only
  // they have it.
  HierHashtable Combine(const HierHashtable& first, const String& path) const;
  // True when the element reads go to the first level.
  bool FirstHasElements() const { return first_->Count() > 0; }

  HierHashtable first_;
  ConstHierHashtable second_;
};

// A published (or publishable) preferences tree: a two-level tree whose first level was loaded
// from a properties resource.
class FlatPreferencesImpl final : public DualLevelHierHashtableImpl {
 public:
  FlatPreferencesImpl(const HierHashtable& first, const ConstHierHashtable& second,
                      const Resource& resource, const TextEncoding& encoding);
  ~FlatPreferencesImpl() override;

  void Publish() override;
  void Store(Writer& writer) override;
  void ClearOverrides() override;

  const Resource& GetResource() const noexcept { return resource_; }
  const TextEncoding& GetTextEncoding() const noexcept { return encoding_; }
  using DualLevelHierHashtableImpl::SecondLevel;

 private:
  Resource resource_;
  TextEncoding encoding_;
};

// The process-wide listener list, and the lock that guards the registry's "preferences" node.
class PrefsUpdateEventQueueImpl final : public PrefsUpdateEventQueueItf {
 public:
  PrefsUpdateEventQueueImpl();
  ~PrefsUpdateEventQueueImpl() override;

  void AddListener(const Object& task) override;
  void RemoveListener(const Object& task) override;
  Container Listeners() override;
  void Notify() override;
  bool GetFlag() const override { return flag_.load(std::memory_order_relaxed); }
  void SetFlag(bool flag) override { flag_.store(flag, std::memory_order_relaxed); }

  ObjectLock& PreferencesLock() noexcept { return preferences_lock_; }

 private:
  ObjectLock listener_lock_;
  ObjectLock preferences_lock_;
  Container listeners_;
  std::atomic<bool> flag_{false};
  // KEPT: never set, so every publication reaches every listener whatever the flag holds;
  // listeners (the log) rely on that.
  const bool suppressed_ = false;
};

// The singleton with its implementation type, for the preferences functions.
Ref<PrefsUpdateEventQueueImpl> GetPrefsUpdateEventQueue();

}  // namespace kiv

#endif  // KIV_SRC_CONFIG_PREFERENCES_IMPL_H_
