// Tight loops for the UTF-8 block converters. See utf8_fast.h for what they promise.
//
// On x86 processors with SSE4.1 (checked once at run time):
// - UTF-8 is taken in blocks of 64 bytes. A block of ASCII is widened at once. A block of valid
//   one- to three-byte characters (checked with byte-class masks of the whole block) is decoded
//   window by window: the mask of bytes that end a character selects, from a table, the shuffle
//   that puts the first characters of the window into lanes, and the block is walked as two
//   interleaved streams (split at a character boundary); runs of three-byte characters need no
//   lookup. Where the processor also has AVX2 (checked once at run time), the block's byte
//   classes take 32 bytes at a time, and blocks that do not open with a run of three-byte
//   characters (CJK text) are decoded 32 positions at a time instead: every position is decoded
//   as if a character started there and a table shuffle gathers the real starts, so no step
//   waits for the one before. The results are the same.
//   Other blocks go window by window: four four-byte characters become surrogate pairs in one
//   step, and anything else (invalid, long or too large sequences) goes through a scalar step.
// - Wide text is taken 8 units at a time: ASCII is narrowed, units below 0x800 and the rest are
//   encoded in lanes and packed with a shuffle chosen by the length of each unit's sequence.
//   Where the processor has AVX2, 16 units at a time the same way, with no table for blocks of
//   units from 0x800 up (CJK text) and, in the standard form, for blocks of eight surrogate pairs;
//   the eight-unit steps take what is left near the end.
// - Validation takes UTF-8 in blocks of 64 bytes, comparing each byte with the three before it:
//   the continuation bytes that lead bytes claim must be exactly the continuation bytes there, and
//   the second byte after E0, ED (standard form), F0 and F4 must lie in its narrower range.
// Without SSE4.1 the scalar steps do all the work (validation skips ASCII eight bytes at a time).
// Whatever a step does not take is left to the per-character loop of the converter.
//
// The steps that the loops are split into are forced inline: gcc left some as calls, which cost
// the block loop several percent.
//
// The vector steps store whole 16-byte vectors of which only a prefix is output. So that no byte
// of `out` beyond the output is touched, they write into a staging area on the stack that is
// copied out exactly.
#include "text/converters/utf8_fast.h"

#include <cstdint>
#include <cstring>

#include "unicode/utf_codec.h"

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define KIV_FAST_X86 1
#include <immintrin.h>
#endif

namespace kiv::fast {
namespace {

// ---------------------------------------------------------------------------------------------
// Scalar steps

// Decodes one character of one to four bytes with a value below 0x110000 at `p`, whose four
// bytes must be readable. Returns its length, or 0 for anything else (invalid, overlong, five or
// six bytes, too large, and in the standard form an encoded surrogate): the per-character rule
// decides about those.
template <bool kStandard>
inline int DecodeCommon(const unsigned char* p, std::uint32_t& value) noexcept {
  const unsigned b0 = p[0];
  if (b0 < 0x80) {
    value = b0;
    return 1;
  }
  const unsigned b1 = p[1];
  if (!codec::IsUtf8Continuation(b1)) return 0;
  if (b0 < 0xE0) {
    if (b0 < 0xC2) return 0;  // continuation byte as lead, or overlong
    value = ((b0 & 0x1F) << 6) | (b1 & 0x3F);
    return 2;
  }
  const unsigned b2 = p[2];
  if (!codec::IsUtf8Continuation(b2)) return 0;
  if (b0 < 0xF0) {
    value = ((b0 & 0x0F) << 12) | ((b1 & 0x3F) << 6) | (b2 & 0x3F);
    return value >= 0x800 && !(kStandard && codec::IsSurrogate(value)) ? 3 : 0;
  }
  const unsigned b3 = p[3];
  if (!codec::IsUtf8Continuation(b3) || b0 >= 0xF8) return 0;
  value = ((b0 & 0x07) << 18) | ((b1 & 0x3F) << 12) | ((b2 & 0x3F) << 6) | (b3 & 0x3F);
  return value >= codec::kFirstSupplementary && value <= codec::kMaxScalar ? 4 : 0;
}

// Writes `value` (at most kMaxScalar) as one unit or a surrogate pair; returns the bytes written.
inline unsigned PutUnits(unsigned char* o, std::uint32_t value) noexcept {
  if (value < codec::kFirstSupplementary) {
    codec::Store16(o, static_cast<std::uint16_t>(value));
    return 2;
  }
  codec::Store16(o, codec::LeadSurrogateOf(value));
  codec::Store16(o + 2, codec::TrailSurrogateOf(value));
  return 4;
}

// Scalar UTF-8 to UTF-16 from `*p` while at least four input bytes and four bytes of room are
// left (so no character can be cut off or not fit) and below `stop`. False when it met a
// character that the per-character rule must handle.
template <bool kStandard>
inline bool Utf8Scalar(const unsigned char*& p, const unsigned char* stop, const unsigned char* end,
                       unsigned char* o, unsigned& w, unsigned room) noexcept {
  while (p < stop && end - p >= 4 && room - w >= 4) {
    std::uint32_t value = 0;
    const int length = DecodeCommon<kStandard>(p, value);
    if (length == 0) return false;
    w += PutUnits(o + w, value);
    p += length;
  }
  return true;
}

// Scalar 16-bit units to UTF-8 from `*p` while a whole unit and room for the longest sequence
// are left and below `stop`. The lenient form writes every unit as it is (a surrogate becomes
// three bytes); the standard form writes a surrogate pair as one four-byte sequence and answers
// false at a surrogate that is not followed by its pair (or whose pair is cut off).
template <bool kStandard>
inline bool Utf16Scalar(const unsigned char*& p, const unsigned char* stop,
                        const unsigned char* end, unsigned char* o, unsigned& w,
                        unsigned room) noexcept {
  constexpr unsigned kLongest = kStandard ? 4 : 3;
  while (p < stop && end - p >= 2 && room - w >= kLongest) {
    std::uint32_t c = codec::Load16(p);
    unsigned units = 1;
    if (kStandard && codec::IsSurrogate(c)) {
      if (!codec::IsLeadSurrogate(c) || end - p < 4) return false;
      const std::uint32_t trail = codec::Load16(p + 2);
      if (!codec::IsTrailSurrogate(trail)) return false;
      c = codec::CombineSurrogates(c, trail);
      units = 2;
    }
    w += static_cast<unsigned>(codec::Utf8Encode(o + w, o + w + kLongest, c));
    p += 2 * units;
  }
  return true;
}

template <bool kStandard>
void Utf8ToUtf16Scalar(unsigned char* out, unsigned out_size, const unsigned char* in,
                       unsigned in_size, unsigned& written, unsigned& consumed) {
  const unsigned char* p = in;
  unsigned w = 0;
  Utf8Scalar<kStandard>(p, in + in_size, in + in_size, out, w, out_size);
  written = w;
  consumed = static_cast<unsigned>(p - in);
}

template <bool kStandard>
void Utf16ToUtf8Scalar(unsigned char* out, unsigned out_size, const unsigned char* in,
                       unsigned in_size, unsigned& written, unsigned& consumed) {
  const unsigned char* p = in;
  unsigned w = 0;
  Utf16Scalar<kStandard>(p, in + in_size, in + in_size, out, w, out_size);
  written = w;
  consumed = static_cast<unsigned>(p - in);
}

// The bytes of the characters of a valid `block` bytes at `p` (starting at a character boundary)
// that end inside it: all of them, unless the last character runs past the end.
inline unsigned WholeCharacters(const unsigned char* p, unsigned block) noexcept {
  unsigned last = block;
  while (last > 0 && codec::IsUtf8Continuation(p[last - 1])) --last;
  if (last == 0) return block;
  const auto length = static_cast<unsigned>(codec::Utf8SequenceLength(p[last - 1]));
  return last - 1 + length <= block ? block : last - 1;
}

// ASCII eight bytes at a time.
std::size_t Utf8ValidPrefixScalar(const unsigned char* in, std::size_t size) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080u;
  std::size_t i = 0;
  for (; size - i >= 8; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, in + i, sizeof word);
    if ((word & kHighBits) != 0) break;
  }
  return i;
}

#if KIV_FAST_X86

// ---------------------------------------------------------------------------------------------
// Sizes of the vector steps

// UTF-8 to UTF-16: the block of bytes classified at once. A block reads up to 68 bytes and gives
// at most 2 output bytes per input byte (plus 16 bytes of store overshoot in the stage); a window
// step reads 16 bytes and gives at most 40.
constexpr unsigned kBlock = 64;
constexpr std::ptrdiff_t kBlockInput = 80;
constexpr unsigned kBlockRoom = 160;
constexpr std::ptrdiff_t kWindowInput = 16;
constexpr unsigned kWindowRoom = 40;
// The last byte at which a stream through a block starts a step (its window reads to byte 67).
constexpr unsigned kLastStepStart = 51;
// The second stream's output: its bytes, and the 16-byte vectors that copy it behind the first's.
constexpr unsigned kTailBytes = 96;
constexpr int kTailVectors = 5;
// The character ends of five three-byte characters in the first 15 bytes of a window.
constexpr std::uint64_t kFiveThreeByteMask = 0x7FFF;
constexpr std::uint64_t kFiveThreeByteEnds = 0x4924;
// The bytes of a window whose character ends index the decoding tables (4096 entries).
constexpr unsigned kTableWindow = 12;

// UTF-16 to UTF-8: eight units a step, which give at most 24 bytes.
constexpr std::ptrdiff_t kWideStepInput = 16;
constexpr unsigned kWideStepRoom = 24;

// ---------------------------------------------------------------------------------------------
// Tables, built at compile time

// UTF-8 windows: the first 12 bytes of a valid window, by the mask of bytes that end a character
// (bit i set when byte i + 1 is not a continuation byte). An entry gives the shuffle that moves
// the bytes of the first characters into lanes, the bytes those characters take and the units
// they give: six characters of one or two bytes in 16-bit lanes (shuffles 0-63, one bit per
// character: two bytes), or else up to four characters of one to three bytes in 32-bit lanes
// (shuffles 64-183, base 3 per character). A lane holds its character's bytes last byte first.
constexpr int kShuffles16 = 64;
constexpr int kShuffles = 64 + 3 + 9 + 27 + 81;

struct Utf8Tables {
  std::uint16_t step[4096];  // shuffle | bytes << 8 | units << 12; 0 bytes: not handled
  std::uint8_t bytes[4096];  // the bytes again, one load away from the next window
  alignas(16) std::int8_t shuffle[kShuffles][16];
};

// Shuffle `id`: the lengths of the characters it takes, then the byte each lane byte comes from.
constexpr void MakeUtf8Shuffle(Utf8Tables& t, int id) {
  for (int i = 0; i < 16; ++i) t.shuffle[id][i] = -128;  // zero
  int lengths[6] = {};
  int count;
  int lane_bytes;
  if (id < kShuffles16) {
    count = 6;
    lane_bytes = 2;
    for (int j = 0; j < 6; ++j) lengths[j] = 1 + ((id >> j) & 1);
  } else {
    int code = id - kShuffles16;
    count = 1;
    for (int span = 3; code >= span; span *= 3) code -= span, ++count;
    lane_bytes = 4;
    for (int j = 0; j < count; ++j, code /= 3) lengths[j] = 1 + code % 3;
  }
  int offset = 0;
  for (int j = 0; j < count; ++j) {
    for (int k = 0; k < lengths[j]; ++k) {
      t.shuffle[id][j * lane_bytes + k] = static_cast<std::int8_t>(offset + lengths[j] - 1 - k);
    }
    offset += lengths[j];
  }
}

// The step of the window whose character ends are `mask`: the lengths of its first characters
// choose the shuffle (six of one or two bytes, else up to four of one to three bytes).
constexpr void MakeUtf8Step(Utf8Tables& t, int mask) {
  int lengths[kTableWindow] = {};
  int count = 0;
  int start = 0;
  for (int i = 0; i < static_cast<int>(kTableWindow); ++i) {
    if ((mask >> i) & 1) {
      lengths[count++] = i - start + 1;
      start = i + 1;
    }
  }
  bool small = count >= 6;
  for (int j = 0; j < 6 && small; ++j) small = lengths[j] <= 2;
  int id = 0;
  int bytes = 0;
  int units = 0;
  if (small) {
    for (int j = 0; j < 6; ++j) id |= (lengths[j] - 1) << j, bytes += lengths[j];
    units = 6;
  } else {
    units = count < 4 ? count : 4;
    int code = 0;
    int offset = 0;
    for (int k = 1, span = 3; k < units; ++k, span *= 3) offset += span;
    bool ok = units > 0;
    for (int j = units - 1; j >= 0; --j) {
      ok = ok && lengths[j] <= 3;
      code = code * 3 + (lengths[j] - 1);
      bytes += lengths[j];
    }
    if (!ok) {
      t.step[mask] = 0;
      t.bytes[mask] = 0;
      return;
    }
    id = kShuffles16 + offset + code;
  }
  t.step[mask] = static_cast<std::uint16_t>(id | bytes << 8 | units << 12);
  t.bytes[mask] = static_cast<std::uint8_t>(bytes);
}

constexpr Utf8Tables MakeUtf8Tables() {
  Utf8Tables t{};
  for (int id = 0; id < kShuffles; ++id) MakeUtf8Shuffle(t, id);
  for (int mask = 0; mask < (1 << kTableWindow); ++mask) MakeUtf8Step(t, mask);
  return t;
}

constexpr Utf8Tables kUtf8Tables = MakeUtf8Tables();

// Compaction of eight 16-bit lanes: for each mask of lanes to keep, the shuffle that moves them,
// in order, to the front, and how many there are.
struct CompactTables {
  alignas(16) std::int8_t shuffle[256][16];
  std::uint8_t count[256];
};

constexpr CompactTables MakeCompactTables() {
  CompactTables t{};
  for (int mask = 0; mask < 256; ++mask) {
    int n = 0;
    for (int lane = 0; lane < 8; ++lane) {
      if ((mask >> lane) & 1) {
        t.shuffle[mask][2 * n] = static_cast<std::int8_t>(2 * lane);
        t.shuffle[mask][2 * n + 1] = static_cast<std::int8_t>(2 * lane + 1);
        ++n;
      }
    }
    for (int i = 2 * n; i < 16; ++i) t.shuffle[mask][i] = -1;
    t.count[mask] = static_cast<std::uint8_t>(n);
  }
  return t;
}
constexpr CompactTables kCompactTables = MakeCompactTables();

// Wide windows. Eight units below 0x800 in 16-bit lanes (lead byte, then continuation byte; an
// ASCII unit uses only its first byte), by the mask of ASCII units; four units in 32-bit lanes
// (one to three bytes each), by the mask of units below 0x80 | the mask of units below 0x800 << 4.
struct Utf16Tables {
  alignas(16) std::int8_t pack12[256][16];
  alignas(16) std::int8_t pack123[256][16];
  std::uint8_t length12[256];
  std::uint8_t length123[256];
};

constexpr Utf16Tables MakeUtf16Tables() {
  Utf16Tables t{};
  for (int m = 0; m < 256; ++m) {
    int n = 0;
    for (int i = 0; i < 16; ++i) t.pack12[m][i] = t.pack123[m][i] = -128;
    for (int j = 0; j < 8; ++j) {
      t.pack12[m][n++] = static_cast<std::int8_t>(2 * j);
      if (!((m >> j) & 1)) t.pack12[m][n++] = static_cast<std::int8_t>(2 * j + 1);
    }
    t.length12[m] = static_cast<std::uint8_t>(n);
    n = 0;
    for (int j = 0; j < 4; ++j) {
      int length = (m >> j) & 1 ? 1 : (m >> (j + 4)) & 1 ? 2 : 3;
      for (int k = 0; k < length; ++k) t.pack123[m][n++] = static_cast<std::int8_t>(4 * j + k);
    }
    t.length123[m] = static_cast<std::uint8_t>(n);
  }
  return t;
}

constexpr Utf16Tables kUtf16Tables = MakeUtf16Tables();

// ---------------------------------------------------------------------------------------------
// Vector steps

constexpr unsigned kStage = 1024;  // staged output bytes before a copy-out
constexpr unsigned kStageSlack = 256;

bool HaveSse41() {
  static const bool have = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("sse4.1") != 0;
  }();
  return have;
}

// Four four-byte characters filling the window: their surrogate pairs (16 bytes), or false.
__attribute__((target("sse4.1"))) inline bool FourByteWindow(__m128i v, __m128i* pairs) {
  const __m128i marks = _mm_set1_epi32(static_cast<int>(0x80808000u));  // lead, then 3 times 80
  const __m128i tags = _mm_and_si128(v, _mm_set1_epi32(static_cast<int>(0xC0C0C0F8u)));
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(tags, _mm_or_si128(marks, _mm_set1_epi32(0xF0)))) !=
      0xFFFF) {
    return false;
  }
  // Payload bits, then value = b0 << 18 | b1 << 12 | b2 << 6 | b3 in each 32-bit lane.
  const __m128i payload = _mm_and_si128(v, _mm_set1_epi32(0x3F3F3F07));
  const __m128i pairs16 = _mm_maddubs_epi16(payload, _mm_set1_epi16(0x0140));  // b0 * 64 + b1
  const __m128i value = _mm_madd_epi16(pairs16, _mm_set1_epi32(0x00011000));   // hi * 4096 + lo
  const __m128i in_range = _mm_and_si128(_mm_cmpgt_epi32(value, _mm_set1_epi32(0xFFFF)),
                                         _mm_cmplt_epi32(value, _mm_set1_epi32(0x110000)));
  if (_mm_movemask_ps(_mm_castsi128_ps(in_range)) != 0xF) return false;
  const __m128i w = _mm_sub_epi32(value, _mm_set1_epi32(0x10000));
  const __m128i high = _mm_or_si128(_mm_srli_epi32(w, 10), _mm_set1_epi32(0xD800));
  const __m128i low = _mm_or_si128(_mm_and_si128(w, _mm_set1_epi32(0x3FF)), _mm_set1_epi32(0xDC00));
  *pairs = _mm_or_si128(high, _mm_slli_epi32(low, 16));
  return true;
}

// Output state of a vector run: bytes go to `stage` first and are copied to `out` exactly.
struct StagedOutput {
  StagedOutput(unsigned char* to, unsigned size) noexcept : out(to), out_size(size) {}

  unsigned char* out;
  unsigned out_size;
  unsigned w = 0;       // output bytes, staged ones included
  unsigned staged = 0;  // bytes in `stage` not yet copied out
  alignas(16) unsigned char stage[kStage + kStageSlack];

  unsigned char* Next() noexcept { return stage + staged; }
  void Add(unsigned bytes) noexcept { staged += bytes, w += bytes; }
  unsigned Room() const noexcept { return out_size - w; }
  void Flush() noexcept {
    std::memcpy(out + (w - staged), stage, staged);
    staged = 0;
  }
  void MakeRoom() noexcept {
    if (staged > kStage) Flush();
  }
};

__attribute__((target("sse4.1"))) inline void WidenAscii16(__m128i v, unsigned char* o) {
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_unpacklo_epi8(v, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 16), _mm_unpackhi_epi8(v, zero));
}

// Decodes the first characters of a valid window `v` (no byte from 0xF0 up) whose ends are given
// by `ends` (bit i: byte i ends a character) into `dst` (16 bytes are stored). Returns the input
// bytes taken (0: none) and adds the output bytes to `out_bytes`.
__attribute__((target("sse4.1"))) inline unsigned DecodeWindow(__m128i v, unsigned ends,
                                                               unsigned char* dst,
                                                               unsigned& out_bytes) {
  const unsigned step = kUtf8Tables.step[ends & 0xFFF];
  const unsigned bytes = kUtf8Tables.bytes[ends & 0xFFF];
  if (bytes == 0) return 0;
  const unsigned id = step & 0xFF;
  const __m128i shuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(kUtf8Tables.shuffle[id]));
  const __m128i lanes = _mm_shuffle_epi8(v, shuffle);
  __m128i result;
  if (id < kShuffles16) {
    const __m128i ascii = _mm_and_si128(lanes, _mm_set1_epi16(0x7F));
    const __m128i lead_bits = _mm_and_si128(lanes, _mm_set1_epi16(0x1F00));
    result = _mm_or_si128(ascii, _mm_srli_epi16(lead_bits, 2));
  } else {
    const __m128i ascii = _mm_and_si128(lanes, _mm_set1_epi32(0x7F));
    const __m128i middle = _mm_and_si128(lanes, _mm_set1_epi32(0x3F00));
    const __m128i top = _mm_and_si128(lanes, _mm_set1_epi32(0x0F0000));
    const __m128i value =
        _mm_or_si128(_mm_or_si128(ascii, _mm_srli_epi32(middle, 2)), _mm_srli_epi32(top, 4));
    result = _mm_packus_epi32(value, value);
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), result);
  out_bytes += 2 * (step >> 12);
  return bytes;
}

// Five valid three-byte characters at the start of `v` (common in CJK text) into `dst`.
__attribute__((target("sse4.1"))) inline void DecodeFiveThreeByte(__m128i v, unsigned char* dst) {
  // 16-bit lanes: first and second byte (lead high), and third byte.
  const __m128i lead_first =
      _mm_shuffle_epi8(v, _mm_setr_epi8(1, 0, 4, 3, 7, 6, 10, 9, 13, 12, -1, -1, -1, -1, -1, -1));
  const __m128i last = _mm_shuffle_epi8(
      v, _mm_setr_epi8(2, -1, 5, -1, 8, -1, 11, -1, 14, -1, -1, -1, -1, -1, -1, -1));
  const __m128i top = _mm_slli_epi16(_mm_and_si128(lead_first, _mm_set1_epi16(0x0F00)), 4);
  const __m128i middle = _mm_slli_epi16(_mm_and_si128(lead_first, _mm_set1_epi16(0x3F)), 6);
  const __m128i value =
      _mm_or_si128(_mm_or_si128(top, middle), _mm_and_si128(last, _mm_set1_epi16(0x3F)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), value);
}

__attribute__((target("sse4.1"))) inline unsigned Mask(__m128i m) {
  return static_cast<unsigned>(_mm_movemask_epi8(m));
}

// Byte classes of 16 bytes, as masks of their positions (bytes compare as signed).
struct ByteClasses {
  unsigned high;       // 80-FF
  unsigned cont;       // 80-BF
  unsigned lead3;      // E0-FF
  unsigned lead4;      // F0-FF
  unsigned overlong2;  // C0 C1
  unsigned e0;         // E0
  unsigned ed;         // ED
  unsigned low_cont;   // 80-9F
};

__attribute__((target("sse4.1"))) inline ByteClasses Classify(__m128i v) {
  ByteClasses c;
  c.high = Mask(v);
  c.cont = Mask(_mm_cmplt_epi8(v, _mm_set1_epi8(-64)));
  c.lead3 = Mask(_mm_cmpgt_epi8(v, _mm_set1_epi8(-33))) & c.high;
  c.lead4 = Mask(_mm_cmpgt_epi8(v, _mm_set1_epi8(-17))) & c.high;
  c.overlong2 = Mask(_mm_cmplt_epi8(v, _mm_set1_epi8(-62))) & ~c.cont;
  c.e0 = Mask(_mm_cmpeq_epi8(v, _mm_set1_epi8(-32)));
  c.ed = Mask(_mm_cmpeq_epi8(v, _mm_set1_epi8(-19)));
  c.low_cont = Mask(_mm_cmplt_epi8(v, _mm_set1_epi8(-96)));
  return c;
}

// Positions (of `bits` positions) where the text breaks the rules for one- to three-byte
// characters: a continuation byte that no lead byte before it expects or an expected one that is
// missing (checked for the positions inside the span only), an overlong form, a byte from 0xF0 up,
// and in the standard form an encoded surrogate (ED A0-BF).
template <bool kStandard, class M>
inline M BadPositions(M high, M cont, M lead3, M lead4, M overlong2, M e0, M ed,
                      M low_cont) noexcept {
  const M lead = high & ~cont;
  const M expected = (lead << 1) | (lead3 << 2);
  M bad = (expected ^ cont) | overlong2 | ((e0 << 1) & low_cont) | lead4;
  if constexpr (kStandard) bad |= (ed << 1) & cont & ~low_cont;
  return bad;
}

// One step over the 16-byte window at `p`; false when the per-character rule must take over.
template <bool kStandard>
__attribute__((target("sse4.1"))) inline bool WindowStep(const unsigned char*& p,
                                                         const unsigned char* end,
                                                         StagedOutput& o) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const unsigned high = Mask(v);
  if (high == 0) {
    WidenAscii16(v, o.Next());
    o.Add(32);
    p += 16;
    return true;
  }
  const unsigned lead4 = Mask(_mm_cmpgt_epi8(v, _mm_set1_epi8(-17))) & high;  // F0-FF
  if (lead4 == 0) {
    const ByteClasses c = Classify(v);
    const unsigned bad = BadPositions<kStandard>(c.high, c.cont, c.lead3, c.lead4, c.overlong2,
                                                 c.e0, c.ed, c.low_cont) &
                         0xFFFF;
    if (bad == 0) {
      unsigned out_bytes = 0;
      const unsigned bytes = DecodeWindow(v, ~(c.cont >> 1), o.Next(), out_bytes);
      if (bytes != 0) {
        o.Add(out_bytes);
        p += bytes;
        return true;
      }
    }
  } else if (lead4 == 0x1111) {
    __m128i pairs;
    if (FourByteWindow(v, &pairs)) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(o.Next()), pairs);
      o.Add(16);
      p += 16;
      return true;
    }
  }
  // Anything else: the characters starting in this window one by one (at most 2 output bytes
  // per input byte, and 4 more for a last character running past the window).
  unsigned local = 0;
  const bool common = Utf8Scalar<kStandard>(p, p + 16, end, o.Next(), local, o.Room());
  o.Add(local);
  return common;
}

// One step of a stream through a valid block at `p` from byte `pos`: characters may use the
// first `limit` bytes, and character ends are known for the first `known` bytes. Returns the
// bytes taken (0: none) and adds the output to `out_bytes` (written at `dst + out_bytes`).
__attribute__((target("sse4.1"))) inline unsigned BlockStep(const unsigned char* p,
                                                            std::uint64_t high, std::uint64_t ends,
                                                            unsigned pos, unsigned limit,
                                                            unsigned known, unsigned char* dst,
                                                            unsigned& out_bytes) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + pos));
  if (pos + 16 <= limit && ((high >> pos) & 0xFFFF) == 0) {
    WidenAscii16(v, dst + out_bytes);
    out_bytes += 32;
    return 16;
  }
  if (pos + 15 <= known && ((ends >> pos) & kFiveThreeByteMask) == kFiveThreeByteEnds) {
    DecodeFiveThreeByte(v, dst + out_bytes);
    out_bytes += 10;
    return 15;
  }
  unsigned window = static_cast<unsigned>(ends >> pos);
  if (known - pos < kTableWindow) window &= (1u << (known - pos)) - 1;
  return DecodeWindow(v, window, dst + out_bytes, out_bytes);
}

// The byte classes of a 64-byte block, one bit a byte (see ByteClasses).
struct BlockClasses {
  std::uint64_t high = 0, cont = 0, lead3 = 0, lead4 = 0, overlong2 = 0, e0 = 0, ed = 0;
  std::uint64_t low_cont = 0;
};

__attribute__((target("sse4.1"), always_inline)) inline BlockClasses ClassifyBlock(
    const __m128i (&v)[4]) {
  BlockClasses b;
  for (int k = 0; k < 4; ++k) {
    const ByteClasses c = Classify(v[k]);
    b.high |= std::uint64_t{c.high} << (16 * k);
    b.cont |= std::uint64_t{c.cont} << (16 * k);
    b.lead3 |= std::uint64_t{c.lead3} << (16 * k);
    b.lead4 |= std::uint64_t{c.lead4} << (16 * k);
    b.overlong2 |= std::uint64_t{c.overlong2} << (16 * k);
    b.e0 |= std::uint64_t{c.e0} << (16 * k);
    b.ed |= std::uint64_t{c.ed} << (16 * k);
    b.low_cont |= std::uint64_t{c.low_cont} << (16 * k);
  }
  return b;
}

// A block that is not all valid one- to three-byte characters, window by window; false when the
// per-character rule must take over.
template <bool kStandard>
__attribute__((target("sse4.1"), always_inline)) inline bool WindowsThroughBlock(
    const unsigned char*& p, const unsigned char* end, StagedOutput& o) {
  const unsigned char* block_end = p + kBlock;
  bool common = true;
  while (common && p < block_end) common = WindowStep<kStandard>(p, end, o);
  return common;
}

// The lanes of `values` kept by `mask` (eight bits), stored at `dst` (16 bytes are stored);
// returns the output bytes.
__attribute__((target("sse4.1"), always_inline)) inline unsigned StoreKept(__m128i values,
                                                                           unsigned mask,
                                                                           unsigned char* dst) {
  const __m128i shuffle =
      _mm_load_si128(reinterpret_cast<const __m128i*>(kCompactTables.shuffle[mask]));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_shuffle_epi8(values, shuffle));
  return 2u * kCompactTables.count[mask];
}

// The character starts of a valid block that are decoded: all of them, unless the last character
// runs past the block; it is then left for the next block, whose first byte it becomes. `taken`
// receives the input bytes taken (a character boundary).
inline std::uint64_t StartsToDecode(std::uint64_t high, std::uint64_t cont, std::uint64_t lead3,
                                    unsigned& taken) noexcept {
  const std::uint64_t starts = ~cont;
  const unsigned last = 63 - static_cast<unsigned>(__builtin_clzll(starts));
  const unsigned last_length = ((high >> last) & 1) == 0 ? 1 : ((lead3 >> last) & 1) != 0 ? 3 : 2;
  if (last + last_length <= kBlock) {
    taken = kBlock;
    return starts;
  }
  taken = last;
  return starts & ((std::uint64_t{1} << last) - 1);
}

// Where the processor has AVX2 (checked once at run time), a block's byte classes are found 32
// bytes at a time, and a block of valid one- to three-byte characters is decoded by its starts:
// every position is decoded as if a character started there, and a table shuffle gathers the
// positions where one does (StartsToDecode says which, at the block's end), so no step waits for
// the one before. Both are called once a block, so they stay out of line.
bool HaveAvx2() {
  static const bool have = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return have;
}

__attribute__((target("avx2"), always_inline)) inline std::uint64_t Mask32(__m256i m, int half) {
  return std::uint64_t{static_cast<std::uint32_t>(_mm256_movemask_epi8(m))} << (32 * half);
}

// Byte comparisons of 32 bytes with one value (bytes compare as signed, as in Classify).
__attribute__((target("avx2"), always_inline)) inline __m256i Below(__m256i v, char x) {
  return _mm256_cmpgt_epi8(_mm256_set1_epi8(x), v);
}
__attribute__((target("avx2"), always_inline)) inline __m256i Above(__m256i v, char x) {
  return _mm256_cmpgt_epi8(v, _mm256_set1_epi8(x));
}
__attribute__((target("avx2"), always_inline)) inline __m256i Equal(__m256i v, char x) {
  return _mm256_cmpeq_epi8(v, _mm256_set1_epi8(x));
}

__attribute__((target("avx2"), noinline)) BlockClasses ClassifyBlockAvx2(const unsigned char* p) {
  BlockClasses b;
  for (int k = 0; k < 2; ++k) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32 * k));
    const std::uint64_t high = Mask32(v, k);
    const std::uint64_t cont = Mask32(Below(v, -64), k);
    b.high |= high;
    b.cont |= cont;
    b.lead3 |= Mask32(Above(v, -33), k) & high;
    b.lead4 |= Mask32(Above(v, -17), k) & high;
    b.overlong2 |= Mask32(Below(v, -62), k) & ~cont;
    b.e0 |= Mask32(Equal(v, -32), k);
    b.ed |= Mask32(Equal(v, -19), k);
    b.low_cont |= Mask32(Below(v, -96), k);
  }
  return b;
}

// Sixteen positions as 16-bit lanes: `x` holds each position's byte and the next
// (b_i | b_i+1 << 8), `z` the byte after that. Every lane is decoded as if a character started
// there; the caller keeps the lanes where one does.
template <bool kThree>
__attribute__((target("avx2"), always_inline)) inline __m256i DecodeLanesAvx2(__m256i x,
                                                                              __m256i z) {
  const __m256i lead = _mm256_and_si256(x, _mm256_set1_epi16(0xFF));
  const __m256i ascii = _mm256_and_si256(x, _mm256_set1_epi16(0x7F));
  const __m256i second = _mm256_and_si256(_mm256_srli_epi16(x, 8), _mm256_set1_epi16(0x3F));
  const __m256i two =
      _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(x, _mm256_set1_epi16(0x1F)), 6), second);
  const __m256i is_ascii = _mm256_cmpgt_epi16(_mm256_set1_epi16(0x80), lead);
  if constexpr (!kThree) return _mm256_blendv_epi8(two, ascii, is_ascii);
  const __m256i three = _mm256_or_si256(
      _mm256_or_si256(_mm256_slli_epi16(x, 12),
                      _mm256_and_si256(_mm256_srli_epi16(x, 2), _mm256_set1_epi16(0x0FC0))),
      _mm256_and_si256(z, _mm256_set1_epi16(0x3F)));
  const __m256i is_three = _mm256_cmpgt_epi16(lead, _mm256_set1_epi16(0xDF));
  return _mm256_blendv_epi8(_mm256_blendv_epi8(two, three, is_three), ascii, is_ascii);
}

template <bool kThree>
__attribute__((target("avx2"), noinline)) unsigned DecodeStartsBlockAvx2(
    const unsigned char* p, std::uint64_t high, std::uint64_t cont, std::uint64_t lead3,
    unsigned char* dst, unsigned& out_bytes) {
  unsigned taken;
  const std::uint64_t keep = StartsToDecode(high, cont, lead3, taken);
  const __m256i zero = _mm256_setzero_si256();
  unsigned w = out_bytes;
  for (unsigned at = 0; at < kBlock; at += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + at));
    const __m256i n1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + at + 1));
    const __m256i n2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + at + 2));
    // Unpacking works within each 128-bit half: `low` holds positions 0-7 and 16-23, `upper`
    // 8-15 and 24-31.
    const __m256i low =
        DecodeLanesAvx2<kThree>(_mm256_unpacklo_epi8(v, n1), _mm256_unpacklo_epi8(n2, zero));
    const __m256i upper =
        DecodeLanesAvx2<kThree>(_mm256_unpackhi_epi8(v, n1), _mm256_unpackhi_epi8(n2, zero));
    const auto bits = static_cast<unsigned>(keep >> at);
    w += StoreKept(_mm256_castsi256_si128(low), bits & 0xFF, dst + w);
    w += StoreKept(_mm256_castsi256_si128(upper), (bits >> 8) & 0xFF, dst + w);
    w += StoreKept(_mm256_extracti128_si256(low, 1), (bits >> 16) & 0xFF, dst + w);
    w += StoreKept(_mm256_extracti128_si256(upper, 1), (bits >> 24) & 0xFF, dst + w);
  }
  out_bytes = w;
  return taken;
}

// Decodes a block of valid one- to three-byte characters (those running past the block are
// checked only up to its end) into `dst`. Returns the input bytes taken and adds the output to
// `out_bytes`. The block is taken as two streams, split at the first character boundary from
// byte 32, whose steps interleave: each step waits for the table lookup of the one before in its
// stream; `tail` holds the second stream's output. Runs of three-byte characters (CJK text) need
// no lookups and go in one stream.
__attribute__((target("sse4.1"), always_inline)) inline unsigned DecodeValidBlock(
    const unsigned char* p, std::uint64_t high, std::uint64_t cont, unsigned char* dst,
    unsigned char* tail, unsigned& out_bytes) {
  const std::uint64_t ends = ~(cont >> 1);
  if ((ends & kFiveThreeByteMask) == kFiveThreeByteEnds) {
    unsigned pos = 0;
    while (pos <= kLastStepStart) {
      const unsigned n = BlockStep(p, high, ends, pos, kBlock, kBlock - 1, dst, out_bytes);
      if (n == 0) break;
      pos += n;
    }
    return pos;
  }
  unsigned split = kBlock / 2;
  while ((cont >> split) & 1) ++split;
  unsigned first_pos = 0, first_out = 0, pos = split, second_out = 0;
  bool first_on = true, second_on = true;
  while (first_on || second_on) {
    if (first_on) {
      const unsigned n = BlockStep(p, high, ends, first_pos, split, split, dst, first_out);
      first_pos += n;
      first_on = n != 0 && first_pos < split;
    }
    if (second_on) {
      const unsigned n = BlockStep(p, high, ends, pos, kBlock, kBlock - 1, tail, second_out);
      pos += n;
      second_on = n != 0 && pos <= kLastStepStart;
    }
  }
  out_bytes += first_out;
  if (first_pos < split) return first_pos;
  for (int k = 0; k < kTailVectors; ++k) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + first_out + 16 * k),
                     _mm_load_si128(reinterpret_cast<const __m128i*>(tail + 16 * k)));
  }
  out_bytes += second_out;
  return pos;
}

// Blocks of 64 bytes are classified at once, so that stepping from one character window to the
// next waits only for a table lookup, not for a load and its classification.
template <bool kStandard>
__attribute__((target("sse4.1"))) void Utf8ToUtf16Sse(unsigned char* out, unsigned out_size,
                                                      const unsigned char* in, unsigned in_size,
                                                      unsigned& written, unsigned& consumed) {
  StagedOutput o(out, out_size);
  const unsigned char* p = in;
  const unsigned char* const end = in + in_size;
  bool common = true;
  alignas(16) unsigned char tail[kTailBytes] = {};  // the second stream's output
  while (common && end - p >= kBlockInput && o.Room() >= kBlockRoom) {
    o.MakeRoom();
    __m128i v[4];
    for (int k = 0; k < 4; ++k)
      v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
    const __m128i any = _mm_or_si128(_mm_or_si128(v[0], v[1]), _mm_or_si128(v[2], v[3]));
    if (Mask(any) == 0) {
      for (int k = 0; k < 4; ++k) WidenAscii16(v[k], o.Next() + 32 * k);
      o.Add(2 * kBlock);
      p += kBlock;
      continue;
    }
    const __m128i top = _mm_max_epu8(_mm_max_epu8(v[0], v[1]), _mm_max_epu8(v[2], v[3]));
    if (Mask(_mm_cmpgt_epi8(top, _mm_set1_epi8(-17))) & Mask(top)) {  // a byte from 0xF0 up
      common = WindowsThroughBlock<kStandard>(p, end, o);
      continue;
    }
    const bool avx2 = HaveAvx2();
    const BlockClasses c = avx2 ? ClassifyBlockAvx2(p) : ClassifyBlock(v);
    if (BadPositions<kStandard>(c.high, c.cont, c.lead3, c.lead4, c.overlong2, c.e0, c.ed,
                                c.low_cont) != 0) {
      common = WindowsThroughBlock<kStandard>(p, end, o);
      continue;
    }
    unsigned out_bytes = 0;
    // Runs of three-byte characters (CJK text) decode fastest window by window; other text by its
    // starts where AVX2 allows.
    unsigned pos;
    if ((~(c.cont >> 1) & kFiveThreeByteMask) == kFiveThreeByteEnds) {
      pos = DecodeValidBlock(p, c.high, c.cont, o.Next(), tail, out_bytes);
    } else if (avx2) {
      pos = c.lead3 == 0
                ? DecodeStartsBlockAvx2<false>(p, c.high, c.cont, c.lead3, o.Next(), out_bytes)
                : DecodeStartsBlockAvx2<true>(p, c.high, c.cont, c.lead3, o.Next(), out_bytes);
    } else {
      pos = DecodeValidBlock(p, c.high, c.cont, o.Next(), tail, out_bytes);
    }
    o.Add(out_bytes);
    p += pos;
    if (pos == 0) common = WindowStep<kStandard>(p, end, o);
  }
  while (common && end - p >= kWindowInput && o.Room() >= kWindowRoom) {
    o.MakeRoom();
    common = WindowStep<kStandard>(p, end, o);
  }
  o.Flush();
  unsigned w = o.w;
  if (common) Utf8Scalar<kStandard>(p, end, end, out, w, out_size);
  written = w;
  consumed = static_cast<unsigned>(p - in);
}

// Eight units below 0x800 as one- and two-byte sequences at `dst` (16 bytes are stored); returns
// the bytes of the sequences.
__attribute__((target("sse4.1"), always_inline)) inline unsigned EncodeBelow800(
    __m128i a, unsigned char* dst) {
  const __m128i ascii = _mm_cmplt_epi16(a, _mm_set1_epi16(0x80));
  const unsigned mask =
      static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(ascii, ascii))) & 0xFF;
  const __m128i lead = _mm_or_si128(_mm_srli_epi16(a, 6), _mm_set1_epi16(0xC0));
  const __m128i tail = _mm_or_si128(_mm_and_si128(a, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80));
  const __m128i two = _mm_or_si128(lead, _mm_slli_epi16(tail, 8));
  const __m128i lanes = _mm_blendv_epi8(two, a, ascii);
  const __m128i shuffle =
      _mm_load_si128(reinterpret_cast<const __m128i*>(kUtf16Tables.pack12[mask]));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_shuffle_epi8(lanes, shuffle));
  return kUtf16Tables.length12[mask];
}

// Eight units (no surrogates in the standard form) as one- to three-byte sequences at `dst`, four
// at a time in 32-bit lanes; returns the bytes of the sequences (16 more bytes may be stored).
__attribute__((target("sse4.1"), always_inline)) inline unsigned EncodeUnits(__m128i a,
                                                                             unsigned char* dst) {
  unsigned length = 0;
  for (int half = 0; half < 2; ++half) {
    const __m128i u = _mm_cvtepu16_epi32(half == 0 ? a : _mm_srli_si128(a, 8));
    const __m128i low6 = _mm_or_si128(_mm_and_si128(u, _mm_set1_epi32(0x3F)), _mm_set1_epi32(0x80));
    const __m128i mid6 = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0x3F)),
                                      _mm_set1_epi32(0x80));
    const __m128i three =
        _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 12), _mm_set1_epi32(0xE0)),
                     _mm_or_si128(_mm_slli_epi32(mid6, 8), _mm_slli_epi32(low6, 16)));
    const __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0xC0)),
                                     _mm_slli_epi32(low6, 8));
    const __m128i is1 = _mm_cmplt_epi32(u, _mm_set1_epi32(0x80));
    const __m128i is2 = _mm_cmplt_epi32(u, _mm_set1_epi32(0x800));
    const __m128i lanes = _mm_blendv_epi8(_mm_blendv_epi8(three, two, is2), u, is1);
    const unsigned index = static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(is1))) |
                           static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(is2))) << 4;
    const __m128i shuffle =
        _mm_load_si128(reinterpret_cast<const __m128i*>(kUtf16Tables.pack123[index]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + length), _mm_shuffle_epi8(lanes, shuffle));
    length += kUtf16Tables.length123[index];
  }
  return length;
}

// One step of eight units, or sixteen when they and the next eight are ASCII. False at a
// surrogate without its pair (standard form).
template <bool kStandard>
__attribute__((target("sse4.1"), always_inline)) inline bool WideStep(const unsigned char*& p,
                                                                      const unsigned char* end,
                                                                      StagedOutput& o) {
  const __m128i not_ascii = _mm_set1_epi16(static_cast<short>(0xFF80));
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  if (_mm_testz_si128(a, not_ascii)) {
    if (end - p >= 32) {
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
      if (_mm_testz_si128(b, not_ascii)) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o.Next()), _mm_packus_epi16(a, b));
        o.Add(16);
        p += 32;
        return true;
      }
    }
    _mm_storel_epi64(reinterpret_cast<__m128i*>(o.Next()), _mm_packus_epi16(a, a));
    o.Add(8);
    p += 16;
    return true;
  }
  if (kStandard) {
    const __m128i top5 = _mm_and_si128(a, _mm_set1_epi16(static_cast<short>(0xF800)));
    if (!_mm_testz_si128(_mm_cmpeq_epi16(top5, _mm_set1_epi16(static_cast<short>(0xD800))),
                         _mm_set1_epi16(-1))) {
      // Surrogates: these eight units one by one (a pair may end one unit past them).
      unsigned local = 0;
      const bool paired = Utf16Scalar<true>(p, p + 16, end, o.Next(), local, o.Room());
      o.Add(local);
      return paired;
    }
  }
  o.Add(_mm_testz_si128(a, _mm_set1_epi16(static_cast<short>(0xF800)))  // all below 0x800
            ? EncodeBelow800(a, o.Next())
            : EncodeUnits(a, o.Next()));
  p += 16;
  return true;
}

// What both wide drivers end with: eight-unit steps from `p` while they fit, the staged bytes
// copied out, then the rest unit by unit unless a step stopped at a lone surrogate (`common`
// false). Inlined into each driver, so that the loop state stays in registers.
template <bool kStandard>
__attribute__((target("sse4.1"), always_inline)) inline void FinishWide(
    const unsigned char* in, const unsigned char* p, const unsigned char* end, bool common,
    StagedOutput& o, unsigned& written, unsigned& consumed) {
  while (common && end - p >= kWideStepInput && o.Room() >= kWideStepRoom) {
    o.MakeRoom();
    common = WideStep<kStandard>(p, end, o);
  }
  o.Flush();
  unsigned w = o.w;
  if (common) Utf16Scalar<kStandard>(p, end, end, o.out, w, o.out_size);
  written = w;
  consumed = static_cast<unsigned>(p - in);
}

template <bool kStandard>
__attribute__((target("sse4.1"))) void Utf16ToUtf8Sse(unsigned char* out, unsigned out_size,
                                                      const unsigned char* in, unsigned in_size,
                                                      unsigned& written, unsigned& consumed) {
  StagedOutput o(out, out_size);
  FinishWide<kStandard>(in, in, in + in_size, true, o, written, consumed);
}

// Where the processor has AVX2, wide text is taken 16 units at a time (32 when ASCII), in the
// forms that real text has whole blocks of: ASCII, units below 0x800, units from 0x800 up
// (CJK text), any mix of one- to three-byte units (four units to a table shuffle) and, in the
// standard form, eight surrogate pairs (emoji); other blocks with surrogates go unit by unit.
// What is left near the end goes through the eight-unit steps (FinishWide), so they run here too.
// It is a driver of its own (chosen for input of at least one block) rather than a loop called out
// of line from the SSE4.1 driver: there the stores through the stage made the compiler keep the
// loop's state in memory, and ASCII took twice as long.
constexpr std::ptrdiff_t kWideBlockInput = 32;
constexpr unsigned kWideBlockRoom = 48;

// The two 128-bit halves of `v` stored at `dst` and `dst + lo` (16 bytes each).
__attribute__((target("avx2"), always_inline)) inline void StoreHalves(__m256i v, unsigned lo,
                                                                       unsigned char* dst) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + lo), _mm256_extracti128_si256(v, 1));
}

// A table shuffle for each 128-bit half.
__attribute__((target("avx2"), always_inline)) inline __m256i TableShuffles(const std::int8_t* lo,
                                                                            const std::int8_t* hi) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(lo))),
      _mm_load_si128(reinterpret_cast<const __m128i*>(hi)), 1);
}

// Sixteen units below 0x800 as one- and two-byte sequences at `dst` (32 bytes may be stored);
// returns the bytes of the sequences.
__attribute__((target("avx2"), always_inline)) inline unsigned EncodeBelow800Avx2(
    __m256i a, unsigned char* dst) {
  const __m256i ascii = _mm256_cmpgt_epi16(_mm256_set1_epi16(0x80), a);
  const auto mask = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(ascii, ascii)));
  const unsigned m0 = mask & 0xFF, m1 = (mask >> 16) & 0xFF;
  const __m256i lead = _mm256_or_si256(_mm256_srli_epi16(a, 6), _mm256_set1_epi16(0xC0));
  const __m256i tail =
      _mm256_or_si256(_mm256_and_si256(a, _mm256_set1_epi16(0x3F)), _mm256_set1_epi16(0x80));
  const __m256i two = _mm256_or_si256(lead, _mm256_slli_epi16(tail, 8));
  const __m256i lanes = _mm256_blendv_epi8(two, a, ascii);
  const __m256i packed =
      _mm256_shuffle_epi8(lanes, TableShuffles(kUtf16Tables.pack12[m0], kUtf16Tables.pack12[m1]));
  StoreHalves(packed, kUtf16Tables.length12[m0], dst);
  return kUtf16Tables.length12[m0] + kUtf16Tables.length12[m1];
}

// Eight units in 32-bit lanes as their three-byte sequences (first byte lowest).
__attribute__((target("avx2"), always_inline)) inline __m256i ThreeBytes(__m256i u) {
  const __m256i low6 =
      _mm256_or_si256(_mm256_and_si256(u, _mm256_set1_epi32(0x3F)), _mm256_set1_epi32(0x80));
  const __m256i mid6 = _mm256_or_si256(
      _mm256_and_si256(_mm256_srli_epi32(u, 6), _mm256_set1_epi32(0x3F)), _mm256_set1_epi32(0x80));
  return _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(u, 12), _mm256_set1_epi32(0xE0)),
                         _mm256_or_si256(_mm256_slli_epi32(mid6, 8), _mm256_slli_epi32(low6, 16)));
}

// Sixteen units (no surrogates in the standard form) as one- to three-byte sequences at `dst`
// (up to 52 bytes are stored); returns the bytes of the sequences. The units are widened to 32-bit
// lanes in two vectors: `units[0]` holds units 0-3 and 8-11, `units[1]` units 4-7 and 12-15. With
// `kAllThree` every unit is from 0x800 up, and the shuffle is always the same.
template <bool kAllThree>
__attribute__((target("avx2"), always_inline)) inline unsigned EncodeUnitsAvx2(__m256i a,
                                                                               unsigned char* dst) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i units[2] = {_mm256_unpacklo_epi16(a, zero), _mm256_unpackhi_epi16(a, zero)};
  __m256i packed[2];
  unsigned lengths[4];  // units 0-3, 4-7, 8-11, 12-15
  for (int k = 0; k < 2; ++k) {
    const __m256i u = units[k];
    const __m256i three = ThreeBytes(u);
    if (kAllThree) {
      const __m128i shuffle =
          _mm_load_si128(reinterpret_cast<const __m128i*>(kUtf16Tables.pack123[0]));
      packed[k] = _mm256_shuffle_epi8(three, _mm256_broadcastsi128_si256(shuffle));
      lengths[k] = lengths[k + 2] = 12;
      continue;
    }
    const __m256i low6 =
        _mm256_or_si256(_mm256_and_si256(u, _mm256_set1_epi32(0x3F)), _mm256_set1_epi32(0x80));
    const __m256i two =
        _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(u, 6), _mm256_set1_epi32(0xC0)),
                        _mm256_slli_epi32(low6, 8));
    const __m256i is1 = _mm256_cmpgt_epi32(_mm256_set1_epi32(0x80), u);
    const __m256i is2 = _mm256_cmpgt_epi32(_mm256_set1_epi32(0x800), u);
    const __m256i lanes = _mm256_blendv_epi8(_mm256_blendv_epi8(three, two, is2), u, is1);
    const auto m1 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(is1)));
    const auto m2 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(is2)));
    const unsigned first = (m1 & 0xF) | (m2 & 0xF) << 4, second = (m1 >> 4) | (m2 & 0xF0);
    packed[k] = _mm256_shuffle_epi8(
        lanes, TableShuffles(kUtf16Tables.pack123[first], kUtf16Tables.pack123[second]));
    lengths[k] = kUtf16Tables.length123[first];
    lengths[k + 2] = kUtf16Tables.length123[second];
  }
  unsigned length = 0;
  for (int k = 0; k < 4; ++k) {
    const __m256i v = packed[k & 1];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + length),
                     k < 2 ? _mm256_castsi256_si128(v) : _mm256_extracti128_si256(v, 1));
    length += lengths[k];
  }
  return length;
}

// Eight surrogate pairs (a lead unit, then a trail unit, in each 32-bit lane) as four-byte
// sequences.
__attribute__((target("avx2"), always_inline)) inline __m256i EncodePairsAvx2(__m256i pairs) {
  const __m256i ten = _mm256_set1_epi32(0x3FF);
  const __m256i six = _mm256_set1_epi32(0x3F);
  const __m256i value =
      _mm256_add_epi32(_mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(pairs, ten), 10),
                                       _mm256_and_si256(_mm256_srli_epi32(pairs, 16), ten)),
                       _mm256_set1_epi32(0x10000));
  const __m256i b0 = _mm256_srli_epi32(value, 18);
  const __m256i b1 = _mm256_slli_epi32(_mm256_and_si256(_mm256_srli_epi32(value, 12), six), 8);
  const __m256i b2 = _mm256_slli_epi32(_mm256_and_si256(_mm256_srli_epi32(value, 6), six), 16);
  const __m256i b3 = _mm256_slli_epi32(_mm256_and_si256(value, six), 24);
  const __m256i marks = _mm256_set1_epi32(static_cast<int>(0x808080F0u));
  return _mm256_or_si256(_mm256_or_si256(_mm256_or_si256(b0, b1), _mm256_or_si256(b2, b3)), marks);
}

// One step of sixteen units, or 32 when they and the next 16 are ASCII. False at a surrogate
// without its pair (standard form).
template <bool kStandard>
__attribute__((target("avx2"), always_inline)) inline bool WideBlockAvx2(const unsigned char*& p,
                                                                         const unsigned char* end,
                                                                         StagedOutput& o) {
  const __m256i not_ascii = _mm256_set1_epi16(static_cast<short>(0xFF80));
  const __m256i top5_mask = _mm256_set1_epi16(static_cast<short>(0xF800));
  const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  if (_mm256_testz_si256(a, not_ascii)) {
    if (end - p >= 64) {
      const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32));
      if (_mm256_testz_si256(b, not_ascii)) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(o.Next()),
                            _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
        o.Add(32);
        p += 64;
        return true;
      }
    }
    _mm_storeu_si128(
        reinterpret_cast<__m128i*>(o.Next()),
        _mm256_castsi256_si128(_mm256_permute4x64_epi64(_mm256_packus_epi16(a, a), 0x08)));
    o.Add(16);
    p += 32;
    return true;
  }
  const __m256i top5 = _mm256_and_si256(a, top5_mask);
  if (kStandard &&
      !_mm256_testz_si256(_mm256_cmpeq_epi16(top5, _mm256_set1_epi16(static_cast<short>(0xD800))),
                          _mm256_set1_epi16(-1))) {
    const __m256i top6 = _mm256_and_si256(a, _mm256_set1_epi16(static_cast<short>(0xFC00)));
    const auto leads = static_cast<unsigned>(_mm256_movemask_epi8(
        _mm256_cmpeq_epi16(top6, _mm256_set1_epi16(static_cast<short>(0xD800)))));
    const auto trails = static_cast<unsigned>(_mm256_movemask_epi8(
        _mm256_cmpeq_epi16(top6, _mm256_set1_epi16(static_cast<short>(0xDC00)))));
    if (leads == 0x33333333u && trails == 0xCCCCCCCCu) {  // eight pairs (emoji)
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(o.Next()), EncodePairsAvx2(a));
      o.Add(32);
      p += 32;
      return true;
    }
    // Other surrogates: these 16 units one by one (a pair may end one unit past them).
    unsigned local = 0;
    const bool paired = Utf16Scalar<true>(p, p + 32, end, o.Next(), local, o.Room());
    o.Add(local);
    return paired;
  }
  if (_mm256_testz_si256(a, top5_mask)) {
    o.Add(EncodeBelow800Avx2(a, o.Next()));
  } else if (_mm256_testz_si256(_mm256_cmpeq_epi16(top5, _mm256_setzero_si256()),
                                _mm256_set1_epi16(-1))) {
    o.Add(EncodeUnitsAvx2<true>(a, o.Next()));
  } else {
    o.Add(EncodeUnitsAvx2<false>(a, o.Next()));
  }
  p += 32;
  return true;
}

// The same as Utf16ToUtf8Sse, with steps of 16 units first.
template <bool kStandard>
__attribute__((target("avx2"))) void Utf16ToUtf8Avx2(unsigned char* out, unsigned out_size,
                                                     const unsigned char* in, unsigned in_size,
                                                     unsigned& written, unsigned& consumed) {
  StagedOutput o(out, out_size);
  const unsigned char* p = in;
  const unsigned char* const end = in + in_size;
  bool common = true;
  while (common && end - p >= kWideBlockInput && o.Room() >= kWideBlockRoom) {
    o.MakeRoom();
    common = WideBlockAvx2<kStandard>(p, end, o);
  }
  FinishWide<kStandard>(in, p, end, common, o, written, consumed);
}

// Validation of 64-byte blocks that start at a character boundary: every byte checked against
// the byte before it (and the two and three before, for the continuation bytes a lead byte
// claims). Leads in the last three bytes may claim bytes past the block; those characters are
// left for the next block, which starts at them.
template <bool kStandard>
__attribute__((target("sse4.1"))) std::size_t Utf8ValidPrefixSse(const unsigned char* in,
                                                                 std::size_t size) {
  const unsigned char* p = in;
  const unsigned char* const end = in + size;
  auto byte = [](int b) { return _mm_set1_epi8(static_cast<char>(b)); };
  while (end - p >= 64) {
    __m128i v[4];
    for (int k = 0; k < 4; ++k)
      v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
    const __m128i any = _mm_or_si128(_mm_or_si128(v[0], v[1]), _mm_or_si128(v[2], v[3]));
    if (Mask(any) == 0) {
      p += 64;
      continue;
    }
    __m128i error = _mm_setzero_si128();
    __m128i prev = _mm_setzero_si128();
    for (int k = 0; k < 4; ++k) {
      const __m128i cur = v[k];
      const __m128i prev1 = _mm_alignr_epi8(cur, prev, 15);
      const __m128i prev2 = _mm_alignr_epi8(cur, prev, 14);
      const __m128i prev3 = _mm_alignr_epi8(cur, prev, 13);
      // Bytes that a lead byte before them claims, and the continuation bytes: they must agree.
      const __m128i claimed = _mm_or_si128(
          _mm_or_si128(_mm_subs_epu8(prev1, byte(0xBF)), _mm_subs_epu8(prev2, byte(0xDF))),
          _mm_subs_epu8(prev3, byte(0xEF)));
      const __m128i unclaimed = _mm_cmpeq_epi8(claimed, _mm_setzero_si128());
      const __m128i cont = _mm_cmpeq_epi8(_mm_and_si128(cur, byte(0xC0)), byte(0x80));
      // Continuation bytes compare as signed: 80-BF are -128 to -65, in order.
      __m128i bad = _mm_xor_si128(cont, _mm_xor_si128(unclaimed, byte(0xFF)));
      bad = _mm_or_si128(bad, _mm_cmpeq_epi8(_mm_and_si128(cur, byte(0xFE)), byte(0xC0)));
      bad = _mm_or_si128(bad, _mm_cmpeq_epi8(_mm_max_epu8(cur, byte(0xF5)), cur));
      bad = _mm_or_si128(
          bad, _mm_and_si128(_mm_cmpeq_epi8(prev1, byte(0xE0)), _mm_cmplt_epi8(cur, byte(0xA0))));
      bad = _mm_or_si128(
          bad, _mm_and_si128(_mm_cmpeq_epi8(prev1, byte(0xF0)), _mm_cmplt_epi8(cur, byte(0x90))));
      bad = _mm_or_si128(
          bad, _mm_and_si128(_mm_cmpeq_epi8(prev1, byte(0xF4)), _mm_cmpgt_epi8(cur, byte(0x8F))));
      if constexpr (kStandard) {
        bad = _mm_or_si128(
            bad, _mm_and_si128(_mm_cmpeq_epi8(prev1, byte(0xED)), _mm_cmpgt_epi8(cur, byte(0x9F))));
      }
      error = _mm_or_si128(error, bad);
      prev = cur;
    }
    if (!_mm_testz_si128(error, error)) break;
    p += WholeCharacters(p, 64);
  }
  return static_cast<std::size_t>(p - in);
}

#endif  // KIV_FAST_X86

}  // namespace

void Utf8ToUtf16Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                    unsigned in_size, unsigned& written, unsigned& consumed) {
#if KIV_FAST_X86
  if (in_size >= 16 && HaveSse41()) {
    return Utf8ToUtf16Sse<false>(out, out_size, in, in_size, written, consumed);
  }
#endif
  Utf8ToUtf16Scalar<false>(out, out_size, in, in_size, written, consumed);
}

void Utf16ToUtf8Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                    unsigned in_size, unsigned& written, unsigned& consumed) {
#if KIV_FAST_X86
  if (in_size >= kWideBlockInput && HaveAvx2()) {
    return Utf16ToUtf8Avx2<false>(out, out_size, in, in_size, written, consumed);
  }
  if (in_size >= 16 && HaveSse41()) {
    return Utf16ToUtf8Sse<false>(out, out_size, in, in_size, written, consumed);
  }
#endif
  Utf16ToUtf8Scalar<false>(out, out_size, in, in_size, written, consumed);
}

void StandardUtf8ToUtf16Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                            unsigned in_size, unsigned& written, unsigned& consumed) {
#if KIV_FAST_X86
  if (in_size >= 16 && HaveSse41()) {
    return Utf8ToUtf16Sse<true>(out, out_size, in, in_size, written, consumed);
  }
#endif
  Utf8ToUtf16Scalar<true>(out, out_size, in, in_size, written, consumed);
}

void Utf16ToStandardUtf8Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                            unsigned in_size, unsigned& written, unsigned& consumed) {
#if KIV_FAST_X86
  if (in_size >= kWideBlockInput && HaveAvx2()) {
    return Utf16ToUtf8Avx2<true>(out, out_size, in, in_size, written, consumed);
  }
  if (in_size >= 16 && HaveSse41()) {
    return Utf16ToUtf8Sse<true>(out, out_size, in, in_size, written, consumed);
  }
#endif
  Utf16ToUtf8Scalar<true>(out, out_size, in, in_size, written, consumed);
}

std::size_t Utf8ValidPrefix(const unsigned char* in, std::size_t size, bool standard) {
#if KIV_FAST_X86
  if (size >= 64 && HaveSse41()) {
    return standard ? Utf8ValidPrefixSse<true>(in, size) : Utf8ValidPrefixSse<false>(in, size);
  }
#endif
  static_cast<void>(standard);
  return Utf8ValidPrefixScalar(in, size);
}

void AsciiToWideRun(unsigned char* out, const unsigned char* in, unsigned count) {
  unsigned i = 0;
#if defined(__SSE2__)
  for (; i + 16 <= count; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    const __m128i sign = _mm_cmpgt_epi8(_mm_setzero_si128(), v);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i), _mm_unpacklo_epi8(v, sign));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i + 16), _mm_unpackhi_epi8(v, sign));
  }
#endif
  for (; i < count; ++i) {
    codec::Store16(out + 2 * i, static_cast<std::uint16_t>(static_cast<signed char>(in[i])));
  }
}

}  // namespace kiv::fast
