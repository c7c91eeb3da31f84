#include "http.h"

#include <kiv/exception.h>
#include <kiv/filters.h>

#include <algorithm>
#include <charconv>

namespace kiv_host {

namespace {

// Longest chunk-size line (size, extensions, CR LF) the host reads.
constexpr unsigned kMaxChunkSizeLine = 1024;
// Largest chunk the host accepts; a body is limited by the body size anyway.
constexpr std::uint64_t kMaxChunkSize = 0xFFFFFFFF;
// Empty lines a client may send before a request line (left over from an earlier body).
constexpr int kMaxLeadingEmptyLines = 4;

[[noreturn]] void Fail(int status, std::string detail) {
  throw HttpError{status, std::move(detail)};
}

bool IsTokenChar(unsigned char c) {
  if (c >= '0' && c <= '9') return true;
  if ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') return true;
  return std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
}

bool IsToken(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) {
    return IsTokenChar(static_cast<unsigned char>(c));
  });
}

int HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c |= 0x20;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::string Lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  }
  return out;
}

std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

// Calls `each` with every element of a comma-separated header value, blanks trimmed, empty
// elements skipped.
template <class F>
void ForEachListElement(std::string_view value, F each) {
  while (!value.empty()) {
    const std::size_t comma = value.find(',');
    std::string_view element = TrimBlanks(value.substr(0, comma));
    if (!element.empty()) each(element);
    if (comma == std::string_view::npos) break;
    value.remove_prefix(comma + 1);
  }
}

// One line of the head, through its line feed, with the line end (LF or CR LF) removed. Its bytes
// are charged to `budget`. False at end of data before the first byte.
bool ReadHeadLine(kiv::TextInputStreamItf& conn, unsigned& budget, std::string& line) {
  line.clear();
  char piece[512];
  for (;;) {
    const unsigned want = std::min<unsigned>(sizeof piece, budget);
    if (want == 0) Fail(431, "request head larger than the limit");
    const unsigned n = conn.ReadLine(piece, want, -1);
    if (n == 0) {
      if (line.empty()) return false;
      Fail(400, "connection ended inside the request head");
    }
    budget -= n;
    line.append(piece, n);
    if (line.back() == '\n') {
      line.pop_back();
      if (!line.empty() && line.back() == '\r') line.pop_back();
      return true;
    }
  }
}

// Decodes %XX escapes; a malformed escape or an encoded zero byte is refused.
std::string PercentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? HexValue(static_cast<unsigned char>(text[i + 1])) : -1;
    const int low = high >= 0 ? HexValue(static_cast<unsigned char>(text[i + 2])) : -1;
    if (low < 0) Fail(400, "malformed percent escape in the target");
    if (high == 0 && low == 0) Fail(400, "encoded zero byte in the target");
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

void ParseRequestLine(const std::string& line, Request& request) {
  const std::size_t sp1 = line.find(' ');
  const std::size_t sp2 = sp1 == std::string::npos ? sp1 : line.find(' ', sp1 + 1);
  if (sp2 == std::string::npos || line.find(' ', sp2 + 1) != std::string::npos) {
    Fail(400, "malformed request line");
  }
  request.method = line.substr(0, sp1);
  request.target = line.substr(sp1 + 1, sp2 - sp1 - 1);
  const std::string_view version = std::string_view(line).substr(sp2 + 1);
  if (!IsToken(request.method)) Fail(400, "malformed method");
  if (request.target.empty() || !std::all_of(request.target.begin(), request.target.end(),
                                             [](char c) { return c > 0x20 && c < 0x7F; })) {
    Fail(400, "malformed request target");
  }
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (version.size() != 8 || version.substr(0, 5) != "HTTP/" || !digit(version[5]) ||
      version[6] != '.' || !digit(version[7])) {
    Fail(400, "malformed protocol version");
  }
  if (version[5] != '1') Fail(505, "only HTTP/1.x is served");
  request.minor_version = version[7] - '0';
  if (request.target.front() != '/') Fail(400, "the target must be a path");
  request.path = PercentDecode(request.target.substr(0, request.target.find('?')));
}

void ParseHeaderLine(const std::string& line, Request& request) {
  if (line.front() == ' ' || line.front() == '\t') Fail(400, "folded header line");
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos || !IsToken(std::string_view(line).substr(0, colon))) {
    Fail(400, "malformed header line");
  }
  std::string_view value = TrimBlanks(std::string_view(line).substr(colon + 1));
  for (char c : value) {
    const auto u = static_cast<unsigned char>(c);
    if ((u < 0x20 && u != '\t') || u == 0x7F) Fail(400, "control character in a header value");
  }
  request.headers.emplace_back(Lower(std::string_view(line).substr(0, colon)), value);
}

// The framing headers: body length, transfer coding, persistence, expectations.
void ReadFraming(Request& request) {
  const bool http11 = request.minor_version >= 1;
  int hosts = 0;
  std::string coding;
  for (const auto& [name, value] : request.headers) {
    if (name == "host") {
      ++hosts;
    } else if (name == "content-length") {
      ForEachListElement(value, [&](std::string_view v) {
        std::uint64_t length = 0;
        auto [end, error] = std::from_chars(v.data(), v.data() + v.size(), length);
        if (error != std::errc() || end != v.data() + v.size()) Fail(400, "bad Content-Length");
        if (request.content_length && *request.content_length != length) {
          Fail(400, "conflicting Content-Length values");
        }
        request.content_length = length;
      });
    } else if (name == "transfer-encoding") {
      ForEachListElement(value, [&](std::string_view v) {
        coding += coding.empty() ? "" : ",";
        coding += Lower(v);
      });
    } else if (name == "connection") {
      ForEachListElement(value, [&](std::string_view v) {
        if (Lower(v) == "close") request.keep_alive = false;
      });
    } else if (name == "expect") {
      if (Lower(value) != "100-continue") Fail(417, "unknown expectation");
      request.expect_continue = http11;
    }
  }
  if (http11 && hosts != 1) Fail(400, "an HTTP/1.1 request needs one Host header");
  if (!http11) request.keep_alive = false;
  if (!coding.empty()) {
    // A length beside a transfer coding is how requests are smuggled past other servers.
    if (request.content_length) Fail(400, "both Content-Length and Transfer-Encoding");
    if (!http11) Fail(400, "Transfer-Encoding in an HTTP/1.0 request");
    if (coding != "chunked") Fail(501, "unsupported transfer coding");
    request.chunked = true;
  }
}

// The bytes of a chunked body exactly as sent, ending after the empty line that closes its
// trailer. A chunked decoder is free to read ahead into a buffer of its own; standing between it
// and the connection, this stream keeps it from ever reading a byte of the next request. To know
// where the body ends it follows the framing (sizes, line ends, the CR LF after each chunk's
// data), and refuses framing it cannot follow with HttpError 400.
class ChunkFramingImpl final : public kiv::SyncInputStreamWrapper {
 public:
  ChunkFramingImpl(const kiv::TextInputStream& conn, unsigned max_trailer)
      : kiv::SyncInputStreamWrapper(conn), conn_(conn), max_trailer_(max_trailer) {}

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override {
    if (count == 0 || state_ == State::kDone) return 0;
    auto* bytes = static_cast<unsigned char*>(dst);
    if (state_ == State::kData) {
      const auto want = static_cast<unsigned>(std::min<std::uint64_t>(count, data_left_));
      const unsigned n = conn_->Read(bytes, want, timeout);
      if (n == 0) throw kiv::UnexpectedEOFException();
      // The last two bytes of data_left_ are the CR LF that closes the chunk's data.
      for (unsigned i = 0; i < n; ++i) {
        const std::uint64_t left = data_left_ - i;
        if ((left == 2 && bytes[i] != '\r') || (left == 1 && bytes[i] != '\n')) {
          Fail(400, "chunk data not followed by CR LF");
        }
      }
      data_left_ -= n;
      if (data_left_ == 0) state_ = State::kSizeLine;
      return n;
    }
    const unsigned n = conn_->ReadLine(bytes, count, timeout);
    if (n == 0) throw kiv::UnexpectedEOFException();
    line_bytes_ += n;
    if (state_ == State::kSizeLine) {
      if (line_bytes_ > kMaxChunkSizeLine) Fail(400, "chunk size line too long");
      for (unsigned i = 0; i < n; ++i) SizeLineByte(bytes[i]);
    } else {
      trailer_bytes_ += n;
      if (trailer_bytes_ > max_trailer_) Fail(431, "trailer larger than the limit");
      for (unsigned i = 0; i < n; ++i) TrailerByte(bytes[i]);
    }
    return n;
  }

 private:
  enum class State { kSizeLine, kData, kTrailer, kDone };

  void LineByte(unsigned char c) {
    if (last_ == '\r' && c != '\n') Fail(400, "CR without LF in chunk framing");
    if (c == '\n' && last_ != '\r') Fail(400, "chunk framing line without CR LF");
    last_ = c;
  }

  void SizeLineByte(unsigned char c) {
    LineByte(c);
    if (c == '\n') {
      if (digits_ == 0) Fail(400, "chunk size missing");
      state_ = size_ == 0 ? State::kTrailer : State::kData;
      data_left_ = size_ + 2;
      size_ = digits_ = line_bytes_ = 0;
      in_size_ = true;
      last_ = 0;
    } else if (in_size_ && HexValue(c) >= 0) {
      size_ = size_ * 16 + static_cast<unsigned>(HexValue(c));
      ++digits_;
      if (size_ > kMaxChunkSize) Fail(400, "chunk size too large");
    } else if (in_size_) {
      in_size_ = false;
      if (digits_ == 0 || (c != ';' && c != ' ' && c != '\t' && c != '\r')) {
        Fail(400, "malformed chunk size");
      }
    } else if ((c < 0x20 && c != '\t' && c != '\r') || c == 0x7F) {
      Fail(400, "control character in a chunk extension");
    }
  }

  void TrailerByte(unsigned char c) {
    LineByte(c);
    if (c != '\n') return;
    if (line_bytes_ == 2) state_ = State::kDone;  // the empty line
    line_bytes_ = 0;
    last_ = 0;
  }

  kiv::TextInputStream conn_;
  unsigned max_trailer_;
  State state_ = State::kSizeLine;
  std::uint64_t size_ = 0;
  unsigned digits_ = 0;
  bool in_size_ = true;
  unsigned line_bytes_ = 0;
  unsigned char last_ = 0;
  std::uint64_t data_left_ = 0;  // of the current chunk: its data and the CR LF after it
  unsigned trailer_bytes_ = 0;
};

// The decoder of chunked bodies: the strict one, so that bad framing is refused (its
// ChunkedFormatException names the fault and the offset, and becomes a 400) instead of being
// read as data. It reads ahead in blocks; the framing stream under it ends where the body ends,
// so that read-ahead never takes a byte of the next request (its GetUnread stays empty).
kiv::SyncInputStream OpenChunkedBody(const kiv::SyncInputStream& in) {
  return kiv::ChunkedSyncIOStreamExp::MakeStrict(in);
}

}  // namespace

const char* ReasonPhrase(int status) {
  switch (status) {
    case 100:
      return "Continue";
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 413:
      return "Content Too Large";
    case 415:
      return "Unsupported Media Type";
    case 417:
      return "Expectation Failed";
    case 431:
      return "Request Header Fields Too Large";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 503:
      return "Service Unavailable";
    case 505:
      return "HTTP Version Not Supported";
    default:
      return "Unknown";
  }
}

const std::string* Request::Find(std::string_view name) const {
  for (const auto& header : headers) {
    if (header.first == name) return &header.second;
  }
  return nullptr;
}

std::string MediaTypeParameter(std::string_view value, std::string_view name) {
  std::size_t semi = value.find(';');
  while (semi != std::string_view::npos) {
    value.remove_prefix(semi + 1);
    semi = value.find(';');
    const std::string_view param = TrimBlanks(value.substr(0, semi));
    const std::size_t equals = param.find('=');
    if (equals == std::string_view::npos || Lower(TrimBlanks(param.substr(0, equals))) != name) {
      continue;
    }
    std::string_view v = TrimBlanks(param.substr(equals + 1));
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
    return Lower(v);
  }
  return "";
}

bool ReadRequestHead(kiv::TextInputStreamItf& conn, unsigned max_bytes, Request& request) {
  request = Request();
  unsigned budget = max_bytes;
  std::string line;
  int empty_lines = 0;
  do {
    if (!ReadHeadLine(conn, budget, line)) return false;
  } while (line.empty() && ++empty_lines <= kMaxLeadingEmptyLines);
  ParseRequestLine(line, request);
  for (;;) {
    if (!ReadHeadLine(conn, budget, line)) Fail(400, "connection ended inside the request head");
    if (line.empty()) break;
    ParseHeaderLine(line, request);
  }
  ReadFraming(request);
  return true;
}

RequestBodyImpl::RequestBodyImpl(const Request& request, const kiv::TextInputStream& conn,
                                 std::uint64_t max_body, unsigned max_trailer)
    : max_body_(max_body) {
  if (request.chunked) {
    framing_ = kiv::SyncInputStream(new ChunkFramingImpl(conn, max_trailer));
    data_ = OpenChunkedBody(framing_);
    return;
  }
  expected_ = request.content_length.value_or(0);
  if (expected_ > max_body) Fail(413, "body larger than the limit");
  data_ = kiv::FixedLengthSyncInputStreamExp::Make(conn, static_cast<unsigned>(expected_));
}

unsigned RequestBodyImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  if (count == 0) return 0;
  const unsigned n = data_->Read(dst, count, timeout);
  got_ += n;
  if (got_ > max_body_) Fail(413, "body larger than the limit");
  if (n == 0 && !framing_ && got_ < expected_) throw kiv::UnexpectedEOFException();
  return n;
}

void RequestBodyImpl::Finish() {
  char scratch[4096];
  while (Read(scratch, sizeof scratch, -1) > 0) {
  }
  if (framing_) {
    while (framing_->Read(scratch, sizeof scratch, -1) > 0) {
    }
  }
}

}  // namespace kiv_host
