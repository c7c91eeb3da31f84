#include "selftest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace kiv_host {

namespace {

constexpr int kAnswerTimeoutMs = 5000;

struct Answer {
  int status = 0;
  std::string head;
  std::string body;  // as sent: chunked answers stay chunked
};

// Sends `request` on a new connection and reads the answer until the server closes it.
Answer Exchange(int port, const std::string& request) {
  Answer answer;
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return answer;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string received;
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      send(fd, request.data(), request.size(), MSG_NOSIGNAL) ==
          static_cast<ssize_t>(request.size())) {
    char piece[4096];
    pollfd in = {fd, POLLIN, 0};
    while (poll(&in, 1, kAnswerTimeoutMs) == 1) {
      const ssize_t n = recv(fd, piece, sizeof piece, 0);
      if (n <= 0) break;
      received.append(piece, static_cast<std::size_t>(n));
    }
  }
  close(fd);
  const std::size_t end = received.find("\r\n\r\n");
  if (received.compare(0, 9, "HTTP/1.1 ") != 0 || end == std::string::npos) return answer;
  answer.status = std::stoi(received.substr(9, 3));
  answer.head = received.substr(0, end);
  answer.body = received.substr(end + 4);
  return answer;
}

struct Check {
  const char* name;
  std::string request;
  int status;
  const char* in_head;  // text the head must hold, or null
  const char* body;     // the exact body, or null
};

}  // namespace

bool RunSelfTest(int port) {
  const std::string host = "Host: 127.0.0.1\r\nConnection: close\r\n";
  const Check checks[] = {
      {"index page", "GET / HTTP/1.1\r\n" + host + "\r\n", 200, "Content-Type: text/html", nullptr},
      {"head", "HEAD /index.html HTTP/1.1\r\n" + host + "\r\n", 200, "Last-Modified: ", ""},
      {"missing file", "GET /nope.html HTTP/1.1\r\n" + host + "\r\n", 404, nullptr, nullptr},
      {"dot-dot", "GET /../settings.h HTTP/1.1\r\n" + host + "\r\n", 403, nullptr, nullptr},
      {"encoded dot-dot", "GET /%2e%2E/settings.h HTTP/1.1\r\n" + host + "\r\n", 403, nullptr,
       nullptr},
      {"malformed request line", "GET /\r\n\r\n", 400, nullptr, nullptr},
      {"upper, chunked both ways",
       "POST /upper HTTP/1.1\r\n" + host +
           "Transfer-Encoding: "
           "chunked\r\n\r\n6;x=1\r\nGr\xC3\xBC\xC3\x9F\r\n6\r\ne\n\xCE\xB1\xCE\xB2\r\n0\r\n\r\n",
       200, "Transfer-Encoding: chunked",
       "c\r\nGR\xC3\x9C\xC3\x9F"
       "E\n\xCE\x91\xCE\x92\r\n0\r\n\r\n"},
      {"bad chunk size",
       "POST /upper HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\n\r\nzz\r\n", 400, nullptr,
       nullptr},
      {"invalid text", "POST /upper HTTP/1.1\r\n" + host + "Content-Length: 2\r\n\r\n\xC3(", 400,
       nullptr, nullptr},
  };
  bool all = true;
  for (const Check& check : checks) {
    const Answer answer = Exchange(port, check.request);
    const bool ok = answer.status == check.status &&
                    (!check.in_head || answer.head.find(check.in_head) != std::string::npos) &&
                    (!check.body || answer.body == check.body);
    std::printf("%s %s (status %d)\n", ok ? "ok  " : "FAIL", check.name, answer.status);
    all = all && ok;
  }
  std::fflush(stdout);
  return all;
}

}  // namespace kiv_host
