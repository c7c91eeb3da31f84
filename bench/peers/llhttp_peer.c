/* Drives llhttp over an HTTP/1.1 response with a chunked body, copying the body bytes into a
 * sink from the body callback. Kept in C, apart from the benchmark, because llhttp's header and
 * http_parser's header declare the same enumerators. Benchmark-only. */
#include <stddef.h>
#include <string.h>

#include "llhttp.h"

struct kiv_bench_sink {
  char* data;
  size_t length;
};

static int kiv_bench_on_body(llhttp_t* parser, const char* at, size_t length) {
  struct kiv_bench_sink* sink = (struct kiv_bench_sink*)parser->data;
  memcpy(sink->data + sink->length, at, length);
  sink->length += length;
  return 0;
}

/* Parses `length` bytes of `wire`, each piece of `piece` bytes first copied into `staging` as a
 * read from a connection would place it; returns the body bytes copied to `sink`, or (size_t)-1
 * on a parse error. */
size_t kiv_bench_llhttp_decode(const char* wire, size_t length, size_t piece, char* staging,
                               char* sink) {
  llhttp_t parser;
  llhttp_settings_t settings;
  struct kiv_bench_sink out;
  size_t offset;
  llhttp_settings_init(&settings);
  settings.on_body = kiv_bench_on_body;
  llhttp_init(&parser, HTTP_RESPONSE, &settings);
  out.data = sink;
  out.length = 0;
  parser.data = &out;
  for (offset = 0; offset < length; offset += piece) {
    size_t n = length - offset < piece ? length - offset : piece;
    memcpy(staging, wire + offset, n);
    if (llhttp_execute(&parser, staging, n) != HPE_OK) return (size_t)-1;
  }
  return out.length;
}
