// An example host: what a server process does with the library's text layer.
//
// Usage: kiv_demo [file.utf8]
// Reads UTF-8 text (the file given, or a built-in sample), reports its size in bytes and
// characters, re-encodes it to UTF-16 and back, upper-cases it, and prints the results.
#include <kiv/kiv.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

const char kSample[] =
    "Grüße aus Köln! Ünïcödé text, façade, naïve café.\n"
    "Ελληνικά, Русский, 日本語, and an emoji: 😀\n";

std::string ToUtf8(const kiv::String& s) {
  kiv::String u = s->Encode(kiv::TextEncodingExp::MakeUTF8());
  return std::string(static_cast<const char*>(u->GetData()), u->ByteLength());
}

}  // namespace

int main(int argc, char** argv) {
  std::string bytes = kSample;
  if (argc > 1) {
    std::ifstream in(argv[1], std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", argv[1]);
      return 1;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  try {
    using kiv::TextEncodingExp;
    kiv::String text(TextEncodingExp::MakeUTF8(), bytes.data(),
                     static_cast<unsigned>(bytes.size()));
    std::printf("input: %u bytes of UTF-8, %u characters\n", text->ByteLength(), text->Length());

    kiv::String wide = text->Encode(TextEncodingExp::MakeUTF16());
    std::printf("as UTF-16: %u bytes, %u code units\n", wide->ByteLength(), wide->Length());
    kiv::String back = wide->Encode(TextEncodingExp::MakeUTF8());
    std::printf("round trip UTF-8 -> UTF-16 -> UTF-8 is %s\n",
                back == text ? "exact" : "NOT exact");

    kiv::Container lines = text->Split('\n', true, 0x7FFFFFFF);
    std::printf("lines: %d\n", lines->Count());
    kiv::String first(lines->First());
    std::printf("first line, quoted: %s\n", ToUtf8(first->Quote()).c_str());
    std::printf("upper-cased:\n%s", ToUtf8(wide->ToUpper()).c_str());
    if (!bytes.empty() && bytes.back() != '\n') std::printf("\n");
  } catch (const kiv::Exception& e) {
    std::fprintf(stderr, "failed: %s\n", ToUtf8(e.ToString()).c_str());
    return 1;
  }
  return 0;
}
