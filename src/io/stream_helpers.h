// Helpers shared by the stream implementations.
#ifndef KIV_SRC_IO_STREAM_HELPERS_H_
#define KIV_SRC_IO_STREAM_HELPERS_H_

#include "kiv/streams.h"

namespace kiv {

// Writes all `count` bytes to `out`, repeating while it takes some; returns the bytes taken, fewer
// than `count` only when a write took nothing. A write that claims more than it was given counts
// as taking the rest.
unsigned WriteFully(SyncOutputStreamItf& out, const void* src, unsigned count);

}  // namespace kiv

#endif  // KIV_SRC_IO_STREAM_HELPERS_H_
