// Publishing preferences, and the update event queue that announces each publication.
#include <exception>

#include "config/preferences_impl.h"
#include "kiv/exception.h"
#include "kiv/numbers.h"
#include "kiv/properties.h"
#include "kiv/registry.h"
#include "kiv/tasks.h"

namespace kiv {

PrefsUpdateEventQueueItf::~PrefsUpdateEventQueueItf() = default;

namespace {

String Wide(const char16_t* text) {
  return String(TextEncodingExp::MakeAppDefault(), static_cast<const void*>(text));
}

String PreferencesPath() { return Wide(u"preferences"); }

// The default configuration name: the first element of the published node, or an empty handle.
// The caller holds the preferences lock.
Object CurrentConfigurationName(const HierHashtable& registry) {
  const String path = PreferencesPath();
  if (!registry->ContainsKey(path)) return Object();
  HierHashtable published = registry->Get(path);
  return published->Count() > 0 ? published->First() : Object();
}

}  // namespace

// ---- the update event queue ----

PrefsUpdateEventQueueImpl::PrefsUpdateEventQueueImpl()
    : listener_lock_(ObjectLockExp::Make()),
      preferences_lock_(ObjectLockExp::Make()),
      listeners_(ContainerExp::MakeList()) {}

PrefsUpdateEventQueueImpl::~PrefsUpdateEventQueueImpl() = default;

void PrefsUpdateEventQueueImpl::AddListener(const Object& task) {
  ObjectLockGuard hold(listener_lock_);
  listeners_->AddLast(task);
}

void PrefsUpdateEventQueueImpl::RemoveListener(const Object& task) {
  ObjectLockGuard hold(listener_lock_);
  for (Ref<IteratorItf> at = listeners_->IteratorAtFirst(); at->IsValid(); at->Forward(1)) {
    if (at->Current().Get() == task.Get()) {
      at->Remove(true);
      return;
    }
  }
}

Container PrefsUpdateEventQueueImpl::Listeners() {
  ObjectLockGuard hold(listener_lock_);
  Container copy = ContainerExp::MakeList();
  for (Enumeration e = listeners_->Elements(); e->HasMoreElements();) {
    copy->AddLast(e->NextElement());
  }
  return copy;
}

void PrefsUpdateEventQueueImpl::Notify() {
  Container copy;
  {
    ObjectLockGuard hold(listener_lock_);
    if (suppressed_ && !GetFlag()) return;
    copy = Listeners();
  }
  // Outside the lock, so that listeners may change the list. One failing listener does not keep
  // the others from hearing of the publication.
  std::exception_ptr failure;
  for (Enumeration e = copy->Elements(); e->HasMoreElements();) {
    try {
      Ref<TaskItf>(e->NextElement())->Run();
    } catch (...) {
      if (!failure) failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

class PrefsUpdateEventQueueHolder
    : public StaticRef<PrefsUpdateEventQueueImpl, PrefsUpdateEventQueueHolder> {
 public:
  static PrefsUpdateEventQueueImpl* Make() { return new PrefsUpdateEventQueueImpl(); }
};

Ref<PrefsUpdateEventQueueImpl> GetPrefsUpdateEventQueue() {
  static PrefsUpdateEventQueueHolder holder;
  return holder.Get();
}

// ---- published trees ----

FlatPreferencesImpl::FlatPreferencesImpl(const HierHashtable& first,
                                         const ConstHierHashtable& second, const Resource& resource,
                                         const TextEncoding& encoding)
    : DualLevelHierHashtableImpl(first, second), resource_(resource), encoding_(encoding) {}

FlatPreferencesImpl::~FlatPreferencesImpl() = default;

void FlatPreferencesImpl::Publish() {
  Ref<PrefsUpdateEventQueueImpl> queue = GetPrefsUpdateEventQueue();
  {
    ObjectLockGuard hold(queue->PreferencesLock());
    HierHashtable registry = RegistryExp::MakeRegistry();
    // The name stays the first element of whatever is published; a tree that already carries it
    // (one made by MakeModifiable) does not get it twice. The tree is complete before it is put
    // in place, so that readers never see it change.
    Object name = CurrentConfigurationName(registry);
    HierHashtable own = FirstLevel();
    if (name && (own->Count() == 0 || own->First() != name)) own->AddFirst(name);
    registry->Put(PreferencesPath(), HierHashtable(this));
  }
  queue->Notify();
}

void FlatPreferencesImpl::Store(Writer& writer) { PropertiesExp::Store(FirstLevel(), writer); }

void FlatPreferencesImpl::ClearOverrides() { FirstLevel()->RemoveAll(); }

// ---- the factory ----

void PreferencesExp::SetDefaultConfiguration(const String& name) {
  Ref<PrefsUpdateEventQueueImpl> queue = GetPrefsUpdateEventQueue();
  ObjectLockGuard hold(queue->PreferencesLock());
  RegistryExp::MakeRegistry()->MakePath(PreferencesPath(), 0x1FF, 0)->AddFirst(name);
}

ConstHierHashtable PreferencesExp::MakePrefs() {
  Ref<PrefsUpdateEventQueueImpl> queue = GetPrefsUpdateEventQueue();
  ObjectLockGuard hold(queue->PreferencesLock());
  HierHashtable node = RegistryExp::MakeRegistry()->Get(PreferencesPath());
  if (node->Count() > 0) node = node->Get(String(node->First()));
  return ConstHierHashtableExp::Make(node);
}

ConstHierHashtable PreferencesExp::MakePrefs(const ConstHierHashtable& defaults,
                                             const Resource& resource,
                                             const TextEncoding& encoding) {
  HierHashtable first = HierHashtableExp::Make();
  PropertiesExp::Load(first, resource, encoding);
  Ref<FlatPreferencesImpl> prefs(new FlatPreferencesImpl(first, defaults, resource, encoding));
  prefs->Publish();
  return ConstHierHashtableExp::Make(HierHashtable(prefs));
}

Ref<ModifiablePreferencesItf> PreferencesExp::MakeModifiable() {
  Ref<FlatPreferencesImpl> published;
  Object name;
  {
    Ref<PrefsUpdateEventQueueImpl> queue = GetPrefsUpdateEventQueue();
    ObjectLockGuard hold(queue->PreferencesLock());
    HierHashtable registry = RegistryExp::MakeRegistry();
    HierHashtable node = registry->Get(PreferencesPath());
    published = dynamic_cast<FlatPreferencesImpl*>(node.Get());
    if (!published) {
      throw ConfigurationError(Wide(u"the published preferences cannot be modified"));
    }
    name = CurrentConfigurationName(registry);
  }
  HierHashtable first = HierHashtableExp::Make();
  PropertiesExp::Load(first, published->GetResource(), published->GetTextEncoding());
  Ref<FlatPreferencesImpl> copy(new FlatPreferencesImpl(
      first, published->SecondLevel(), published->GetResource(), published->GetTextEncoding()));
  if (name) copy->AddFirst(name);
  return copy;
}

Ref<PrefsUpdateEventQueueItf> PreferencesExp::MakePrefsUpdateEventQueue() {
  return GetPrefsUpdateEventQueue();
}

// ---- single values ----

String PreferencesExp::GetString(const String& path, const String& fallback) {
  try {
    ConstHierHashtable prefs = MakePrefs();
    if (!prefs->ContainsKey(path)) return fallback;
    ConstHierHashtable node = prefs->Get(path);
    if (node->Count() == 0) return fallback;
    Object first = node->GetElement(0);
    const StringItf* text = dynamic_cast<const StringItf*>(first.Get());
    return text != nullptr ? String(text) : fallback;
  } catch (const NoSuchElementException&) {
    // Nothing published, or a default configuration that names no node.
    return fallback;
  } catch (const BadCastException&) {
    return fallback;
  }
}

bool PreferencesExp::GetBoolean(const String& path, bool fallback) {
  String text = GetString(path, String());
  if (!text) return fallback;
  text = text->Trim();
  if (NumberConversion::ValueOf(text, static_cast<const bool*>(nullptr))) return true;
  // NumberConversion's false is "anything else"; only its own spellings of false count here.
  static const char* const kFalseWords[] = {"false", "FALSE", "f", "F", "no", "NO"};
  for (const char* word : kFalseWords) {
    if (text == String(TextEncodingExp::MakeAscii(), static_cast<const void*>(word))) return false;
  }
  return fallback;
}

}  // namespace kiv
