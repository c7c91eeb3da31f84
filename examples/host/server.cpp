#include "server.h"

#include "host_util.h"

#include <kiv/exception.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kiv_host {

namespace {

// A worker that finds no work waits this long before looking again, so that a wake-up lost
// between two signals (the condition does not count them) delays a connection at most this much.
constexpr std::int64_t kIdleWaitMs = 100;
// How often Stop looks whether the workers have finished.
constexpr auto kStopPoll = std::chrono::milliseconds(10);
// Pending connections the listening socket holds before the acceptor takes them.
constexpr int kListenBacklog = 512;
// The longest the acceptor waits to hand a 503 to a client.
constexpr int kBusyAnswerMs = 100;

// An accepted socket on its way to a worker. It owns the descriptor, so a connection dropped
// from the queue unserved is closed too.
class AcceptedSocket final : public virtual kiv::RefCount {
 public:
  AcceptedSocket(int fd, std::string peer) : fd_(fd), peer_(std::move(peer)) {}
  ~AcceptedSocket() override { close(fd_); }
  AcceptedSocket(const AcceptedSocket&) = delete;
  AcceptedSocket& operator=(const AcceptedSocket&) = delete;

  int fd() const { return fd_; }
  const std::string& peer() const { return peer_; }

 private:
  int fd_;
  std::string peer_;
};

std::string PeerName(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = "?";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
}

[[noreturn]] void ThrowSystem(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

}  // namespace

Server::Server(const Settings& settings)
    : settings_(settings),
      // The queue holds the connections beyond those the workers serve.
      queue_(kiv::QueueExp::MakeFIFO(settings.connection_limit > settings.workers
                                         ? settings.connection_limit - settings.workers
                                         : 1)),
      work_ready_(kiv::ConditionExp::Make()),
      active_lock_(kiv::ObjectLockExp::Make()),
      context_{&settings_, -1, &stopping_, queue_.Get()} {}

Server::~Server() { Stop(std::chrono::milliseconds(0)); }

void Server::Start() {
  if (pipe2(stop_pipe_, O_CLOEXEC) != 0) ThrowSystem("pipe");
  context_.stop_fd = stop_pipe_[0];
  listen_fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listen_fd_ < 0) ThrowSystem("socket");
  const int on = 1;
  setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(settings_.port));
  if (inet_pton(AF_INET, settings_.address.c_str(), &address.sin_addr) != 1) {
    throw std::runtime_error("server/address: " + settings_.address + " is no IPv4 address");
  }
  if (bind(listen_fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ThrowSystem("bind " + settings_.address + ":" + std::to_string(settings_.port));
  }
  if (listen(listen_fd_, kListenBacklog) != 0) ThrowSystem("listen");
  socklen_t length = sizeof address;
  getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);

  running_workers_ = settings_.workers;
  for (unsigned i = 0; i < settings_.workers; ++i) workers_.emplace_back(&Server::WorkLoop, this);
  acceptor_ = std::thread(&Server::AcceptLoop, this);
}

void Server::AcceptLoop() {
  for (;;) {
    pollfd fds[2] = {{listen_fd_, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
    if (poll(fds, 2, -1) < 0 && errno != EINTR) {
      Log(kiv::LogError, std::string("poll: ") + std::strerror(errno));
      return;
    }
    if (fds[1].revents != 0) return;
    if (fds[0].revents == 0) continue;
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int fd = accept4(listen_fd_, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED) continue;
      // Out of descriptors or memory: back off instead of spinning on the same error.
      Log(kiv::LogError, std::string("accept: ") + std::strerror(errno));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      continue;
    }
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (!queue_->Put(kiv::Object(new AcceptedSocket(fd, PeerName(peer))))) {
      RefuseBusy(fd);
      continue;
    }
    work_ready_->Signal();
  }
}

void Server::RefuseBusy(int fd) {
  static const char kAnswer[] =
      "HTTP/1.1 503 Service Unavailable\r\nContent-Type: text/plain\r\nContent-Length: 24\r\n"
      "Retry-After: 1\r\nConnection: close\r\n\r\n503 Service Unavailable\n";
  pollfd out = {fd, POLLOUT, 0};
  if (poll(&out, 1, kBusyAnswerMs) == 1) {
    [[maybe_unused]] ssize_t sent =
        send(fd, kAnswer, sizeof kAnswer - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
  }
  close(fd);
  Log(kiv::LogWarn, "503: every connection slot is taken");
}

void Server::WorkLoop() {
  for (;;) {
    kiv::Object item;
    try {
      item = queue_->Get();
    } catch (const kiv::NoSuchElementException&) {
      if (stopping_.load()) break;
      work_ready_->Wait(kIdleWaitMs);
      continue;
    }
    // Signals are not counted: pass the wake-up on while work is left.
    if (queue_->Count() > 0) work_ready_->Signal();
    if (stopping_.load()) continue;  // dropped unserved: releasing it closes it
    const kiv::Ref<AcceptedSocket> socket(item);
    {
      kiv::ObjectLockGuard guard(active_lock_);
      active_.insert(socket->fd());
    }
    ServeConnection(socket->fd(), socket->peer(), context_);
    kiv::ObjectLockGuard guard(active_lock_);
    active_.erase(socket->fd());
  }
  running_workers_.fetch_sub(1);
}

void Server::Stop(std::chrono::milliseconds grace) {
  if (listen_fd_ < 0 || stopping_.exchange(true)) return;
  const char byte = 1;
  [[maybe_unused]] ssize_t written = write(stop_pipe_[1], &byte, 1);
  if (acceptor_.joinable()) acceptor_.join();
  close(listen_fd_);
  for (std::size_t i = 0; i < workers_.size(); ++i) work_ready_->Signal();

  const auto deadline = std::chrono::steady_clock::now() + grace;
  while (running_workers_.load() > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kStopPoll);
  }
  if (running_workers_.load() > 0) {
    // Past the grace period: cut the connections still at work, which ends their reads and
    // writes with errors.
    kiv::ObjectLockGuard guard(active_lock_);
    for (int fd : active_) shutdown(fd, SHUT_RDWR);
    Log(kiv::LogWarn,
        "grace period over: " + std::to_string(active_.size()) + " connection(s) cut off");
  }
  for (std::thread& worker : workers_) worker.join();
  queue_->Clear();
  close(stop_pipe_[0]);
  close(stop_pipe_[1]);
}

}  // namespace kiv_host
