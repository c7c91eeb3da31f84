// Locks and conditions: a counted re-entrant lock (ObjectLock), a counted auto-reset signal
// (Condition), a condition that fires once a counted number of signals has arrived, and the one
// process-wide lock.
#ifndef KIV_LOCKS_H_
#define KIV_LOCKS_H_

#include <kiv/export.h>
#include <kiv/object.h>

#include <cstdint>
#include <typeinfo>

namespace kiv {

// Results of ConditionItf::Wait. The values are the ones hosts have always compared against.
inline constexpr std::uint32_t kWaitObject0 = 0;          // the condition was signalled
inline constexpr std::uint32_t kWaitTimeout = 0x102;      // the time limit passed first
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;  // the platform object is missing
// A timeout for Wait and Lock that sets no limit (any negative value does).
inline constexpr std::int64_t kWaitForever = -1;

// A re-entrant lock: the holding thread may lock again, and each Lock needs its Unlock. An Unlock
// that leaves the lock free while others wait hands it to one of them: the unlocking thread cannot
// take it back ahead of them.
struct KIV_EXPORT ObjectLockItf : public virtual RefCount {
  ~ObjectLockItf() override;
  // Waits without limit; `timeout` is accepted for the interface's sake and ignored.
  virtual void Lock(std::int64_t timeout) = 0;
  // KEPT: takes the lock only when nobody holds it or waits for it, the calling thread included: a
  // thread that already holds the lock gets false. Never waits.
  virtual bool TryLock() = 0;
  virtual void Unlock() = 0;

  void Lock() { Lock(kWaitForever); }
};

KIV_DECLARE_HANDLE(ObjectLock, ObjectLockItf);

// Something to wait for. Expect announces one more signal that a waiter will wait for and Reset
// forgets announced and received signals; plain conditions ignore both.
struct KIV_EXPORT ConditionItf : public virtual RefCount {
  ~ConditionItf() override;
  virtual void Expect() = 0;
  // `timeout` in milliseconds: negative waits without limit. KEPT: 0 reports kWaitObject0 at once
  // without looking at the condition (hosts rely on a zero timeout reporting success). A
  // positive value waits at most its low 32 bits of milliseconds (truncated, not clamped: 2^32
  // only looks, and a value whose low 32 bits are all ones waits without limit). Returns
  // kWaitObject0 or kWaitTimeout.
  virtual std::uint32_t Wait(std::int64_t timeout) = 0;
  virtual void Reset() = 0;
  // Releases exactly one waiter; with nobody waiting the condition stays signalled until one
  // wait consumes it. Signals are not counted: two signals with nobody waiting release one wait.
  virtual void Signal() = 0;
};

KIV_DECLARE_HANDLE(Condition, ConditionItf);

struct KIV_EXPORT ObjectLockExp {
  static ObjectLock Make();
};

struct KIV_EXPORT ConditionExp {
  static Condition Make();
};

struct KIV_EXPORT MultiSignalConditionExp {
  // A condition that signals `inner` once every announced signal has arrived: after n Expect
  // calls (since the last Reset) the n-th Signal signals `inner`; other signals reach nothing.
  // Wait waits on `inner`. Reset only while no thread signals. A null `inner` throws
  // NullPointerException ("kiv::ConditionItf") on first use.
  static Condition Make(Condition& inner);
};

struct KIV_EXPORT ToolboxCriticalSectionExp {
  // The process-wide lock: every call returns a handle to the same lock.
  static ObjectLock MakeLock();
};

// Holds a lock for the lifetime of a scope. The guard does not keep the lock alive: the handle it
// was given must outlive it. A null handle throws NullPointerException before anything is locked.
class ObjectLockGuard {
 public:
  explicit ObjectLockGuard(ObjectLockItf& lock) : lock_(lock) { lock_.Lock(kWaitForever); }
  explicit ObjectLockGuard(const ObjectLock& lock) : ObjectLockGuard(Checked(lock)) {}
  ~ObjectLockGuard() { lock_.Unlock(); }
  ObjectLockGuard(const ObjectLockGuard&) = delete;
  ObjectLockGuard& operator=(const ObjectLockGuard&) = delete;

 private:
  static ObjectLockItf& Checked(const ObjectLock& lock) {
    if (!lock) Object::DereferencingNULLObj(typeid(ObjectLockItf*));
    return *lock.Get();
  }

  ObjectLockItf& lock_;
};

}  // namespace kiv

#endif  // KIV_LOCKS_H_
