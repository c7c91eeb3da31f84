// A connected TCP socket as the library's blocking byte streams.
//
// Reads wait with poll() and honour their timeout (milliseconds; negative: the caller sets no
// limit): a read that waits longer throws IOTimeoutException. A deadline set for the whole request
// head caps every wait on top of that, so a client that trickles one byte per timeout cannot hold
// a worker forever. While the input is idle (between requests on a kept-alive connection) the
// server's stop signal also ends a wait, as an ordinary end of data, so shutdown does not wait for
// idle clients.
//
// Writes are all or nothing: Write sends every byte or throws (IOTimeoutException when the peer
// stops reading for longer than the write timeout, GeneralIOException for a reset connection).
// Neither stream closes the socket: the connection that owns the descriptor does.
#ifndef KIV_HOST_SOCKET_STREAMS_H_
#define KIV_HOST_SOCKET_STREAMS_H_

#include <kiv/streams.h>

#include <chrono>
#include <cstdint>

namespace kiv_host {

class SocketInputStreamImpl final : public kiv::SyncInputStreamItf {
 public:
  // `stop_fd` becomes readable when the server stops (-1: never).
  SocketInputStreamImpl(int fd, int stop_fd) : fd_(fd), stop_fd_(stop_fd) {}

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;

  // Every wait from now on ends at most `ms` milliseconds from now; negative clears the deadline.
  void SetDeadline(std::int64_t ms);
  // Marks the stream idle until the next byte arrives: a stop signal then reads as end of data.
  void SetIdle() { idle_ = true; }
  // True while no byte has arrived since SetIdle.
  bool Idle() const { return idle_; }

 private:
  using Clock = std::chrono::steady_clock;

  // Milliseconds to wait for a read with `timeout`: -1 for no limit; throws IOTimeoutException
  // when the deadline has passed.
  int WaitLimit(std::int64_t timeout) const;

  int fd_;
  int stop_fd_;
  bool idle_ = false;
  bool has_deadline_ = false;
  Clock::time_point deadline_{};
};

class SocketOutputStreamImpl final : public kiv::SyncOutputStreamItf {
 public:
  SocketOutputStreamImpl(int fd, std::int64_t timeout_ms) : fd_(fd), timeout_ms_(timeout_ms) {}

  using kiv::SyncOutputStreamItf::Write;
  // Sends all `count` bytes and returns `count`, or throws.
  unsigned Write(const void* src, unsigned count) override;
  // Nothing is held here: every Write has reached the socket when it returns.
  void Flush() override {}

  // Bytes handed to the socket so far.
  std::uint64_t BytesSent() const { return sent_; }

 private:
  int fd_;
  std::int64_t timeout_ms_;
  std::uint64_t sent_ = 0;
};

}  // namespace kiv_host

#endif  // KIV_HOST_SOCKET_STREAMS_H_
