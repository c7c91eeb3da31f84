// The converter interfaces' own parts, the factories, the copy, tab, generic block and chained
// converters, and the exported helpers.
#include <cstring>

#include "kiv/converters.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/string.h"
#include "text/converters/converter_impls.h"
#include "unicode/utf_codec.h"

namespace kiv {

using BufferResult = DataConverterItf::BufferResult;

DataConverterItf::~DataConverterItf() = default;
BlockConverterItf::~BlockConverterItf() = default;
BlockConverterExpansionFactorItf::~BlockConverterExpansionFactorItf() = default;
BlockConverterExpansionFactorImpl::~BlockConverterExpansionFactorImpl() = default;

BufferResult DataConverterItf::EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                                             bool end_of_input) {
  return ComputeSizes(out_size, in, in_size, end_of_input);
}

BufferResult BlockConverterItf::EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                                              unsigned& in_size, unsigned in_pos,
                                              bool end_of_input) {
  return ComputeSizes(out_size, out_pos, in, in_size, in_pos, end_of_input);
}

// ---------------------------------------------------------------------------------------------
// Exported helpers

int UTF16toUTF32(std::uint32_t* out, const unsigned short* in, const unsigned short*) {
  *out = *in;
  return 1;
}

int UTF32toUTF16(unsigned short* out, unsigned short* out_end, std::uint32_t c) {
  if (out >= out_end) return 0;
  if (c < codec::kFirstSupplementary) {
    out[0] = static_cast<unsigned short>(c);
    return 1;
  }
  if (c > codec::kMaxScalar) return -1;
  out[0] = codec::LeadSurrogateOf(c);
  if (out_end - out < 2) return 0;
  out[1] = codec::TrailSurrogateOf(c);
  return 2;
}

unsigned DataConverterExp::CopyConverterName(char* dst, unsigned dst_size, const char* src,
                                             unsigned src_len) {
  if (dst == nullptr) return 0;
  if (dst_size == 0 || src == nullptr) {
    // The first byte is cleared even for a size of 0, as it always has been: callers rely on
    // finding the buffer terminated.
    dst[0] = 0;
    return 0;
  }
  unsigned len = src_len != 0 ? src_len : static_cast<unsigned>(std::strlen(src));
  if (len >= dst_size) len = dst_size - 1;
  std::memcpy(dst, src, len);
  dst[len] = 0;
  return len;
}

// ---------------------------------------------------------------------------------------------
// Factories

Ref<BlockConverterExpansionFactorItf> BlockConverterExpansionFactorExp::Make(double factor) {
  return Ref<BlockConverterExpansionFactorItf>(new BlockConverterExpansionFactorImpl(factor));
}

BlockConverter BlockConverterExp::Make(const DataConverter& converter, float factor) {
  return BlockConverter(new BlockConverterImpl(converter, static_cast<double>(factor)));
}

// The shared copy converter with 1-byte blocks.
class SharedCopyConverterHolder : public StaticRef<BlockConverterItf, SharedCopyConverterHolder> {
 public:
  static BlockConverterItf* Make() { return new CopyBlockConverterImpl(1); }
};

BlockConverter BlockCopyConverterExp::Make() {
  static SharedCopyConverterHolder holder;
  return holder.Get();
}

BlockConverter BlockCopyConverterExp::Make(unsigned block_size) {
  if (block_size == 1) return Make();
  return BlockConverter(new CopyBlockConverterImpl(block_size));
}

DataConverter AsciiTab2SpaceDataConverterExp::Make(std::uint32_t tab_width) {
  return DataConverter(new AsciiTab2SpaceDataConverterImpl(tab_width));
}

// ---------------------------------------------------------------------------------------------
// Copy converter

CopyBlockConverterImpl::CopyBlockConverterImpl(unsigned block_size) noexcept
    : block_size_(block_size), mask_(0u - block_size) {}
CopyBlockConverterImpl::~CopyBlockConverterImpl() = default;

BufferResult CopyBlockConverterImpl::SizesBlock(unsigned& out_size, const void*, unsigned& in_size,
                                                bool) {
  if (in_size < block_size_) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  in_size = out_size = in_size & mask_;
  return ResultOK;
}

BufferResult CopyBlockConverterImpl::ConvertBlock(void* out, unsigned& out_size, unsigned& out_pos,
                                                  const void* in, unsigned& in_size,
                                                  unsigned& in_pos, bool end_of_input) {
  unsigned room = out != nullptr ? out_size : 0;
  unsigned computed = 0;
  BufferResult result = SizesBlock(computed, in, in_size, end_of_input);
  if (result != ResultOK) {
    out_size = computed;
    return result;
  }
  unsigned size = computed;
  if (size > room) {
    size = room & mask_;
    if (size == 0) {
      out_size = computed;
      return ResultOutputTooSmall;
    }
  }
  if (size == 0) {
    out_size = 0;
    return ResultOK;
  }
  std::memmove(out, in, size);
  in_size = out_size = size;
  in_pos += size;
  out_pos += size;
  return ResultOK;
}

BufferResult CopyBlockConverterImpl::SizesOne(unsigned& out_size, const void*, unsigned& in_size,
                                              bool) {
  if (in_size < block_size_) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  in_size = out_size = block_size_;
  return ResultOK;
}

BufferResult CopyBlockConverterImpl::ConvertOne(void* out, unsigned& out_size, const void* in,
                                                unsigned& in_size, bool end_of_input) {
  unsigned room = out != nullptr ? out_size : 0;
  BufferResult result = SizesOne(out_size, in, in_size, end_of_input);
  if (result != ResultOK || in_size == 0) return result;
  if (room < block_size_) return ResultOutputTooSmall;  // both sizes already hold N
  std::memmove(out, in, block_size_);
  return ResultOK;
}

// ---------------------------------------------------------------------------------------------
// Tab expansion

AsciiTab2SpaceDataConverterImpl::~AsciiTab2SpaceDataConverterImpl() = default;

BufferResult AsciiTab2SpaceDataConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                           unsigned& in_size, bool) {
  if (NoInput(out_size, in, in_size)) return ResultOK;
  in_size = 1;
  out_size = *static_cast<const unsigned char*>(in) == '\t' ? tab_width_ - column_ % tab_width_ : 1;
  return ResultOK;
}

BufferResult AsciiTab2SpaceDataConverterImpl::Convert(void* out, unsigned& out_size, const void* in,
                                                      unsigned& in_size, bool) {
  if (NoInput(out_size, in, in_size)) return ResultOK;
  const unsigned room = out != nullptr ? out_size : 0;
  const unsigned char c = *static_cast<const unsigned char*>(in);
  in_size = 1;
  if (c == '\t') {
    const unsigned n = tab_width_ - column_ % tab_width_;
    out_size = n;
    if (room < n) return ResultOutputTooSmall;
    std::memset(out, ' ', n);
    column_ += n;
    return ResultOK;
  }
  out_size = 1;
  if (room == 0) return ResultOutputTooSmall;
  *static_cast<unsigned char*>(out) = c;
  // A carriage return is an ordinary character here: only the line feed starts a new line.
  column_ = c == '\n' ? 0 : column_ + 1;
  return ResultOK;
}

// ---------------------------------------------------------------------------------------------
// Generic block converter

BlockConverterImpl::BlockConverterImpl(const DataConverter& converter, double factor)
    : converter_(converter), factor_(BlockConverterExpansionFactorExp::Make(factor)) {}

BlockConverterImpl::~BlockConverterImpl() = default;

double BlockConverterImpl::GetExpansionFactor() { return factor_->GetFactor(); }

BufferResult BlockConverterImpl::EstimateSizes(unsigned& out_size, unsigned, const void* in,
                                               unsigned& in_size, unsigned, bool) {
  if (NoInput(out_size, in, in_size)) return DataConverterItf::ResultOK;
  out_size = static_cast<unsigned>(factor_->GetFactor() * in_size + 0.5);
  return DataConverterItf::ResultOK;
}

BufferResult BlockConverterImpl::ComputeSizes(unsigned& out_size, unsigned, const void* in,
                                              unsigned& in_size, unsigned, bool end_of_input) {
  if (NoInput(out_size, in, in_size)) return DataConverterItf::ResultOK;
  DataConverterItf& dc = converter_.GetObjRef();
  return ComputeByCharacter([&dc](unsigned& os, const void* p, unsigned& is,
                                  bool eoi) { return dc.ComputeSizes(os, p, is, eoi); },
                            out_size, in, in_size, end_of_input);
}

BufferResult BlockConverterImpl::Convert(void* out, unsigned& out_size, unsigned& out_pos,
                                         const void* in, unsigned& in_size, unsigned& in_pos,
                                         bool end_of_input) {
  if (NoInput(out_size, in, in_size)) return DataConverterItf::ResultOK;
  if (out == nullptr || out_size == 0) {
    ComputeSizes(out_size, out_pos, in, in_size, in_pos, end_of_input);
    return DataConverterItf::ResultOutputTooSmall;
  }
  DataConverterItf& dc = converter_.GetObjRef();
  return ContinueByCharacter([&dc](void* o, unsigned& os, const void* p, unsigned& is,
                                   bool eoi) { return dc.Convert(o, os, p, is, eoi); },
                             out, out_size, out_pos, in, in_size, in_pos, end_of_input, 0, 0);
}

// ---------------------------------------------------------------------------------------------
// Chained converter

WrappedConverterImpl::WrappedConverterImpl(const DataConverter& to_wide,
                                           const DataConverter& from_wide,
                                           const DataConverter& wide_op)
    : to_wide_(to_wide), from_wide_(from_wide), wide_op_(wide_op) {}

WrappedConverterImpl::~WrappedConverterImpl() = default;

namespace {

[[noreturn]] void ThrowScratchTooSmall() {
  throw InternalError(String(TextEncodingExp::MakeAscii(), ""));
}

}  // namespace

bool WrappedConverterImpl::ToScratch(unsigned short& wide, unsigned& out_size, const void* in,
                                     unsigned& in_size, bool end_of_input, BufferResult& result) {
  unsigned short first = 0;
  unsigned first_out = sizeof first;
  unsigned first_in = in_size;
  result = to_wide_->Convert(&first, first_out, in, first_in, end_of_input);
  if (result == ResultInputIncomplete) {
    in_size = out_size = 0;
    return false;
  }
  if (result == ResultOutputTooSmall) ThrowScratchTooSmall();
  if (first_in == 0) {  // no input: nothing to do
    in_size = out_size = 0;
    return false;
  }
  unsigned op_out = sizeof wide;
  unsigned op_in = first_out;
  result = wide_op_->Convert(&wide, op_out, &first, op_in, end_of_input);
  if (result == ResultInputIncomplete) {
    in_size = out_size = 0;
    return false;
  }
  if (result == ResultOutputTooSmall) ThrowScratchTooSmall();
  in_size = first_in;
  out_size = op_out;
  return true;
}

BufferResult WrappedConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                unsigned& in_size, bool end_of_input) {
  unsigned short wide = 0;
  unsigned wide_size = 0;
  unsigned consumed = in_size;
  BufferResult result = ResultOK;
  if (!ToScratch(wide, wide_size, in, consumed, end_of_input, result)) {
    in_size = consumed;
    out_size = wide_size;
    return result;
  }
  unsigned last_in = wide_size;
  result = from_wide_->ComputeSizes(out_size, &wide, last_in, end_of_input);
  if (result == ResultInputIncomplete) {
    in_size = out_size = 0;
    return result;
  }
  in_size = consumed;
  return result;
}

BufferResult WrappedConverterImpl::Convert(void* out, unsigned& out_size, const void* in,
                                           unsigned& in_size, bool end_of_input) {
  unsigned short wide = 0;
  unsigned wide_size = 0;
  unsigned consumed = in_size;
  BufferResult result = ResultOK;
  if (!ToScratch(wide, wide_size, in, consumed, end_of_input, result)) {
    in_size = consumed;
    out_size = wide_size;
    return result;
  }
  unsigned last_in = wide_size;
  result = from_wide_->Convert(out, out_size, &wide, last_in, end_of_input);
  if (result == ResultInputIncomplete) {
    in_size = out_size = 0;
    return result;
  }
  in_size = consumed;
  return result;
}

}  // namespace kiv
