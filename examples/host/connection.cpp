#include "connection.h"

#include "host_util.h"
#include "http.h"
#include "socket_streams.h"

#include <kiv/date.h>
#include <kiv/exception.h>
#include <kiv/filters.h>
#include <kiv/resource.h>
#include <kiv/textio.h>
#include <kiv/version.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <vector>

namespace kiv_host {

namespace {

// Read-ahead of the connection reader and write-behind of the answer.
constexpr unsigned kConnectionBufferBytes = 16 * 1024;
// Bytes of a file copied per read.
constexpr unsigned kFileCopyBytes = 64 * 1024;
// Text gathered into one chunk of a chunked answer.
constexpr unsigned kChunkBytes = 16 * 1024;
// Read-ahead of the text reader over a request body.
constexpr unsigned kTextBufferBytes = 4096;
// How long, and how much, a closing connection still reads from its client.
constexpr int kLingerMs = 500;
constexpr unsigned kLingerBytes = 256 * 1024;

// The encoding of upper-cased answers.
// Answers leave in standard UTF-8, so characters above U+FFFF reach clients as one four-byte
// sequence (the library's own "utf-8" would write each half of a surrogate pair on its own).
kiv::TextEncoding ResponseEncoding() { return kiv::TextEncodingExp::MakeStandardUTF8(); }

// The encoding a POST body names in the charset of its Content-Type; UTF-8 when it names none.
// "utf-16" and "utf-32" are read in the machine's byte order. HttpError 415 for other charsets.
kiv::TextEncoding RequestEncoding(const Request& request) {
  const std::string* type = request.Find("content-type");
  std::string charset = type ? MediaTypeParameter(*type, "charset") : "";
  if (charset.empty()) charset = "utf-8";
  if (charset == "us-ascii") charset = "ascii";
  if (charset != "ascii" && charset != "utf-8" && charset != "utf-16" && charset != "utf-32") {
    throw HttpError{415, "unsupported charset " + charset};
  }
  return kiv::TextEncodingExp::Make(Utf8(charset));
}

// The file under `root` that `path` names: a directory gives its index.html. HttpError 403 for a
// path that climbs out of the root (by "..", or through a symbolic link), 404 for one that names
// no regular file.
std::string ResolveFile(const std::string& root, const std::string& path) {
  std::string joined = root;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string_view segment = std::string_view(path).substr(start, end - start);
    if (segment == "..") throw HttpError{403, "path climbs above the document root"};
    if (!segment.empty() && segment != ".") {
      joined += '/';
      joined += segment;
    }
    start = end + 1;
  }
  struct stat info {};
  if (stat(joined.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) joined += "/index.html";
  char resolved[PATH_MAX];
  if (realpath(joined.c_str(), resolved) == nullptr) {
    if (errno == EACCES) throw HttpError{403, "no permission"};
    throw HttpError{404, "no such file"};
  }
  const std::string file(resolved);
  if (file.compare(0, root.size(), root) != 0 || file.size() <= root.size() ||
      file[root.size()] != '/') {
    throw HttpError{403, "path leads out of the document root"};
  }
  if (stat(resolved, &info) != 0 || !S_ISREG(info.st_mode)) throw HttpError{404, "no such file"};
  return file;
}

// The text for a log line: bytes outside printable ASCII as \xHH, at most 200 of them.
std::string ForLog(std::string_view text) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (char c : text.substr(0, 200)) {
    const auto u = static_cast<unsigned char>(c);
    if (u >= 0x20 && u < 0x7F && u != '\\') {
      out += c;
    } else {
      out += "\\x";
      out += kHex[u >> 4];
      out += kHex[u & 15];
    }
  }
  return out.empty() ? "-" : out;
}

kiv::String HttpDate(std::int64_t time) {
  return kiv::DateStringExp::Make(kiv::DateExp::Make(time, 0));
}

// Ends our side of the connection, then reads what the client still sends for a short while. A
// socket closed with unread input resets the connection, and a reset can destroy the answer
// before the client has read it: a refusal sent while the client is still sending would be lost.
void LingeringClose(int fd) {
  shutdown(fd, SHUT_WR);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLingerMs);
  char scratch[4096];
  for (unsigned drained = 0; drained < kLingerBytes;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                          deadline - std::chrono::steady_clock::now())
                          .count();
    pollfd in = {fd, POLLIN, 0};
    if (left <= 0 || poll(&in, 1, static_cast<int>(left)) != 1) break;
    const ssize_t n = recv(fd, scratch, sizeof scratch, 0);
    if (n <= 0) break;
    drained += static_cast<unsigned>(n);
  }
}

class Connection {
 public:
  Connection(int fd, const std::string& peer, const ConnectionContext& context)
      : peer_(peer),
        context_(context),
        settings_(*context.settings),
        socket_in_(new SocketInputStreamImpl(fd, context.stop_fd)),
        socket_out_(new SocketOutputStreamImpl(fd, settings_.read_timeout_ms)),
        in_(kiv::TextInputStreamExp::Make(
            kiv::DefaultTimeoutSyncInputStreamExp::Make(socket_in_, settings_.read_timeout_ms),
            kiv::BufferExp::Make(kConnectionBufferBytes), kiv::TextEncodingExp::MakeAscii())),
        out_(kiv::SyncOutputStreamExp::Make(socket_out_,
                                            kiv::BufferExp::Make(kConnectionBufferBytes))) {}

  void Serve() {
    while (!context_.stopping->load() && ServeOne()) {
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  // Reads and answers one request; false when the connection is to be closed.
  bool ServeOne();
  void Dispatch(const Request& request);
  void ServeFile(const Request& request, bool head_only);
  void ServeUpper(const Request& request);
  // Starts an answer's head: the status line, Date and Server.
  kiv::Writer BeginHead(int status);
  // Ends the head, with "Connection: close" when the connection ends after the answer.
  void EndHead(kiv::Writer& head);
  // Answers `status` with a short text body (when no head went out yet) and logs why.
  void Refuse(int status, const std::string& detail, bool body_pending);

  std::string peer_;
  const ConnectionContext& context_;
  const Settings& settings_;
  kiv::Ref<SocketInputStreamImpl> socket_in_;
  kiv::Ref<SocketOutputStreamImpl> socket_out_;
  kiv::TextInputStream in_;    // everything read from the client goes through here
  kiv::SyncOutputStream out_;  // everything written to it
  std::vector<char> copy_buffer_;
  Request request_;
  int status_ = 0;
  bool head_sent_ = false;
  bool keep_alive_ = false;
};

bool Connection::ServeOne() {
  socket_in_->SetIdle();
  socket_in_->SetDeadline(settings_.read_timeout_ms);
  const std::uint64_t sent_before = socket_out_->BytesSent();
  Clock::time_point start{};
  status_ = 0;
  head_sent_ = false;
  keep_alive_ = false;
  try {
    if (!ReadRequestHead(*in_, settings_.max_header_bytes, request_)) return false;
    start = Clock::now();
    socket_in_->SetDeadline(-1);
    // A kept connection holds its worker: give it up when others are waiting.
    keep_alive_ =
        request_.keep_alive && !context_.stopping->load() && context_.waiting->Count() == 0;
    Dispatch(request_);
    out_->Flush();
  } catch (const HttpError& e) {
    // Missing files and wrong methods are ordinary answers; the connection stays usable when no
    // body is left unread.
    const bool ordinary = e.status == 404 || e.status == 405;
    if (!ordinary) keep_alive_ = false;
    Refuse(e.status, e.detail, request_.HasBody());
  } catch (const kiv::IOTimeoutException&) {
    if (socket_in_->Idle()) return false;  // an idle connection ran out of time: just close
    Refuse(408, "the client was too slow", true);
  } catch (const kiv::UnexpectedEOFException&) {
    Refuse(400, "the body was cut short", true);
  } catch (const kiv::DataConverterException&) {
    Refuse(400, "the body is no valid text in its charset", false);
  } catch (const kiv::IOException&) {
    Refuse(400, "unreadable request: " + kiv::DescribeCurrentException(), true);
  } catch (...) {
    Refuse(500, kiv::DescribeCurrentException(), true);
  }
  if (start == Clock::time_point{}) start = Clock::now();
  const auto micros =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
  Log(kiv::LogInfo, ForLog(request_.method) + " " + ForLog(request_.target) + " " +
                        std::to_string(status_) + " " +
                        std::to_string(socket_out_->BytesSent() - sent_before) + " " +
                        std::to_string(micros) + "us");
  return keep_alive_;
}

void Connection::Dispatch(const Request& request) {
  const std::string& method = request.method;
  const bool is_get = method == "GET";
  const bool is_head = method == "HEAD";
  if (!is_get && !is_head && method != "POST") throw HttpError{501, "method not implemented"};
  if (request.path == "/upper") {
    if (method != "POST") throw HttpError{405, "POST only"};
    ServeUpper(request);
    return;
  }
  if (!is_get && !is_head) throw HttpError{405, "GET and HEAD only"};
  // Bodies of GET and HEAD mean nothing here; rather than read them, close after the answer.
  if (request.HasBody()) keep_alive_ = false;
  ServeFile(request, is_head);
}

kiv::Writer Connection::BeginHead(int status) {
  status_ = status;
  kiv::Writer head = kiv::WriterExp::Make(kiv::TextEncodingExp::MakeUTF8(), out_);
  head->Write("HTTP/1.1 ");
  head->Write(static_cast<std::int32_t>(status));
  head->Write(' ');
  head->Write(ReasonPhrase(status));
  head->Write("\r\nDate: ");
  head->Write(HttpDate(kiv::DateExp::Now()));
  head->Write("\r\nServer: kiv-host/" KIV_VERSION_STRING "\r\n");
  return head;
}

void Connection::EndHead(kiv::Writer& head) {
  if (!keep_alive_) head->Write("Connection: close\r\n");
  head->Write("\r\n");
  head_sent_ = true;
}

void Connection::Refuse(int status, const std::string& detail, bool body_pending) {
  if (body_pending) keep_alive_ = false;
  if (status != 404 && status != 405) {
    Log(kiv::LogWarn, peer_ + ": " + std::to_string(status) + " " + ForLog(detail) + " (" +
                          ForLog(request_.method) + " " + ForLog(request_.target) + ")");
  }
  if (head_sent_) {  // too late for a status: the client sees the answer break off
    keep_alive_ = false;
    return;
  }
  try {
    const std::string text = std::to_string(status) + " " + ReasonPhrase(status) + "\n";
    kiv::Writer head = BeginHead(status);
    if (status == 405)
      head->Write(request_.path == "/upper" ? "Allow: POST\r\n" : "Allow: GET, HEAD\r\n");
    head->Write("Content-Type: text/plain; charset=utf-8\r\nContent-Length: ");
    head->Write(static_cast<std::uint64_t>(text.size()));
    head->Write("\r\n");
    EndHead(head);
    if (request_.method != "HEAD") head->Write(text.c_str());
    out_->Flush();
  } catch (...) {
    keep_alive_ = false;  // the client is gone or not reading
  }
}

void Connection::ServeFile(const Request& request, bool head_only) {
  const kiv::Resource file =
      kiv::SyncResourceExp::Make(Utf8(ResolveFile(settings_.document_root, request.path)));
  const std::int64_t size = file->GetSize();
  std::string type = ToStd(file->GetMIMEType());
  if (type.compare(0, 5, "text/") == 0) type += "; charset=utf-8";  // the site is UTF-8 text
  kiv::SyncInputStream content;
  if (!head_only) content = file->OpenInputStream();

  kiv::Writer head = BeginHead(200);
  head->Write("Content-Type: ");
  head->Write(type.c_str());
  head->Write("\r\nContent-Length: ");
  head->Write(size);
  head->Write("\r\nLast-Modified: ");
  head->Write(HttpDate(file->GetModificationTime()));
  head->Write("\r\n");
  EndHead(head);
  if (head_only) return;

  if (copy_buffer_.empty()) copy_buffer_.resize(kFileCopyBytes);
  std::int64_t left = size;
  while (left > 0) {
    const auto want = static_cast<unsigned>(std::min<std::int64_t>(left, kFileCopyBytes));
    const unsigned n = content->Read(copy_buffer_.data(), want, -1);
    if (n == 0) throw HttpError{500, "the file shrank while it was sent"};
    if (out_->Write(copy_buffer_.data(), n) != n) throw HttpError{500, "the answer was refused"};
    left -= n;
  }
}

void Connection::ServeUpper(const Request& request) {
  const kiv::TextEncoding encoding = RequestEncoding(request);
  if (request.expect_continue) {
    const char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
    out_->Write(kContinue, sizeof kContinue - 1);
    out_->Flush();
  }
  kiv::Ref<RequestBodyImpl> body(
      new RequestBodyImpl(request, in_, settings_.max_body_bytes, settings_.max_header_bytes));
  kiv::Reader reader = kiv::ReaderExp::Make(
      kiv::TextInputStreamExp::Make(body, kiv::BufferExp::Make(kTextBufferBytes), encoding), -1);
  std::vector<kiv::String> lines;
  kiv::String line;
  while (reader->ReadLine(line)) lines.push_back(line);
  body->Finish();
  // All of the text is decoded before the answer starts, so that invalid text still gets its 400.
  const kiv::TextEncoding wide = kiv::TextEncodingExp::MakeUTF16();
  for (kiv::String& text : lines) text = text->Encode(wide)->ToUpper();

  const bool chunked = request.minor_version >= 1;
  if (!chunked)
    keep_alive_ = false;  // an HTTP/1.0 answer without a length ends with the connection
  kiv::Writer head = BeginHead(200);
  head->Write("Content-Type: text/plain; charset=utf-8\r\n");
  if (chunked) head->Write("Transfer-Encoding: chunked\r\n");
  EndHead(head);
  {
    // Each Write of the chunked stream is one chunk; the buffer in front gathers the text into
    // chunks of kChunkBytes.
    kiv::SyncOutputStream body_out = chunked ? kiv::ChunkedSyncIOStreamExp::Make(out_) : out_;
    kiv::Writer writer = kiv::WriterExp::Make(
        ResponseEncoding(),
        kiv::SyncOutputStreamExp::Make(body_out, kiv::BufferExp::Make(kChunkBytes)));
    for (const kiv::String& text : lines) writer->Write(text);
    writer->Flush();  // a buffered stream does not flush itself on release
  }                   // releasing the chunked stream writes the last chunk
}

}  // namespace

void ServeConnection(int fd, const std::string& peer, const ConnectionContext& context) {
  try {
    Connection(fd, peer, context).Serve();
  } catch (...) {
    Log(kiv::LogError, peer + ": " + kiv::DescribeCurrentException());
  }
  LingeringClose(fd);
}

}  // namespace kiv_host
