// Helpers shared by the stream implementations.
#ifndef KIV_SRC_IO_STREAM_HELPERS_H_
#define KIV_SRC_IO_STREAM_HELPERS_H_

#include "kiv/streams.h"

namespace kiv {

// Writes all `count` bytes to `out`, repeating while it takes some; returns the bytes taken, fewer
// than `count` only when a write took nothing. A write that claims more than it was given counts
// as taking the rest.
unsigned WriteFully(SyncOutputStreamItf& out, const void* src, unsigned count);

// The base of a stream that is its own marker. Both ToStreamMarker overloads come to one
// `Marker(self)`, a template over the constness of `self`: the stream itself unless the derived
// class hides it with a Marker of its own (a friend of this base), whose fallback to a wrapped
// stream then calls that stream's overload of the same constness, as each overload always has.
template <class Derived, class Stream>
class SelfMarkedStream : public StreamMarkerItf, public Stream {
 public:
  Ref<StreamMarkerItf> ToStreamMarker() override {
    return Derived::Marker(static_cast<Derived&>(*this));
  }
  Ref<StreamMarkerItf> ToStreamMarker() const override {
    return Derived::Marker(static_cast<const Derived&>(*this));
  }

 protected:
  template <class Self>
  static Ref<StreamMarkerItf> Marker(Self& self) {
    return Ref<StreamMarkerItf>(&self);
  }
};

}  // namespace kiv

#endif  // KIV_SRC_IO_STREAM_HELPERS_H_
