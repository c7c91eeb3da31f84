// The task queue and the holders of the process-wide queues.
#ifndef KIV_SRC_SERVICES_TASKS_IMPL_H_
#define KIV_SRC_SERVICES_TASKS_IMPL_H_

#include "kiv/containers.h"
#include "kiv/tasks.h"

namespace kiv {

// Two lists made with the queue that live as long as it: `first_` is chosen by the flag false,
// `second_` by true.
class TaskQueueImpl final : public TaskQueueItf {
 public:
  TaskQueueImpl();
  ~TaskQueueImpl() override;

  void Add(const Object& task, bool second) override;
  Container GetTasks(bool second) override;
  void RunTasks(Enumeration& tasks) override;
  void RunTasksSafely(Enumeration& tasks) override;

 private:
  Container first_;
  Container second_;
};

// Holders of the four process-wide queues (fatal false: a failure to build one is reported and
// thrown to the caller, not fatal).
class DeferredInitTrueQueueHolder : public StaticRef<TaskQueueItf, DeferredInitTrueQueueHolder> {
 public:
  static TaskQueueItf* Make() { return new TaskQueueImpl(); }
};
class DeferredInitFalseQueueHolder : public StaticRef<TaskQueueItf, DeferredInitFalseQueueHolder> {
 public:
  static TaskQueueItf* Make() { return new TaskQueueImpl(); }
};
class OnExitTrueQueueHolder : public StaticRef<TaskQueueItf, OnExitTrueQueueHolder> {
 public:
  static TaskQueueItf* Make() { return new TaskQueueImpl(); }
};
class OnExitFalseQueueHolder : public StaticRef<TaskQueueItf, OnExitFalseQueueHolder> {
 public:
  static TaskQueueItf* Make() { return new TaskQueueImpl(); }
};

}  // namespace kiv

#endif  // KIV_SRC_SERVICES_TASKS_IMPL_H_
