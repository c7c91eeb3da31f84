// The text encodings: common base, fixed-width and UTF-8 encodings, the four built-in encodings
// and their shared instances.
#include <cctype>
#include <cstring>
#include <cwctype>
#include <limits>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "platform/wide_ctype.h"
#include "text/converters/converter_impls.h"
#include "text/encodings/encoding_impls.h"
#include "unicode/utf_codec.h"

namespace kiv {

TextEncodingItf::~TextEncodingItf() = default;

void* TextEncodingItf::DataAt(void* data, unsigned& length, std::int32_t index) {
  const TextEncodingItf& self = *this;
  return const_cast<void*>(self.DataAt(static_cast<const void*>(data), length, index));
}

namespace {

[[noreturn]] void ThrowOutOfRange(unsigned length, std::int32_t index) {
  if (length != 0) throw BoundsException(index);
  throw NoSuchElementException();
}

template <class T>
T LoadUnit(const void* p) noexcept {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// How a unit is compared with a searched character and with another unit.
inline std::uint32_t SearchValue(char u) noexcept {
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(u)));
}
inline std::uint32_t SearchValue(unsigned short u) noexcept { return u; }
inline std::uint32_t SearchValue(std::uint32_t u) noexcept { return u; }

inline int UnitDifference(char a, char b) noexcept {
  return static_cast<signed char>(a) - static_cast<signed char>(b);
}
inline int UnitDifference(unsigned short a, unsigned short b) noexcept { return a - b; }
inline int UnitDifference(std::uint32_t a, std::uint32_t b) noexcept {
  const std::int64_t d = static_cast<std::int64_t>(a) - static_cast<std::int64_t>(b);
  if (d > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  if (d < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
  return static_cast<int>(d);
}

inline bool IsSpaceUnit(char u) noexcept {
  const auto b = static_cast<unsigned char>(u);
  return b <= 127 && std::isspace(b) != 0;
}
inline bool IsSpaceUnit(unsigned short u) noexcept { return platform::IsSpaceWide(u) != 0; }
inline bool IsSpaceUnit(std::uint32_t u) noexcept {
  return u < codec::kLeadSurrogateFirst && platform::IsSpaceWide(u) != 0;
}

// The number of whole units of `T` at the start of `a` and `b` (each `units` long) that are
// equal. Equal runs are skipped eight bytes at a time; the first difference is then found unit by
// unit, so the caller's ordering of the differing units is unchanged.
template <class T>
unsigned EqualUnits(const unsigned char* a, const unsigned char* b, unsigned units) noexcept {
  constexpr unsigned kPerWord = sizeof(std::uint64_t) / sizeof(T);
  unsigned i = 0;
  for (; i + kPerWord <= units; i += kPerWord) {
    if (LoadUnit<std::uint64_t>(a + i * sizeof(T)) != LoadUnit<std::uint64_t>(b + i * sizeof(T))) {
      break;
    }
  }
  while (i < units && LoadUnit<T>(a + i * sizeof(T)) == LoadUnit<T>(b + i * sizeof(T))) ++i;
  return i;
}

inline int LengthDifference(unsigned a, unsigned b) noexcept {
  return static_cast<int>(static_cast<std::int64_t>(a) - static_cast<std::int64_t>(b));
}

}  // namespace

// ---------------------------------------------------------------------------------------------

CommonTextEncodingImpl::CommonTextEncodingImpl(const BlockConverter& from_wide,
                                               const BlockConverter& to_wide,
                                               const BlockConverter& to_lower,
                                               const BlockConverter& to_upper)
    : from_wide_(from_wide), to_wide_(to_wide), to_lower_(to_lower), to_upper_(to_upper) {}

CommonTextEncodingImpl::~CommonTextEncodingImpl() = default;

// ---------------------------------------------------------------------------------------------
// Fixed-width encodings

template <class T>
FixedTextEncoding<T>::FixedTextEncoding(const BlockConverter& from_wide,
                                        const BlockConverter& to_wide,
                                        const BlockConverter& to_lower,
                                        const BlockConverter& to_upper)
    : CommonTextEncodingImpl(from_wide, to_wide, to_lower, to_upper), flag_(true) {}

template <class T>
FixedTextEncoding<T>::~FixedTextEncoding() = default;

template <class T>
const void* FixedTextEncoding<T>::DataAt(const void* data, unsigned& length,
                                         std::int32_t index) const {
  const std::uint64_t offset = static_cast<std::uint64_t>(index) * sizeof(T);
  if (index < 0 || offset > length) ThrowOutOfRange(length, index);
  length -= static_cast<unsigned>(offset);
  return static_cast<const unsigned char*>(data) + offset;
}

template <class T>
std::int32_t FixedTextEncoding<T>::Find(std::uint32_t c, const void* data, unsigned length) const {
  const auto* p = static_cast<const unsigned char*>(data);
  const unsigned units = length / sizeof(T);
  for (unsigned i = 0; i < units; ++i) {
    if (SearchValue(LoadUnit<T>(p + i * sizeof(T))) == c) return static_cast<std::int32_t>(i);
  }
  return -1;
}

template <class T>
std::int32_t FixedTextEncoding<T>::FindLast(std::uint32_t c, const void* data, unsigned,
                                            unsigned count) const {
  const auto* p = static_cast<const unsigned char*>(data);
  for (unsigned i = count; i-- > 0;) {
    if (SearchValue(LoadUnit<T>(p + static_cast<std::size_t>(i) * sizeof(T))) == c) {
      return static_cast<std::int32_t>(i);
    }
  }
  return -1;
}

template <class T>
int FixedTextEncoding<T>::Compare(const void* a, unsigned length_a, const void* b,
                                  unsigned length_b) const {
  const auto* pa = static_cast<const unsigned char*>(a);
  const auto* pb = static_cast<const unsigned char*>(b);
  const unsigned units = (length_a < length_b ? length_a : length_b) / sizeof(T);
  const unsigned i = EqualUnits<T>(pa, pb, units);
  if (i < units)
    return UnitDifference(LoadUnit<T>(pa + i * sizeof(T)), LoadUnit<T>(pb + i * sizeof(T)));
  return LengthDifference(length_a, length_b);
}

template <class T>
unsigned FixedTextEncoding<T>::TerminatedLength(const void* data, unsigned& length) const {
  const auto* p = static_cast<const unsigned char*>(data);
  unsigned count = 0;
  while (LoadUnit<T>(p + static_cast<std::size_t>(count) * sizeof(T)) != 0) ++count;
  length = count * static_cast<unsigned>(sizeof(T));
  return count;
}

template <class T>
unsigned FixedTextEncoding<T>::CharacterCount(const void*, unsigned length) const {
  return length / static_cast<unsigned>(sizeof(T));
}

template <class T>
unsigned FixedTextEncoding<T>::Trim(const void*& data, unsigned& length) const {
  const auto* p = static_cast<const unsigned char*>(data);
  unsigned front = 0;
  unsigned back = length / static_cast<unsigned>(sizeof(T));
  while (front < back && IsSpaceUnit(LoadUnit<T>(p + front * sizeof(T)))) ++front;
  while (back > front && IsSpaceUnit(LoadUnit<T>(p + (back - 1) * sizeof(T)))) --back;
  data = p + front * sizeof(T);
  length = (back - front) * static_cast<unsigned>(sizeof(T));
  return back - front;
}

template <class T>
bool FixedTextEncoding<T>::IsTerminatorAt(const void* data, unsigned offset) const {
  return LoadUnit<T>(static_cast<const unsigned char*>(data) + offset) == 0;
}

template <class T>
bool FixedTextEncoding<T>::Terminate(void* data, unsigned offset, unsigned capacity) const {
  if (static_cast<std::uint64_t>(offset) + sizeof(T) > capacity) return false;
  const T zero = 0;
  std::memcpy(static_cast<unsigned char*>(data) + offset, &zero, sizeof zero);
  return true;
}

template class FixedTextEncoding<char>;
template class FixedTextEncoding<unsigned short>;
template class FixedTextEncoding<std::uint32_t>;

// ---------------------------------------------------------------------------------------------
// Variable-width encodings

template <class U, class E>
VariableTextEncoding<U, E>::VariableTextEncoding(const BlockConverter& from_wide,
                                                 const BlockConverter& to_wide,
                                                 const BlockConverter& to_lower,
                                                 const BlockConverter& to_upper)
    : CommonTextEncodingImpl(from_wide, to_wide, to_lower, to_upper) {}

template <class U, class E>
VariableTextEncoding<U, E>::~VariableTextEncoding() = default;

template <class U, class E>
const void* VariableTextEncoding<U, E>::DataAt(const void* data, unsigned& length,
                                               std::int32_t index) const {
  if (index < 0) ThrowOutOfRange(length, index);
  if (index == 0) return data;
  E e;
  e.Start(data, length);
  const auto* start = static_cast<const unsigned char*>(data);
  while (e.HasMore()) {
    if (e.Count() == static_cast<unsigned>(index)) {
      length -= static_cast<unsigned>(e.Position() - start);
      return e.Position();
    }
    if (!e.Next()) break;
  }
  ThrowOutOfRange(length, index);
}

template <class U, class E>
std::int32_t VariableTextEncoding<U, E>::Find(std::uint32_t c, const void* data,
                                              unsigned length) const {
  E e;
  e.Start(data, length);
  while (e.HasMore() && e.Next()) {
    if (e.Value() == c) return static_cast<std::int32_t>(e.Count() - 1);
  }
  return -1;
}

template <class U, class E>
std::int32_t VariableTextEncoding<U, E>::FindLast(std::uint32_t c, const void* data,
                                                  unsigned length, unsigned count) const {
  if (count == 0) return -1;
  E e;
  e.Start(data, length);
  std::int32_t last = -1;
  while (e.HasMore() && e.Count() < count && e.Next()) {
    if (e.Value() == c) last = static_cast<std::int32_t>(e.Count() - 1);
  }
  return last;
}

template <class U, class E>
int VariableTextEncoding<U, E>::Compare(const void* a, unsigned length_a, const void* b,
                                        unsigned length_b) const {
  const auto* pa = static_cast<const unsigned char*>(a);
  const auto* pb = static_cast<const unsigned char*>(b);
  const unsigned units = (length_a < length_b ? length_a : length_b) / sizeof(U);
  const unsigned i = EqualUnits<U>(pa, pb, units);
  if (i < units) {
    return static_cast<int>(LoadUnit<U>(pa + i * sizeof(U))) -
           static_cast<int>(LoadUnit<U>(pb + i * sizeof(U)));
  }
  return LengthDifference(length_a, length_b);
}

template <class U, class E>
unsigned VariableTextEncoding<U, E>::TerminatedLength(const void* data, unsigned& length) const {
  E e;
  e.StartTerminated(data);
  while (LoadUnit<U>(e.Position()) != 0) e.Next();
  length = static_cast<unsigned>(e.Position() - static_cast<const unsigned char*>(data));
  return e.Count();
}

template <class U, class E>
unsigned VariableTextEncoding<U, E>::CharacterCount(const void* data, unsigned length) const {
  E e;
  e.Start(data, length);
  while (e.HasMore() && e.Next()) {
  }
  return e.Count();
}

template <class U, class E>
unsigned VariableTextEncoding<U, E>::Trim(const void*& data, unsigned& length) const {
  auto is_space = [](std::uint32_t c) {
    return c < codec::kLeadSurrogateFirst && platform::IsSpaceWide(c) != 0;
  };
  E e;
  e.Start(data, length);
  // Leading white space.
  const unsigned char* first = e.Position();
  unsigned first_index = 0;
  bool found = false;
  while (e.HasMore()) {
    first = e.Position();
    if (!e.Next()) {
      data = first;
      length = 0;
      return 0;
    }
    if (!is_space(e.Value())) {
      found = true;
      first_index = e.Count() - 1;
      break;
    }
  }
  if (!found) {
    data = e.Position();
    length = 0;
    return 0;
  }
  // The rest: remember the end of the last character that is not white space.
  const unsigned char* last_end = e.Position();
  unsigned last_count = e.Count();
  while (e.HasMore() && e.Next()) {
    if (!is_space(e.Value())) {
      last_end = e.Position();
      last_count = e.Count();
    }
  }
  data = first;
  length = static_cast<unsigned>(last_end - first);
  return last_count - first_index;
}

template <class U, class E>
bool VariableTextEncoding<U, E>::IsTerminatorAt(const void* data, unsigned offset) const {
  return LoadUnit<U>(static_cast<const unsigned char*>(data) + offset) == 0;
}

template <class U, class E>
bool VariableTextEncoding<U, E>::Terminate(void* data, unsigned offset, unsigned capacity) const {
  if (static_cast<std::uint64_t>(offset) + sizeof(U) > capacity) return false;
  const U zero = 0;
  std::memcpy(static_cast<unsigned char*>(data) + offset, &zero, sizeof zero);
  return true;
}

template class VariableTextEncoding<unsigned char, UTF8TextEnumeration>;
template class VariableTextEncoding<unsigned char, StandardUTF8TextEnumeration>;

// ---------------------------------------------------------------------------------------------
// The built-in encodings

AsciiTextEncodingImpl::AsciiTextEncodingImpl()
    : FixedTextEncoding<char>(BlockConverter(new WideCharToAsciiConverterImpl()),
                              BlockConverter(new AsciiToWideCharConverterImpl()),
                              BlockConverter(new AsciiToLowerConverterImpl()),
                              BlockConverter(new AsciiToUpperConverterImpl())) {}
AsciiTextEncodingImpl::~AsciiTextEncodingImpl() = default;

namespace {

BlockConverter Utf16Copy() { return BlockCopyConverterExp::Make(2); }

}  // namespace

// One copy converter serves both directions.
UTF16TextEncodingImpl::UTF16TextEncodingImpl() : UTF16TextEncodingImpl(Utf16Copy()) {}
UTF16TextEncodingImpl::UTF16TextEncodingImpl(const BlockConverter& copy)
    : FixedTextEncoding<unsigned short>(copy, copy, BlockConverter(new UTF16ToLowerConverterImpl()),
                                        BlockConverter(new UTF16ToUpperConverterImpl())) {}
UTF16TextEncodingImpl::~UTF16TextEncodingImpl() = default;

UTF32TextEncodingImpl::UTF32TextEncodingImpl()
    : FixedTextEncoding<std::uint32_t>(BlockConverter(new UTF16toUTF32ConverterImpl()),
                                       BlockConverter(new UTF32toUTF16ConverterImpl()),
                                       BlockConverter(new UTF32ToLowerConverterImpl()),
                                       BlockConverter(new UTF32ToUpperConverterImpl())) {}
UTF32TextEncodingImpl::~UTF32TextEncodingImpl() = default;

namespace {

// The UTF-8 case converters run each character through wide text: UTF-8 to wide, the UTF-16
// encoding's case converter, wide back to UTF-8.
BlockConverter Utf8CaseConverter(BlockConverter to_wide, BlockConverter from_wide,
                                 BlockConverter wide_case) {
  DataConverter chained(new WrappedConverterImpl(
      to_wide->GetDataConverter(), from_wide->GetDataConverter(), wide_case->GetDataConverter()));
  return BlockConverterExp::Make(chained, 1.0f);
}

}  // namespace

UTF8TextEncodingImpl::UTF8TextEncodingImpl()
    : UTF8TextEncodingImpl(BlockConverter(new UTF8ToWideCharConverterImpl()),
                           BlockConverter(new WideCharToUTF8ConverterImpl()),
                           TextEncodingExp::MakeUTF16()) {}
UTF8TextEncodingImpl::UTF8TextEncodingImpl(const BlockConverter& to_wide,
                                           const BlockConverter& from_wide,
                                           const TextEncoding& utf16)
    : VariableTextEncoding<unsigned char, UTF8TextEnumeration>(
          from_wide, to_wide, Utf8CaseConverter(to_wide, from_wide, utf16->GetToLowerConverter()),
          Utf8CaseConverter(to_wide, from_wide, utf16->GetToUpperConverter())) {}
UTF8TextEncodingImpl::~UTF8TextEncodingImpl() = default;

namespace {

BlockConverter StandardUtf8CaseConverter(bool upper) {
  return BlockConverterExp::Make(DataConverter(new StandardUTF8CaseConverterImpl(upper)), 1.0f);
}

}  // namespace

StandardUTF8TextEncodingImpl::StandardUTF8TextEncodingImpl()
    : VariableTextEncoding<unsigned char, StandardUTF8TextEnumeration>(
          BlockConverter(new WideCharToStandardUTF8ConverterImpl()),
          BlockConverter(new StandardUTF8ToWideCharConverterImpl()),
          StandardUtf8CaseConverter(false), StandardUtf8CaseConverter(true)) {}
StandardUTF8TextEncodingImpl::~StandardUTF8TextEncodingImpl() = default;

// ---------------------------------------------------------------------------------------------
// Factories

TextEncoding TextEncodingExp::MakeAscii() {
  static AsciiTextEncodingHolder holder;
  return holder.Get();
}

TextEncoding TextEncodingExp::MakeUTF8() {
  static UTF8TextEncodingHolder holder;
  return holder.Get();
}

TextEncoding TextEncodingExp::MakeStandardUTF8() {
  static StandardUTF8TextEncodingHolder holder;
  return holder.Get();
}

TextEncoding TextEncodingExp::MakeUTF16() {
  static UTF16TextEncodingHolder holder;
  return holder.Get();
}

TextEncoding TextEncodingExp::MakeUTF32() {
  static UTF32TextEncodingHolder holder;
  return holder.Get();
}

TextEncoding TextEncodingExp::MakeAppDefault() { return MakeUTF16(); }

// On POSIX systems the 8-bit system encoding is UTF-8.
TextEncoding TextEncodingExp::MakeSystemDefault() { return MakeUTF8(); }

}  // namespace kiv
