// The String, StringBuffer, CString and MacPascalString handles.
#include "kiv/string.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "kiv/exception.h"
#include "text/string_impl.h"

namespace kiv {

namespace {

Ref<StringItf> MakeString(const TextEncoding& encoding, Buffer buffer, const void* data,
                          unsigned bytes, std::uint32_t chars = kUnknownLength) {
  return Ref<StringItf>(new StringImpl(encoding, std::move(buffer), data, bytes, chars));
}

// A copy of `bytes` bytes in owned storage, terminated.
Ref<StringItf> CopyString(const TextEncoding& encoding, const void* text, unsigned bytes,
                          std::uint32_t chars) {
  Buffer buffer = BufferExp::Make(bytes + kTerminatorRoom);
  if (bytes > 0) std::memcpy(buffer->GetData(), text, bytes);
  PutTerminator(static_cast<char*>(buffer->GetData()) + bytes);
  void* data = buffer->GetData();
  return MakeString(encoding, std::move(buffer), data, bytes, chars);
}

Ref<StringItf> WrapConstant(const TextEncoding& encoding, const void* text, unsigned bytes,
                            std::uint32_t chars) {
  return MakeString(encoding, BufferExp::Make(const_cast<void*>(text), bytes), text, bytes, chars);
}

TextEncoding EncodingOr(const Ref<StringItf>& s) {
  return !s ? TextEncodingExp::MakeAppDefault() : s->GetEncoding();
}

}  // namespace

String::String(const Object& o) : BasicString(Ref<StringItf>(o)) {}

String::String(const StringBuffer& buffer) : BasicString(buffer->ToString().GetRef()) {}

String::String(const TextEncoding& encoding)
    : BasicString(MakeString(encoding, Buffer(), nullptr, 0, 0)) {
  encoding.operator->();  // A null encoding fails here, not at first use.
}

String::String(const TextEncoding& encoding, unsigned short c)
    : BasicString(text::OneCharacter(encoding, c).GetRef()) {}

// Null text is taken as the empty text, in every constructor that measures a terminated text.
String::String(const TextEncoding& encoding, const void* text) {
  unsigned bytes = 0;
  std::uint32_t chars = text == nullptr ? 0 : encoding->TerminatedLength(text, bytes);
  ref_ = WrapConstant(encoding, text, bytes, chars);
}

String::String(const TextEncoding& encoding, const void* text, unsigned bytes)
    : BasicString(WrapConstant(encoding, text, bytes, kUnknownLength)) {}

String::String(const TextEncoding& encoding, const void* text, unsigned bytes, std::uint32_t chars)
    : BasicString(WrapConstant(encoding, text, bytes, chars)) {}

String::String(const TextEncoding& encoding, void* text) {
  unsigned bytes = 0;
  std::uint32_t chars = text == nullptr ? 0 : encoding->TerminatedLength(text, bytes);
  ref_ = CopyString(encoding, text, bytes, chars);
}

String::String(const TextEncoding& encoding, void* text, unsigned bytes)
    : BasicString(CopyString(encoding, text, bytes, kUnknownLength)) {}

String::String(const TextEncoding& encoding, void* text, unsigned bytes, std::uint32_t chars)
    : BasicString(CopyString(encoding, text, bytes, chars)) {}

String::String(const TextEncoding& encoding, const Buffer& buffer)
    : BasicString(MakeString(encoding, buffer, !buffer ? nullptr : buffer->GetData(),
                             !buffer ? 0 : buffer->GetSize())) {}

String::String(const TextEncoding& encoding, const Buffer& buffer, std::uint32_t chars)
    : BasicString(MakeString(encoding, buffer, !buffer ? nullptr : buffer->GetData(),
                             !buffer ? 0 : buffer->GetSize(), chars)) {}

String::String(const TextEncoding& encoding, const Buffer& buffer, const void* text, unsigned bytes)
    : BasicString(MakeString(encoding, buffer, text, bytes)) {}

String::String(const TextEncoding& encoding, const Buffer& buffer, const void* text, unsigned bytes,
               std::uint32_t chars)
    : BasicString(MakeString(encoding, buffer, text, bytes, chars)) {}

String::String(const TextEncoding& encoding, const StringItf& text)
    : BasicString(text.Encode(encoding).GetRef()) {}

String::String(const TextEncoding& encoding, const StringBufferItf& text)
    : BasicString(text.ToString()->Encode(encoding).GetRef()) {}

String::~String() = default;

String& String::Assign(const Buffer& buffer) { return *this = String(EncodingOr(ref_), buffer); }
String& String::Assign(const void* text) { return *this = String(EncodingOr(ref_), text); }
String& String::Assign(void* text) { return *this = String(EncodingOr(ref_), text); }
String& String::Assign(std::uint32_t c) { return *this = text::OneCharacter(EncodingOr(ref_), c); }
String& String::Assign(const String& text) { return *this = text->Encode(EncodingOr(ref_)); }
String& String::Assign(const StringBuffer& text) { return Assign(text.ToString()); }

String String::operator+(const String& right) const { return ref_->Concat(right); }
String String::operator+(const StringBuffer& right) const { return ref_->Concat(right); }
String String::operator+(const void* right) const { return ref_->Concat(right); }
String String::operator+(unsigned short right) const {
  return ref_->Concat(static_cast<std::uint32_t>(right));
}

bool String::operator==(const StringItf* s) const {
  if (s == nullptr || !ref_) return s == ref_.Get();
  return ref_->CompareTo(String(s)) == 0;
}

// ---- StringBuffer ----

StringBuffer::StringBuffer(const Object& o) : BasicString(Ref<StringBufferItf>(o)) {}

StringBuffer::StringBuffer(const TextEncoding& encoding)
    : BasicString(Ref<StringBufferItf>(new StringBufferImpl(encoding, Buffer()))) {
  encoding.operator->();
}

StringBuffer::StringBuffer(const TextEncoding& encoding, const Buffer& storage)
    : BasicString(Ref<StringBufferItf>(new StringBufferImpl(encoding, storage))) {
  encoding.operator->();
}

StringBuffer::~StringBuffer() = default;

StringBuffer& StringBuffer::operator=(const String& text) {
  if (!ref_) ref_ = new StringBufferImpl(text->GetEncoding(), Buffer());
  ref_->Assign(text);
  return *this;
}
StringBuffer& StringBuffer::operator=(const StringBuffer& text) {
  if (this == &text) return *this;
  if (!ref_) ref_ = new StringBufferImpl(text->GetEncoding(), Buffer());
  ref_->Assign(text);
  return *this;
}
StringBuffer& StringBuffer::operator=(const void* text) {
  if (!ref_) ref_ = new StringBufferImpl(TextEncodingExp::MakeAppDefault(), Buffer());
  ref_->Assign(text);
  return *this;
}
StringBuffer& StringBuffer::operator=(unsigned short c) {
  if (!ref_) ref_ = new StringBufferImpl(TextEncodingExp::MakeAppDefault(), Buffer());
  ref_->Assign(static_cast<std::uint32_t>(c));
  return *this;
}
StringBuffer& StringBuffer::operator+=(const String& text) {
  ref_->Append(text);
  return *this;
}
StringBuffer& StringBuffer::operator+=(const StringBuffer& text) {
  ref_->Append(text);
  return *this;
}
StringBuffer& StringBuffer::operator+=(const void* text) {
  ref_->Append(text);
  return *this;
}
StringBuffer& StringBuffer::operator+=(unsigned short c) {
  ref_->Append(static_cast<std::uint32_t>(c));
  return *this;
}

String StringBuffer::ToString() const { return ref_->ToString(); }

// ---- CString ----

CString::CString(const String& s) : data_(nullptr), bytes_(0) {
  CopyFrom(s->GetData(), s->ByteLength());
}
CString::CString(const CString& other) : data_(nullptr), bytes_(0) {
  CopyFrom(other.data_, other.bytes_);
}
CString& CString::operator=(const CString& other) {
  if (this != &other) {
    void* old = data_;
    CopyFrom(other.data_, other.bytes_);
    delete[] static_cast<char*>(old);
  }
  return *this;
}
CString::~CString() { delete[] static_cast<char*>(data_); }

void CString::CopyFrom(const void* data, unsigned bytes) {
  // Four zero bytes terminate text of any unit width; the storage is aligned for 16-bit units.
  char* copy = new char[bytes + kTerminatorRoom];
  if (bytes > 0) std::memcpy(copy, data, bytes);
  PutTerminator(copy + bytes);
  data_ = copy;
  bytes_ = bytes;
}

// ---- MacPascalString ----

MacPascalString::MacPascalString(const String& s) {
  String ascii = s->Encode(TextEncodingExp::MakeAscii());
  unsigned n = std::min(ascii->ByteLength(), 255u);
  bytes_[0] = static_cast<unsigned char>(n);
  std::memcpy(bytes_ + 1, ascii->GetData(), n);
}

MacPascalString::MacPascalString(const unsigned char* pascal) {
  unsigned n = pascal == nullptr ? 0 : pascal[0];
  bytes_[0] = static_cast<unsigned char>(n);
  if (n > 0) std::memcpy(bytes_ + 1, pascal + 1, n);
}

MacPascalString::~MacPascalString() = default;

String MacPascalString::ToString() const {
  return String(TextEncodingExp::MakeAscii(), const_cast<unsigned char*>(bytes_ + 1),
                static_cast<unsigned>(bytes_[0]));
}

}  // namespace kiv
