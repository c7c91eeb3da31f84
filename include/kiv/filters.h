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
// Running out of data is never an exception, except for the strict chunked decoder, for which a
// body cut short is malformed. The `timeout` of a read is passed down unchanged; only the
// default-timeout stream replaces a negative one, and the converting input stream reads with
// timeout 0 once it holds data for its caller. Only the thread-safe output stream may be used by
// several threads at once.
#ifndef KIV_FILTERS_H_
#define KIV_FILTERS_H_

#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/streams.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kiv {

struct KIV_EXPORT FixedLengthSyncInputStreamExp {
  // Ends after `length` bytes of `in`; bytes beyond them are never read. An early end of `in`
  // is an ordinary end of data.
  static SyncInputStream Make(const SyncInputStream& in, unsigned length);
};

// Bounds of the strict chunked decoder (ChunkedSyncIOStreamExp::MakeStrict). A coding that goes
// beyond one is refused with ChunkedFormatException, as malformed framing is.
struct ChunkedLimits {
  // The largest chunk accepted. The decoder streams data and never holds a chunk, so this bounds
  // what a peer may announce rather than memory; it sits well above what clients write per chunk
  // (a few KiB to 1 MiB). Raise it for peers that send a whole file as one chunk.
  std::uint64_t max_chunk_size = std::uint64_t{16} << 20;
  // The longest size line: the size and its extensions, without the line break.
  std::uint32_t max_line_length = 4096;
  // The longest trailer section: its field lines with their line breaks, without the empty line
  // that closes it (0 refuses every trailer field).
  std::uint32_t max_trailer_size = 16384;
  // Accept a lone LF wherever the coding requires CR LF. Off by default: a parser in front of us
  // that reads a lone LF differently would let a request be smuggled past it.
  bool accept_bare_lf = false;
  // Keep chunk extensions and trailer fields for GetExtensions() and GetTrailers(). When false
  // they are still checked, then dropped.
  bool keep_fields = true;
};

// A chunk extension (value empty when it has none; a quoted value unquoted) or a trailer field
// (value without its surrounding white space). Names are kept as sent.
struct ChunkedField {
  std::string name;
  std::string value;
};

// The strict chunked decoder, an input stream with access to the framing it has read.
//
//   ChunkedSyncInputStream body = ChunkedSyncIOStreamExp::MakeStrict(connection);
//   while (unsigned n = body->Read(data, sizeof data, timeout)) Consume(data, n);
//   Check(body->GetTrailers());
//   std::string_view next = body->GetUnread();  // the next request starts here, then `connection`
//
// Read returns data only, never more than the rest of the current chunk, and blocks until it has
// some or the body has ended; after the last chunk and the trailer section it returns 0, as at the
// end of any stream. Malformed framing, or a limit exceeded, throws ChunkedFormatException whose
// text names the fault and the offset of the offending byte, counted from 0 at the first byte read
// from the wrapped stream ("bad chunk size at byte 17"); data that ends before the last chunk and
// the trailer section throws UnexpectedEOFException. Either failure is final: every later read
// throws it again. Failures of the wrapped stream (a time-out) pass through and leave the decoder
// as it was, so the read can be repeated.
//
// The wrapped stream is read in blocks, so the decoder may take bytes beyond the body from it;
// GetUnread() gives them back (on a keep-alive connection, the start of the next message).
struct KIV_EXPORT ChunkedSyncInputStreamItf : public SyncInputStreamItf {
  ~ChunkedSyncInputStreamItf() override;

  // The extensions of the chunk being read (the last chunk's once the body has ended), in order.
  virtual const std::vector<ChunkedField>& GetExtensions() const = 0;
  // The trailer fields, in order; empty until the body has ended. Fields that must not come in a
  // trailer (framing, routing, authentication) are given like the others: hosts choose which to
  // honour and never merge them into the header section blindly.
  virtual const std::vector<ChunkedField>& GetTrailers() const = 0;
  // The data of the current chunk not read yet: the most the next Read delivers; 0 between chunks.
  virtual std::uint64_t GetChunkRemaining() const = 0;
  // True once the last chunk and the trailer section have been read.
  virtual bool IsComplete() const = 0;
  // Once the body is complete, exactly the bytes taken from the wrapped stream beyond its end,
  // which a host reads before reading that stream again; before that, the buffered bytes not yet
  // decoded. The view stays valid until the next Read.
  virtual std::string_view GetUnread() const = 0;
};

KIV_DECLARE_HANDLE(ChunkedSyncInputStream, ChunkedSyncInputStreamItf);

// HTTP/1.1 chunked transfer coding.
struct KIV_EXPORT ChunkedSyncIOStreamExp {
  // Decodes a chunked body read from `in`, ending at the last chunk (size 0); the trailer and its
  // closing empty line stay unread in `in`. KEPT: malformed framing never throws: a size line
  // without CR LF, or longer than 64 bytes, is skipped; a chunk not closed by CR LF, or the end of
  // `in`, ends the body. Sizes are read as the C runtime's strtoul reads base-16 text into 32 bits,
  // so extensions after the digits are ignored, a line without digits reads as 0 (the last chunk)
  // and a size too large for 32 bits reads as 0xFFFFFFFF. A read is not cut at the end of the
  // current chunk: asking for more than the chunk holds delivers the framing bytes that follow
  // as data, so callers that need exact data read at most what the chunk holds, or use
  // MakeCapped.
  static SyncInputStream Make(const SyncInputStream& in);
  // The same decoder with every read cut at the rest of the current chunk, so that only data is
  // ever delivered whatever the caller asks for. Use it under readers that cannot know the
  // chunking: a text input stream, a buffered stream, a converting stream.
  static SyncInputStream MakeCapped(const SyncInputStream& in);
  // The strict decoder (see ChunkedSyncInputStreamItf): the framing exactly as HTTP/1.1 defines
  // it, within `limits`. Sizes are hexadecimal digits alone (no sign, prefix or blank) and fit
  // in 64 bits; extensions are ";name" or ";name=value" with a token or quoted-string value and
  // blanks only around ";" and "="; every line and every chunk's data ends with CR LF; trailer
  // fields are "name: value" lines without folding. It is the decoder for a server that reads
  // requests: it refuses what another parser of the same bytes could read differently.
  static ChunkedSyncInputStream MakeStrict(const SyncInputStream& in,
                                           const ChunkedLimits& limits = {});
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
