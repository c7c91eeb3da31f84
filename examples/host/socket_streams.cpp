#include "socket_streams.h"

#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/string.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace kiv_host {

namespace {

[[noreturn]] void ThrowSystemError(const char* operation, int error) {
  std::string text = std::string(operation) + ": " + std::strerror(error);
  throw kiv::GeneralIOException(kiv::String(kiv::TextEncodingExp::MakeUTF8(),
                                            static_cast<void*>(text.data()),
                                            static_cast<unsigned>(text.size())));
}

// poll() takes an int of milliseconds; longer waits are cut to the largest it takes.
int ToPollTimeout(std::int64_t ms) {
  return ms < 0 ? -1 : static_cast<int>(std::min<std::int64_t>(ms, 0x7FFFFFFF));
}

}  // namespace

void SocketInputStreamImpl::SetDeadline(std::int64_t ms) {
  has_deadline_ = ms >= 0;
  if (has_deadline_) deadline_ = Clock::now() + std::chrono::milliseconds(ms);
}

int SocketInputStreamImpl::WaitLimit(std::int64_t timeout) const {
  if (!has_deadline_) return ToPollTimeout(timeout);
  auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
  if (left <= 0) throw kiv::IOTimeoutException();
  return ToPollTimeout(timeout < 0 ? left : std::min<std::int64_t>(timeout, left));
}

unsigned SocketInputStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  if (count == 0) return 0;
  for (;;) {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {stop_fd_, POLLIN, 0}};
    const nfds_t n = idle_ && stop_fd_ >= 0 ? 2 : 1;
    const int ready = poll(fds, n, WaitLimit(timeout));
    if (ready < 0) {
      if (errno == EINTR) continue;
      ThrowSystemError("poll", errno);
    }
    if (ready == 0) throw kiv::IOTimeoutException();
    if (fds[0].revents == 0) return 0;  // only the stop signal: an idle connection ends here
    const ssize_t got = recv(fd_, dst, count, 0);
    if (got < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      ThrowSystemError("recv", errno);
    }
    if (got > 0) idle_ = false;
    return static_cast<unsigned>(got);
  }
}

unsigned SocketOutputStreamImpl::Write(const void* src, unsigned count) {
  const auto* p = static_cast<const char*>(src);
  unsigned left = count;
  while (left > 0) {
    const ssize_t put = send(fd_, p, left, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (put > 0) {
      p += put;
      left -= static_cast<unsigned>(put);
      sent_ += static_cast<std::uint64_t>(put);
      continue;
    }
    if (put < 0 && errno == EINTR) continue;
    if (put < 0 && errno != EAGAIN && errno != EWOULDBLOCK) ThrowSystemError("send", errno);
    pollfd fd = {fd_, POLLOUT, 0};
    const int ready = poll(&fd, 1, ToPollTimeout(timeout_ms_));
    if (ready == 0) throw kiv::IOTimeoutException();
    if (ready < 0 && errno != EINTR) ThrowSystemError("poll", errno);
  }
  return count;
}

}  // namespace kiv_host
