#include <kiv/containers.h>
#include <kiv/exception.h>
#include <kiv/tasks.h>

#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

namespace kiv {

// A task that appends `letter` to `log` when run.
Task Letter(std::string& log, char letter) {
  return Task(new testing::FunctionTask([&log, letter] { log += letter; }));
}

class NotATask : public RefCount {};

// Runs the `second` list of `queue` with RunTasks or RunTasksSafely.
void Sweep(Ref<TaskQueueItf> queue, bool safely) {
  Enumeration tasks = queue->GetTasks(true)->Elements();
  if (safely) {
    queue->RunTasksSafely(tasks);
  } else {
    queue->RunTasks(tasks);
  }
}

TEST(Tasks, ListsAreSeparateAndLive) {
  Ref<TaskQueueItf> q = TaskQueueExp::Make();
  Container first = q->GetTasks(false);
  Container second = q->GetTasks(true);
  EXPECT_NE(first, second);
  EXPECT_EQ(first, q->GetTasks(false));  // the list itself, not a copy

  std::string log;
  q->Add(Letter(log, 'a'), true);
  q->Add(Letter(log, 'b'), true);
  EXPECT_EQ(second->Count(), 2);
  EXPECT_EQ(first->Count(), 0);
  Sweep(q, false);
  Sweep(q, true);
  EXPECT_EQ(log, "abab");  // running keeps the tasks
  second->RemoveAll();
  EXPECT_EQ(q->GetTasks(true)->Count(), 0);
}

TEST(Tasks, ProcessWideQueuesAreFourSingletons) {
  Ref<TaskQueueItf> queues[] = {TaskQueueExp::MakeDeferredInit(true),
                                TaskQueueExp::MakeDeferredInit(false),
                                TaskQueueExp::MakeOnExit(true), TaskQueueExp::MakeOnExit(false)};
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) EXPECT_EQ(i == j, queues[i] == queues[j]) << i << j;
  }
  EXPECT_EQ(TaskQueueExp::MakeOnExit(true), queues[2]);
  EXPECT_EQ(TaskQueueExp::MakeDeferredInit(false), queues[1]);
}

TEST(Tasks, FailuresStopOneSweepAndNotTheOther) {
  std::string log;
  Ref<TaskQueueItf> q = TaskQueueExp::Make();
  q->Add(Letter(log, 'a'), true);
  q->Add(Task(new testing::FunctionTask([] { throw TimeoutException(); })), true);
  q->Add(Object(), true);  // a null element
  q->Add(Letter(log, 'c'), true);

  EXPECT_THROW(Sweep(q, false), TimeoutException);
  EXPECT_EQ(log, "a");
  log.clear();
  Sweep(q, true);
  EXPECT_EQ(log, "ac");

  // Without the throwing task, the null element is the failure that stops RunTasks.
  Container list = q->GetTasks(true);
  Ref<IteratorItf> it = list->IteratorAt(1);
  it->Remove(true);
  log.clear();
  EXPECT_THROW(Sweep(q, false), NullPointerException);
  EXPECT_EQ(log, "a");

  // An element that is not a task ends either sweep.
  it->InsertBefore(Object(new NotATask()));
  log.clear();
  EXPECT_THROW(Sweep(q, true), BadCastException);
  EXPECT_EQ(log, "a");
  EXPECT_THROW(Sweep(q, false), BadCastException);
  EXPECT_EQ(log, "aa");
}

}  // namespace kiv
