// The server: one thread accepts connections and hands them to a fixed pool of workers through
// the library's bounded queue; a condition wakes idle workers. A connection that finds the queue
// full is answered 503 at once and closed.
//
// Threads: Start and Stop are called from one controlling thread; everything else runs on the
// server's own threads.
#ifndef KIV_HOST_SERVER_H_
#define KIV_HOST_SERVER_H_

#include "connection.h"
#include "settings.h"

#include <kiv/locks.h>
#include <kiv/queues.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

namespace kiv_host {

class Server {
 public:
  explicit Server(const Settings& settings);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Binds, listens and starts the threads. std::runtime_error when the address cannot be used.
  void Start();
  // The port listened on (the one the system picked when the settings say 0).
  int Port() const { return port_; }
  // Stops accepting and lets the connections at work finish their current request; after `grace`
  // the rest are cut off. Waiting connections are closed unserved. Returns once every thread
  // has ended. Idempotent.
  void Stop(std::chrono::milliseconds grace);

 private:
  void AcceptLoop();
  void WorkLoop();
  // Answers 503 on a connection the queue cannot take, then closes it.
  static void RefuseBusy(int fd);

  Settings settings_;
  int listen_fd_ = -1;
  int stop_pipe_[2] = {-1, -1};  // readable once stopping: wakes the acceptor and idle connections
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<unsigned> running_workers_{0};
  kiv::Ref<kiv::QueueItf> queue_;
  kiv::Condition work_ready_;
  kiv::ObjectLock active_lock_;
  std::set<int> active_;  // sockets being served, under active_lock_
  ConnectionContext context_;
  std::thread acceptor_;
  std::vector<std::thread> workers_;
};

}  // namespace kiv_host

#endif  // KIV_HOST_SERVER_H_
