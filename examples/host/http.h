// The HTTP/1.1 message layer of the host: request heads read from the connection, the streams
// that deliver a request body, and the failures that become 4xx and 5xx answers.
#ifndef KIV_HOST_HTTP_H_
#define KIV_HOST_HTTP_H_

#include <kiv/streams.h>
#include <kiv/textio.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv_host {

// A request that gets a status of its own instead of a normal answer. Thrown by the parsing code
// and by the body streams (through the library's readers, which pass it on unchanged).
struct HttpError {
  int status;
  std::string detail;  // for the log line and the answer's text
};

// The standard reason phrase of `status`.
const char* ReasonPhrase(int status);

struct Request {
  std::string method;
  std::string target;  // as sent
  std::string path;    // the target's path, percent-decoded
  int minor_version = 1;
  std::vector<std::pair<std::string, std::string>> headers;  // names in lower case
  bool keep_alive = true;
  bool chunked = false;
  bool expect_continue = false;
  std::optional<std::uint64_t> content_length;

  // The value of the header `name` (lower case), or null.
  const std::string* Find(std::string_view name) const;
  bool HasBody() const { return chunked || content_length.value_or(0) > 0; }
};

// The value of the parameter `name` (lower case) of a media type header value such as
// "text/plain; charset=UTF-8", unquoted and in lower case; empty when there is none.
std::string MediaTypeParameter(std::string_view value, std::string_view name);

// Reads one request head from `conn` (at most `max_bytes` bytes, line ends included). Returns
// false when the connection ends, or the server stops, before the first byte. Throws HttpError
// for a head that is malformed (400), too large (431), or asks for what the host does not do
// (501, 505, 417); IOTimeoutException from the connection passes through.
bool ReadRequestHead(kiv::TextInputStreamItf& conn, unsigned max_bytes, Request& request);

// A request body: the data of a Content-Length or chunked body, ending exactly where the body
// ends so that the next request on the connection stays unread. A body that ends early throws
// UnexpectedEOFException; more than `max_body` bytes of data throw HttpError 413.
class RequestBodyImpl final : public kiv::SyncInputStreamItf {
 public:
  RequestBodyImpl(const Request& request, const kiv::TextInputStream& conn, std::uint64_t max_body,
                  unsigned max_trailer);

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  // Reads and drops the rest of the body and what its coding puts after the data (the trailer of
  // a chunked body), leaving the connection at the next request.
  void Finish();

 private:
  kiv::SyncInputStream data_;     // the body's data
  kiv::SyncInputStream framing_;  // a chunked body's bytes as sent, or null
  std::uint64_t expected_ = 0;    // a Content-Length body's length
  std::uint64_t max_body_;
  std::uint64_t got_ = 0;
};

}  // namespace kiv_host

#endif  // KIV_HOST_HTTP_H_
