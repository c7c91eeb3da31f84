// Deferred work: tasks and task queues.
//
// A task is a counted object with a Run operation. A task queue keeps tasks in two ordered lists
// (chosen by a flag) so that they can be run later in one sweep. Besides queues made on demand,
// the library keeps four process-wide queues: two for work deferred until the host has finished
// initialising and two for work to be done when the process ends. The library registers tasks
// there but never runs these queues itself; the host decides when each list is run.
#ifndef KIV_TASKS_H_
#define KIV_TASKS_H_

#include <kiv/containers.h>
#include <kiv/export.h>
#include <kiv/object.h>

namespace kiv {

struct KIV_EXPORT TaskItf : public virtual RefCount {
  ~TaskItf() override;
  // Does the task's work.
  virtual void Run() = 0;
  // Tells the task that it will not be run after all: its owner withdrew it, or the process is
  // ending without running the list it sits in. A task holding resources for its run may let
  // them go; one with nothing to drop does nothing. Task queues never call it: whoever removes a
  // task from a list, or decides not to run a list, does.
  virtual void Cancel() = 0;
};

KIV_DECLARE_HANDLE(Task, TaskItf);

// Two ordered lists of tasks. A queue takes no lock; the list container's rules apply.
struct KIV_EXPORT TaskQueueItf : public virtual RefCount {
  ~TaskQueueItf() override;
  // Appends `task` (a null handle is appended as a null element) to the list chosen by `second`.
  virtual void Add(const Object& task, bool second) = 0;
  // The chosen list itself, not a copy: clearing it empties the queue's list.
  virtual Container GetTasks(bool second) = 0;
  // Runs every task the enumeration yields, in order. Running does not remove tasks. The first
  // failure ends the sweep and reaches the caller: an element that is not a task throws
  // BadCastException, a null element NullPointerException, a task whatever its Run throws.
  virtual void RunTasks(Enumeration& tasks) = 0;
  // As RunTasks, but whatever one task's Run throws, and the failure for a null element, is caught
  // and ignored and the sweep goes on. An element that is not a task still throws
  // BadCastException out of the sweep.
  virtual void RunTasksSafely(Enumeration& tasks) = 0;
};

struct KIV_EXPORT TaskQueueExp {
  // A new, empty queue.
  static Ref<TaskQueueItf> Make();
  // One of the two process-wide deferred-initialisation queues, chosen by `which`. Every call
  // returns the same object. The library puts its own deferred work in the `true` list of the
  // `true` queue.
  static Ref<TaskQueueItf> MakeDeferredInit(bool which);
  // One of the two process-wide on-exit queues, chosen by `which`.
  static Ref<TaskQueueItf> MakeOnExit(bool which);
};

}  // namespace kiv

#endif  // KIV_TASKS_H_
