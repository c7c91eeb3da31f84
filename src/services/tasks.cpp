// Task queues and the four process-wide queues.
#include "services/tasks_impl.h"

namespace kiv {

TaskItf::~TaskItf() = default;
TaskQueueItf::~TaskQueueItf() = default;

TaskQueueImpl::TaskQueueImpl()
    : first_(ContainerExp::MakeList()), second_(ContainerExp::MakeList()) {}

TaskQueueImpl::~TaskQueueImpl() = default;

void TaskQueueImpl::Add(const Object& task, bool second) {
  (second ? second_ : first_)->AddLast(task);
}

Container TaskQueueImpl::GetTasks(bool second) { return second ? second_ : first_; }

void TaskQueueImpl::RunTasks(Enumeration& tasks) {
  while (tasks->HasMoreElements()) {
    // The checked conversion throws BadCastException for an element that is not a task; a null
    // element gives a null handle, and calling through it throws NullPointerException.
    Ref<TaskItf> task(tasks->NextElement());
    task->Run();
  }
}

void TaskQueueImpl::RunTasksSafely(Enumeration& tasks) {
  while (tasks->HasMoreElements()) {
    // Outside the guard: an element that is not a task still ends the sweep.
    Ref<TaskItf> task(tasks->NextElement());
    try {
      task->Run();
    } catch (...) {
    }
  }
}

Ref<TaskQueueItf> TaskQueueExp::Make() { return Ref<TaskQueueItf>(new TaskQueueImpl()); }

Ref<TaskQueueItf> TaskQueueExp::MakeDeferredInit(bool which) {
  if (which) {
    static DeferredInitTrueQueueHolder holder;
    return holder.Get();
  }
  static DeferredInitFalseQueueHolder holder;
  return holder.Get();
}

Ref<TaskQueueItf> TaskQueueExp::MakeOnExit(bool which) {
  if (which) {
    static OnExitTrueQueueHolder holder;
    return holder.Get();
  }
  static OnExitFalseQueueHolder holder;
  return holder.Get();
}

namespace {

// The four queues are built while the library is loaded, so registrations from other static
// initialisers and from the host's first calls all find them ready, and they are released when
// the library is unloaded.
bool BuildProcessQueues() {
  TaskQueueExp::MakeDeferredInit(true);
  TaskQueueExp::MakeDeferredInit(false);
  TaskQueueExp::MakeOnExit(true);
  TaskQueueExp::MakeOnExit(false);
  return true;
}

[[maybe_unused]] const bool queues_built = BuildProcessQueues();

}  // namespace

}  // namespace kiv
