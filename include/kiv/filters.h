// Stream filters: streams that stand in front of another stream and change what passes.
//
// Beside the factories below, four filters are made by overloads of the basic stream factories
// declared in <kiv/streams.h>:
// - SyncInputStreamExp::Make(in, converter): converts the bytes read from `in` through a block
//   converter;
// - SyncOutputStreamExp::Make(out, converter): converts bytes before writing them to `out`;
// - SyncOutputStreamExp::Make(first, second): the tee, writing to two streams;
// - SyncInputStreamExp::Make(in, log): copies everything read from `in` to a log stream.
//
// Every filter keeps a counted reference to what it wraps and follows the stream contract: a
// bulk Read returns 0 at end of data, the single-byte Read -1, a bulk Write the bytes accepted.
// Running out of data is never an exception. The `timeout` of a read is passed down unchanged;
// only the default-timeout stream replaces a negative one, and the converting input stream reads
// with timeout 0 once it holds data for its caller. Only the thread-safe output stream may be used
// by several threads at once.
#ifndef KIV_FILTERS_H_
#define KIV_FILTERS_H_

#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/streams.h>

#include <cstdint>

namespace kiv {

struct KIV_EXPORT FixedLengthSyncInputStreamExp {
  // Ends after `length` bytes of `in`; bytes beyond them are never read. An early end of `in`
  // is an ordinary end of data.
  static SyncInputStream Make(const SyncInputStream& in, unsigned length);
};

// HTTP/1.1 chunked transfer coding.
struct KIV_EXPORT ChunkedSyncIOStreamExp {
  // Decodes a chunked body read from `in`, ending at the last chunk (size 0); the trailer and its
  // closing empty line stay unread in `in`. Malformed framing never throws: a size line without
  // CR LF, or longer than 64 bytes, is skipped; a chunk not closed by CR LF, or the end of `in`,
  // ends the body. Sizes are read as the C runtime's strtoul reads base-16 text into 32 bits, so
  // extensions after the digits are ignored, a line without digits reads as 0 (the last chunk)
  // and a size too large for 32 bits reads as 0xFFFFFFFF. A read is not cut at the end of the
  // current chunk: asking for more than the chunk holds delivers the framing bytes that follow
  // as data, so callers that need exact data read at most what the chunk holds, or use
  // MakeCapped.
  static SyncInputStream Make(const SyncInputStream& in);
  // The same decoder with every read cut at the rest of the current chunk, so that only data is
  // ever delivered whatever the caller asks for. Use it under readers that cannot know the
  // chunking: a text input stream, a buffered stream, a converting stream.
  static SyncInputStream MakeCapped(const SyncInputStream& in);
  // Encodes: each Write of n > 0 bytes becomes one chunk (hexadecimal size, CR LF, the data,
  // CR LF); a Write of 0 bytes writes nothing. Releasing the last reference writes the last
  // chunk "0\r\n\r\n" and flushes `out`: that is how the body is ended. The header, the data and
  // the line break each go to `out` in one Write, and only what `out` took of the data is
  // reported: `out` must take whole writes (a buffered stream does). Put a buffered stream in
  // front for larger chunks.
  static SyncOutputStream Make(const SyncOutputStream& out);
};

struct KIV_EXPORT ConsumeAllSyncInputStreamExp {
  // Reads `in` to its end, with `timeout`, when the last reference goes, so that a connection is
  // left after a message body the consumer did not read to its end. Failures while draining are
  // dropped.
  static SyncInputStream Make(const SyncInputStream& in, std::int64_t timeout);
};

struct KIV_EXPORT DefaultTimeoutSyncInputStreamExp {
  // Reads `in` with `timeout` wherever the caller gives a negative one (no limit of its own);
  // other time-outs pass unchanged.
  static SyncInputStream Make(const SyncInputStream& in, std::int64_t timeout);
};

struct KIV_EXPORT MTSyncIOStreamExp {
  // Makes `out` safe for several threads: every operation runs under a lock of its own and is
  // forwarded to `out` once, so what `out` takes of one Write is never interleaved with another's.
  // Writers in line mode hand each line over in one Write, which keeps log lines whole.
  static SyncOutputStream Make(const SyncOutputStream& out);
};

}  // namespace kiv

#endif  // KIV_FILTERS_H_
