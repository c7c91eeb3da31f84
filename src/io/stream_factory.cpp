// The factories of the basic streams. Overloads of the same factories that build filters live
// beside those filters.
#include "io/stream_buffer.h"
#include "io/stream_buffered.h"
#include "io/stream_file.h"
#include "io/stream_null.h"
#include "kiv/streams.h"

namespace kiv {

Ref<SyncInputStreamItf> SyncInputStreamExp::Make(const Buffer& buffer) {
  return Ref<SyncInputStreamItf>(new BufferSyncInStream(buffer));
}

Ref<SyncInputStreamItf> SyncInputStreamExp::Make(const SyncInputStream& in, const Buffer& buffer) {
  return Ref<SyncInputStreamItf>(new BufferedSyncInStream(in, buffer));
}

Ref<SyncInputStreamItf> SyncInputStreamExp::Make(std::FILE* file) {
  return Ref<SyncInputStreamItf>(new FILESyncInStream(file));
}

Ref<SyncInputStreamItf> SyncInputStreamExp::Make() {
  return Ref<SyncInputStreamItf>(new NullSyncInStream());
}

Ref<SyncOutputStreamItf> SyncOutputStreamExp::Make(const Buffer& buffer) {
  return Ref<SyncOutputStreamItf>(new BufferSyncOutStream(buffer));
}

Ref<SyncOutputStreamItf> SyncOutputStreamExp::Make(const SyncOutputStream& out,
                                                   const Buffer& buffer) {
  return Ref<SyncOutputStreamItf>(new BufferedSyncOutStream(out, buffer));
}

Ref<SyncOutputStreamItf> SyncOutputStreamExp::Make(std::FILE* file) {
  return Ref<SyncOutputStreamItf>(new FILESyncOutStream(file));
}

Ref<SyncOutputStreamItf> SyncOutputStreamExp::Make() {
  return Ref<SyncOutputStreamItf>(new NullSyncOutStream());
}

}  // namespace kiv
