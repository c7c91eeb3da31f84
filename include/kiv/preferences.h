// Preferences: the library's configuration, a tree of properties published in the registry under
// "preferences" and replaceable while the process runs.
//
// A preferences tree has two levels: a first level of values, loaded from a properties resource
// or edited, laid over a read-only second level of defaults. Reading a path asks the first level
// and falls back to the defaults; a key's values are never merged (a first-level value list hides
// the default list whole). Publishing a tree makes it the one everybody reads and runs every
// listener of the update event queue once, on the publishing thread.
//
//   auto utf8 = [](const char* text) { return kiv::String(kiv::TextEncodingExp::MakeUTF8(), text);
//   }; kiv::HierHashtable defaults = kiv::HierHashtableExp::Make();
//   defaults->MakePath(utf8("logs/application/level"), 0x1FF, 0)->AddLast(utf8("error"));
//   kiv::PreferencesExp::MakePrefs(kiv::ConstHierHashtableExp::Make(defaults),
//                                  kiv::SyncResourceExp::Make(utf8("host.properties")),
//                                  kiv::TextEncodingExp::MakeUTF8());
//   kiv::String level = kiv::PreferencesExp::GetString(utf8("logs/application/level"),
//   utf8("error"));
//
// Thread safety: every access to the published node goes through one process-wide lock, and the
// listener list through another. The trees themselves are not locked: a published tree is for
// reading, and a modifiable tree belongs to whoever made it until it is published.
#ifndef KIV_PREFERENCES_H_
#define KIV_PREFERENCES_H_

#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/export.h>
#include <kiv/hierhashtable.h>
#include <kiv/object.h>
#include <kiv/resource.h>
#include <kiv/string.h>
#include <kiv/textio.h>

namespace kiv {

// A two-level preferences tree. The tree operations read as described above; changes (MakePath,
// Put, Remove and the element changes) act on the first level, so removing an override uncovers
// the default again. Nodes reached by a path present in both levels are two-level nodes again;
// a path present only in the defaults gives the default node read-only (changes to it throw
// AccessException). Element reads (Count, Elements, GetElement, First, Last) show the first
// level's elements when it has any, else the defaults'; ElementAt and the iterators always work
// on the first level. Not cloneable (Clone throws HTNotCloneableException).
struct KIV_EXPORT ModifiablePreferencesItf : public HierHashtableItf {
  ~ModifiablePreferencesItf() override;

  // Makes this tree the published preferences and notifies the listeners (see PreferencesExp).
  // No effect on a node reached inside a tree.
  virtual void Publish() = 0;
  // Writes the first level in the properties format (PropertiesExp::Store). No effect on a node
  // reached inside a tree.
  virtual void Store(Writer& writer) = 0;
  // Removes every override: RemoveAll on the first level, its elements included. No effect on a
  // node reached inside a tree.
  virtual void ClearOverrides() = 0;
};

// The listeners of publication. Listeners are TaskItf objects; each publication runs every
// listener once, in the order added, on the publishing thread and outside the queue's lock, so a
// listener may add or remove listeners (changes apply from the next publication).
struct KIV_EXPORT PrefsUpdateEventQueueItf : public virtual RefCount {
  ~PrefsUpdateEventQueueItf() override;

  // Appends `task` to the listeners.
  virtual void AddListener(const Object& task) = 0;
  // Removes the first listener that is this very object; nothing when there is none.
  virtual void RemoveListener(const Object& task) = 0;
  // A new list of the current listeners.
  virtual Container Listeners() = 0;
  // Runs every listener once (see above). Every listener runs even when one fails; the first
  // failure is then thrown once all have run (a listener that is not a task fails with
  // BadCastException, an empty handle with NullPointerException).
  virtual void Notify() = 0;
  // A flag for the host's own use, false at first. Notification does not depend on it: every
  // publication notifies every listener whatever it holds.
  virtual bool GetFlag() const = 0;
  virtual void SetFlag(bool flag) = 0;
};

struct KIV_EXPORT PreferencesExp {
  // Makes `name` the default configuration: the path, inside the published tree, of the node that
  // MakePrefs() returns. The name is kept as the first element of the registry's "preferences"
  // node (the newest name first) and carried over to every tree published later.
  static void SetDefaultConfiguration(const String& name);
  // The published preferences read-only: the registry's "preferences" node, or, when that node
  // has elements, the node at the path its first element names (the default configuration).
  // NoSuchNamedElementException when nothing was published or the path names no node.
  [[nodiscard]] static ConstHierHashtable MakePrefs();
  // Loads `resource` (properties text in `encoding`) as the first level over `defaults` (an empty
  // handle: no defaults), publishes the result and returns it read-only. Failures to read the
  // resource propagate (ResourceOSException names the path) and nothing is published.
  static ConstHierHashtable MakePrefs(const ConstHierHashtable& defaults, const Resource& resource,
                                      const TextEncoding& encoding);
  // A private, modifiable copy of the published preferences: their resource read afresh as the
  // first level, over the same defaults, carrying the default configuration name. Changes stay
  // private until its Publish(); its Store writes the first level back in the properties format.
  // NoSuchNamedElementException when nothing was published, ConfigurationError when what is
  // published was not made by MakePrefs or MakeModifiable.
  [[nodiscard]] static Ref<ModifiablePreferencesItf> MakeModifiable();
  // The process-wide update event queue.
  [[nodiscard]] static Ref<PrefsUpdateEventQueueItf> MakePrefsUpdateEventQueue();

  // Readers of single values from the published preferences (MakePrefs()), for subsystems and
  // hosts that want one setting. Both give `fallback` when nothing is published, the path is not
  // there, or its node has no String as its first element.
  [[nodiscard]] static String GetString(const String& path, const String& fallback);
  // The first element read as a boolean: "true", "TRUE", "t", "T", "yes" and "YES" are true;
  // "false", "FALSE", "f", "F", "no" and "NO" are false; any other text is no boolean and gives
  // `fallback`, so that a misspelt setting keeps the default instead of turning it off.
  [[nodiscard]] static bool GetBoolean(const String& path, bool fallback);
};

}  // namespace kiv

#endif  // KIV_PREFERENCES_H_
